// Names of services from hostile bytes: what a section says is what is told, and whatever its text
// is, people get one line of visible characters.
#ifndef TESTS_FUZZ_STREAM_NAMES_H
#define TESTS_FUZZ_STREAM_NAMES_H

#include "Input.h"

void checkNames(fuzz::Input &input);

#endif
