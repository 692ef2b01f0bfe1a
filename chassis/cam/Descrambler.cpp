#include "cam/Descrambler.h"

#include <bitstream/mpeg/ts.h>
#include <dvbcsa/dvbcsa.h>

#include <algorithm>

#include "ts/PacketView.h"

namespace chassis {
namespace {

constexpr std::uint8_t scrambledEven = 2;
constexpr std::uint8_t scrambledOdd = 3;
constexpr unsigned payloadMax = tsPacketSize - TS_HEADER_SIZE;
constexpr unsigned blockSize = 8;  // shorter payloads are never scrambled

// A batch costs the same however few packets are in it: as much as about this many one by one.
constexpr std::size_t batchWorthwhile = 15;

struct FreeKey {
  void operator()(dvbcsa_key_t *key) const { dvbcsa_key_free(key); }
  void operator()(dvbcsa_bs_key_t *key) const { dvbcsa_bs_key_free(key); }
};

}  // namespace

// One control word and the payloads that wait for it.
struct Descrambler::Lane {
  explicit Lane(DescramblerWork &workOfAll) : work(workOfAll) {
    batch.reserve(dvbcsa_bs_batch_size() + 1);
  }

  void setWord(const labca::ControlWord &newWord) {
    settle();
    word = newWord;
    dvbcsa_key_set(word.data(), single.get());
    dvbcsa_bs_key_set(word.data(), sliced.get());
  }

  void push(std::uint8_t *payload, unsigned size) {
    batch.push_back({payload, size});
    if (batch.size() == dvbcsa_bs_batch_size()) {
      settle();
    }
  }

  void settle() {
    if (batch.size() < batchWorthwhile) {
      work.singly += batch.size();
      for (const dvbcsa_bs_batch_s &payload : batch) {
        dvbcsa_decrypt(single.get(), payload.data, payload.len);
      }
    } else {
      ++work.batches;
      work.inBatches += batch.size();
      batch.resize(dvbcsa_bs_batch_size(), {filler.data(), blockSize});
      batch.push_back({nullptr, 0});
      dvbcsa_bs_decrypt(sliced.get(), batch.data(), payloadMax);
    }
    batch.clear();
  }

  DescramblerWork &work;
  labca::ControlWord word{};
  std::unique_ptr<dvbcsa_key_t, FreeKey> single{dvbcsa_key_alloc()};
  std::unique_ptr<dvbcsa_bs_key_t, FreeKey> sliced{dvbcsa_bs_key_alloc()};
  std::vector<dvbcsa_bs_batch_s> batch;
  // libdvbcsa computes with every place of a batch, taken or not, and clears none. Free places get
  // a payload of one block, the shortest that leaves nothing undefined.
  std::array<std::uint8_t, blockSize> filler{};
};

Descrambler::Descrambler() : keyOfPid_(pidCount, nullptr) {}
Descrambler::~Descrambler() = default;

void Descrambler::setWord(Key key, Parity parity, const labca::ControlWord &word) {
  std::unique_ptr<Lane> &lane = keys_[key][static_cast<std::size_t>(parity)];
  if (!lane) {
    lane = std::make_unique<Lane>(work_);
  } else if (lane->word == word) {
    return;
  }
  lane->setWord(word);
}

void Descrambler::drop(Key key) {
  settle();
  std::replace(keyOfPid_.begin(), keyOfPid_.end(), &keys_[key], static_cast<KeyPair *>(nullptr));
  keys_.erase(key);
}

void Descrambler::assign(std::uint16_t pid, Key key) {
  keyOfPid_.at(pid) = &keys_[key];
}

void Descrambler::releaseAll() {
  std::fill(keyOfPid_.begin(), keyOfPid_.end(), nullptr);
}

void Descrambler::push(TsPacket &packet) {
  const PacketView view(packet);
  const KeyPair *key = keyOfPid_[view.pid()];
  const std::uint8_t control = view.scrambling();
  if (key == nullptr || control < scrambledEven) {
    return;
  }
  Lane *lane = (*key)[control == scrambledOdd].get();
  if (lane == nullptr) {
    return;
  }
  ts_set_scrambling(packet.data(), 0);
  if (view.payloadSize() >= blockSize) {
    pending_.set(view.pid());
    lane->push(packet.data() + view.payloadOffset(), static_cast<unsigned>(view.payloadSize()));
  }
}

void Descrambler::settle() {
  for (auto &[key, lanes] : keys_) {
    for (std::unique_ptr<Lane> &lane : lanes) {
      if (lane) {
        lane->settle();
      }
    }
  }
  pending_.reset();
}

}  // namespace chassis
