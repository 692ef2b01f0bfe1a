// Scrambled streams of the laboratory CA system, made in memory beside what they were before.
#pragma once

#include <dvbcsa/dvbcsa.h>

#include <cstdint>
#include <random>
#include <vector>

#include "cam/LabCa.h"
#include "ts/Section.h"
#include "ts/TsPacket.h"

namespace testing_cam {

using chassis::TsPacket;
using chassis::labca::ControlWord;

struct LabEs {
  std::uint16_t pid = 0;
  std::uint16_t ecmPid = 0;
  std::uint16_t tier = 0;
};

// The word of an ECM PID in a period.
inline ControlWord labWord(std::uint16_t ecmPid, std::uint32_t period) {
  std::mt19937 random(ecmPid * 1000u + period);
  ControlWord word;
  for (std::uint8_t &byte : word) {
    byte = static_cast<std::uint8_t>(random());
  }
  chassis::labca::setChecksums(word);
  return word;
}

struct LabStream {
  std::vector<TsPacket> clear;
  std::vector<TsPacket> scrambled;

  void both(const TsPacket &packet) {
    clear.push_back(packet);
    scrambled.push_back(packet);
  }
};

// Packets of every sort: with and without adaptation field, payloads of 1 to 184 bytes and none.
inline TsPacket esPacket(std::uint16_t pid, unsigned number, std::mt19937 &random) {
  TsPacket packet;
  for (std::uint8_t &byte : packet) {
    byte = static_cast<std::uint8_t>(random());
  }
  packet[0] = 0x47;
  packet[1] = static_cast<std::uint8_t>(pid >> 8);
  packet[2] = static_cast<std::uint8_t>(pid);
  packet[3] = static_cast<std::uint8_t>(0x10 | (number & 0x0F));
  if (number % 3 == 0) {
    packet[3] |= 0x20;
    packet[4] = static_cast<std::uint8_t>(number % 184);
  }
  if (number % 50 == 49) {
    packet[3] = static_cast<std::uint8_t>(0x20 | (number & 0x0F));
    packet[4] = 183;
  }
  return packet;
}

inline TsPacket scrambledPacket(const TsPacket &clear, const ControlWord &word, unsigned parity) {
  TsPacket packet = clear;
  if ((packet[3] & 0x10) == 0) {
    return packet;
  }
  const unsigned offset = (packet[3] & 0x20) != 0 ? 5u + packet[4] : 4u;
  dvbcsa_key_t *key = dvbcsa_key_alloc();
  dvbcsa_key_set(word.data(), key);
  dvbcsa_encrypt(key, packet.data() + offset, 188 - offset);
  dvbcsa_key_free(key);
  packet[3] = static_cast<std::uint8_t>(packet[3] | 0x80 | parity << 6);
  return packet;
}

inline chassis::labca::Ecm labEcm(const LabEs &es, std::uint32_t period, std::uint32_t periods) {
  chassis::labca::Ecm ecm;
  ecm.tier = es.tier;
  ecm.period = period;
  const ControlWord now = labWord(es.ecmPid, period);
  const ControlWord next = labWord(es.ecmPid, (period + 1) % periods);
  ecm.even = period % 2 == 0 ? now : next;
  ecm.odd = period % 2 == 0 ? next : now;
  return ecm;
}

// Streams that take turns, through a number of crypto periods; ECMs at each period's beginning and
// in its middle.
inline LabStream labStream(const std::vector<LabEs> &streams, std::uint32_t periods = 4,
                           unsigned packetsPerPeriod = 120) {
  LabStream stream;
  std::mt19937 random(7);
  std::vector<std::uint8_t> continuity(chassis::pidCount, 0);
  for (std::uint32_t period = 0; period < periods; ++period) {
    for (unsigned n = 0; n < packetsPerPeriod; ++n) {
      for (const LabEs &es : streams) {
        if (n % (packetsPerPeriod / 2) == 0) {
          const chassis::Section section = chassis::labca::encodeEcm(labEcm(es, period, periods));
          stream.both(chassis::sectionPackets(section, es.ecmPid, continuity[es.ecmPid])[0]);
        }
        const TsPacket clear = esPacket(es.pid, period * packetsPerPeriod + n, random);
        stream.clear.push_back(clear);
        stream.scrambled.push_back(scrambledPacket(clear, labWord(es.ecmPid, period), period % 2));
      }
    }
  }
  return stream;
}

}  // namespace testing_cam
