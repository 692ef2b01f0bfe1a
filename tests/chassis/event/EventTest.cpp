#include "event/Event.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

namespace chassis {
namespace {

class Recorder : public Events {
 public:
  Recorder(std::vector<std::string> &all, std::string name) : all_(all), name_(std::move(name)) {}
  void tell(const Event &event) override {
    all_.push_back(name_ + " " + std::get<event::Remark>(event.facts).text);
  }

 private:
  std::vector<std::string> &all_;
  const std::string name_;
};

Event remark(const std::string &what) {
  return {{}, event::Remark{{what}}};
}

TEST(EventFan, TellsEachReceiverInTurnUntilItGoes) {
  std::vector<std::string> told;
  Recorder first(told, "first");
  Recorder second(told, "second");
  EventFan fan;
  fan.tell(remark("nobody"));
  fan.add(first);
  fan.add(second);
  fan.tell(remark("both"));
  fan.remove(first);
  fan.tell(remark("one"));
  EXPECT_EQ(told, (std::vector<std::string>{"first both", "second both", "second one"}));
}

TEST(EventKinds, HaveTheNamesOfTheSchema) {
  std::ifstream file(DOCS "/events.schema.json");
  const auto schema = nlohmann::json::parse(file);
  std::vector<std::string> kinds;
  for (std::size_t kind = 0; kind < eventKinds; ++kind) {
    kinds.emplace_back(kindName(static_cast<EventKind>(kind)));
  }
  EXPECT_EQ(schema["properties"]["kind"]["enum"].get<std::vector<std::string>>(), kinds);
  EXPECT_STREQ(kindName(EventKind::AlarmRaised), "alarm_raised");
  EXPECT_STREQ(kindName(EventKind::ModuleDebug), "module_debug");
}

}  // namespace
}  // namespace chassis
