// EN 50221 CA support objects: encoding of what the host sends, strict decoding of what a CAM
// sends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CiPlatform.h"
#include "cam/Cam.h"

namespace chassis {

// apdu_tag values (24 bits) of the CA support resource.
constexpr std::uint32_t caInfoEnquiryTag = 0x9F8030;
constexpr std::uint32_t caInfoTag = 0x9F8031;
constexpr std::uint32_t caPmtTag = 0x9F8032;
constexpr std::uint32_t caPmtReplyTag = 0x9F8033;

// ca_pmt_cmd_id values in use.
constexpr std::uint8_t cmdOkDescrambling = 1;
constexpr std::uint8_t cmdQuery = 3;

// The tag of an APDU; nothing when it is too short to hold one.
std::optional<std::uint32_t> apduTag(const Apdu &apdu);

// A ca_pmt APDU and what could not be put into it.
struct EncodedCaPmt {
  Apdu apdu;
  std::vector<std::string> leftOut;  // one clause each: what was left out, and why
};

// Encodes one program record. A level with no CA descriptor has length 0 and no ca_pmt_cmd_id. Left
// out is what has no faithful encoding: descriptors with more than 251 private bytes, with private
// bytes outside their area, or with a PID above 0x1FFF; descriptors beyond a 12-bit info length or
// a 16-bit APDU length; streams with a PID above 0x1FFF; what counts above 32 announce.
EncodedCaPmt encodeCaPmt(const CaPmtProg &program);

Apdu encodeCaInfoEnquiry();

// What an APDU said, or why it was refused.
template <typename Object>
struct Decoded {
  std::optional<Object> object;
  std::string reason;  // empty when there is an object
};

struct CaInfo {
  std::vector<std::uint16_t> caSystems;  // CA_system_ID, in the CAM's order
};

// caEnable: CA_enable (7 bits) where the CAM set CA_enable_flag, else 0.
struct CaReplyStream {
  std::uint16_t pid = 0;  // elementary_PID
  std::uint8_t caEnable = 0;
};
struct CaReply {
  std::uint16_t program = 0;  // program_number
  std::uint8_t version = 0;   // version_number
  bool current = false;       // current_next_indicator
  std::uint8_t caEnable = 0;
  std::vector<CaReplyStream> streams;
};

// Refused: another tag, a length field that is cut off, indefinite or longer than 3 bytes, a length
// that differs from the bytes that follow, and a body that ends within an entry. Reserved bits are
// not looked at.
Decoded<CaInfo> decodeCaInfo(const Apdu &apdu);
Decoded<CaReply> decodeCaPmtReply(const Apdu &apdu);

}  // namespace chassis
