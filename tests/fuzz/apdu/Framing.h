// Objects in every form of length_field, and CA PMTs with lengths that are right or just not: what
// host and CAM take of them must be what a second reading takes.
#ifndef TESTS_FUZZ_APDU_FRAMING_H
#define TESTS_FUZZ_APDU_FRAMING_H

#include "Input.h"

namespace fuzz {

// Any bytes as an APDU.
void checkApdu(const std::vector<uint8_t> &apdu);
// The input's bytes, or noise of a size where the length_field changes, in all forms.
void checkFraming(Input &input);
// A CA PMT of which some lengths may be wrong.
void checkMadeCaPmt(Input &input);

}  // namespace fuzz

#endif
