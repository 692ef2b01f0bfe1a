#include "cam/Cam.h"

#include <deque>
#include <random>
#include <utility>

#include "base/Text.h"
#include "cam/CaClient.h"
#include "cam/CaObjects.h"

namespace chassis {

using cam::CaPmt;
using cam::Command;
using cam::ListManagement;

namespace {

constexpr std::size_t maxAnswers = 64;   // what the host does not fetch
constexpr std::size_t maxPrograms = 64;  // selected at a time
constexpr std::size_t maxGarbage = 48;
constexpr std::uint32_t garbageSeed = 20;

}  // namespace

struct Cam::State {
  struct Answer {
    std::uint64_t dueMs;
    Apdu apdu;
  };

  State(Config configIn, Place placeIn, Events &eventsIn, std::uint64_t startMs)
      : config(std::move(configIn)),
        place(placeIn),
        events(eventsIn),
        client(
            config.caSystems, config.ecmTimeoutMs,
            [this](const Facts &facts) {
              events.tell({place, facts});
            },
            config.programNames) {
    start(startMs);
  }

  void start(std::uint64_t startMs) {
    nowMs = startMs;
    upMs = startMs + config.startUpMs;
    deaf = false;
    answers.clear();
    list.reset();
    complaint.clear();
    client.forget();
  }

  bool up() const { return nowMs >= upMs; }
  bool working() const { return up() && !deaf; }

  void handle(const cam::Object &object);
  void handleCaPmt(const CaPmt &pmt);
  void keepList(const CaPmt &pmt);
  void put(cam::CaClient::Selection &selection, const CaPmt &pmt);
  void select(cam::CaClient::Selection selection);
  void queue(Apdu apdu);
  void complain(const std::string &why);
  Apdu randomBytes();

  const Config config;
  const Place place;
  Events &events;
  cam::CaClient client;

  std::uint64_t nowMs = 0;
  std::uint64_t upMs = 0;
  bool deaf = false;
  bool garbage = false;
  std::mt19937 random{garbageSeed};
  std::deque<Answer> answers;
  std::optional<cam::CaClient::Selection> list;  // between its first and its last object
  std::string complaint;                         // the last one, told only once in a row
};

void Cam::State::queue(Apdu apdu) {
  if (answers.size() < maxAnswers) {
    answers.push_back({nowMs + config.answerMs, std::move(apdu)});
  }
}

void Cam::State::complain(const std::string &why) {
  if (why != complaint) {
    complaint = why;
    events.tell({place, event::CamIgnores{{why}}});
  }
}

Apdu Cam::State::randomBytes() {
  Apdu bytes(1 + random() % maxGarbage);
  for (std::uint8_t &byte : bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  return bytes;
}

void Cam::State::handle(const cam::Object &object) {
  switch (object.tag) {
    case cam::tagCaInfoEnquiry:
      if (!object.body.empty()) {
        throw cam::BadObject("a ca_info_enq has no body");
      }
      queue(cam::encodeCaInfo(config.caSystems));
      return;
    case cam::tagCaPmt:
      handleCaPmt(cam::decodeCaPmt(object.body));
      return;
    default:
      throw cam::BadObject("its tag is unknown");
  }
}

void Cam::State::handleCaPmt(const CaPmt &pmt) {
  if (pmt.commands(Command::Query)) {
    queue(cam::encodeCaPmtReply(client.answer(pmt)));
    return;
  }
  keepList(pmt);
}

// A list takes effect with its last object; a single object at once.
void Cam::State::keepList(const CaPmt &pmt) {
  const bool continues = pmt.list == ListManagement::More || pmt.list == ListManagement::Last;
  if (continues && !list) {
    throw cam::BadObject("the list that it continues has no first object");
  }
  if (pmt.list == ListManagement::Update && client.selection().count(pmt.program) == 0) {
    throw cam::BadObject("the program that it updates is not selected");
  }
  const bool replaces = pmt.list == ListManagement::First || pmt.list == ListManagement::Only;
  cam::CaClient::Selection selection = replaces    ? cam::CaClient::Selection()
                                       : continues ? *list
                                                   : client.selection();
  put(selection, pmt);
  list.reset();
  if (pmt.list == ListManagement::First || pmt.list == ListManagement::More) {
    list = std::move(selection);
  } else {
    select(std::move(selection));
  }
}

// A program without CA descriptors carries no command and is selected all the same: it is clear.
void Cam::State::put(cam::CaClient::Selection &selection, const CaPmt &pmt) {
  selection.erase(pmt.program);
  if (!pmt.commandsNothing() && !pmt.commands(Command::OkDescrambling)) {
    return;
  }
  if (selection.size() == maxPrograms) {
    throw cam::BadObject("more programs than this CAM takes");
  }
  selection[pmt.program] = pmt;
}

void Cam::State::select(cam::CaClient::Selection selection) {
  client.select(std::move(selection), nowMs);
}

Cam::Cam(Config config, Place place, Events &events, std::uint64_t nowMs)
    : state_(std::make_unique<State>(std::move(config), place, events, nowMs)) {}
Cam::~Cam() = default;

bool Cam::up() const {
  return state_->up();
}

void Cam::reset(std::uint64_t nowMs) {
  state_->start(nowMs);
}

void Cam::receive(const Apdu &apdu) {
  State &state = *state_;
  if (!state.working()) {
    return;
  }
  if (state.garbage) {
    state.queue(state.randomBytes());
  }
  const std::size_t answered = state.answers.size();
  try {
    state.handle(cam::decodeObject(apdu));
    state.complaint.clear();
  } catch (const cam::BadObject &bad) {
    state.complain(bad.what());
  }
  if (state.garbage) {
    state.answers.resize(answered);
  }
}

std::optional<Apdu> Cam::transmit() {
  State &state = *state_;
  if (!state.working() || state.answers.empty() || state.answers.front().dueMs > state.nowMs) {
    return std::nullopt;
  }
  Apdu apdu = std::move(state.answers.front().apdu);
  state.answers.pop_front();
  return apdu;
}

void Cam::tick(std::uint64_t nowMs) {
  State &state = *state_;
  state.nowMs = nowMs;
  if (state.working()) {
    state.client.tick(nowMs);
  }
}

void Cam::process(TsPacket *const *packets, std::size_t count, std::uint64_t nowMs) {
  state_->nowMs = nowMs;
  if (state_->working()) {
    state_->client.process(packets, count, nowMs);
  }
}

void Cam::settle() {
  state_->client.settle();
}

bool Cam::mustSettleBefore(const Cam &next) const {
  return state_->client.mustSettleBefore(next.state_->client);
}

DescramblerWork Cam::work() const {
  return state_->client.work();
}

void Cam::entitle(std::uint16_t program, bool on) {
  state_->client.entitle(program, on);
}
void Cam::refuse(std::uint16_t program, bool on) {
  state_->client.refuse(program, on);
}

void Cam::setFault(CamFault fault, bool on) {
  State &state = *state_;
  switch (fault) {
    case CamFault::Deaf:
      if (on && !state.deaf) {
        state.events.tell({state.place, event::CamDeaf{}});
      }
      state.deaf = on;
      return;
    case CamFault::Garbage:
      state.garbage = on;
      return;
    case CamFault::WrongKey:
      state.client.spoilWords(on);
      return;
  }
}

}  // namespace chassis
