#include "history/EventLines.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "base/InputError.h"
#include "chassis/SampleEvents.h"
#include "history/EventFile.h"
#include "status/EventWords.h"

namespace chassis {
namespace {

constexpr EventStamp stamp{7, 61010, 1795293045678};
const std::string head =
    R"({"number":7,"time":"2026-11-21T20:30:45.678Z","chassis_ms":61010,"kind":")";

Event remark(const std::string &what) {
  return {{}, event::Remark{{what}}};
}

TEST(EventLine, HasTheTimesThePlaceTheFactsAndTheWords) {
  event::Programs programs{101, ""};
  programs.add(65535, "Last");
  const Event event{{5, 1}, event::QuerySent{{programs, {"first", "last"}}}};
  EXPECT_EQ(eventLine(event, stamp),
            head + R"(query_sent","slot":5,"cam":1,"tone":"plain","programs":[101,65535],)"
                   R"("names":["","Last"],"list_management":["first","last"],)"
                   R"("what":"query sent: programs 101, 65535 \"Last\"",)"
                   R"("why":"list management first, last"})");
}

TEST(EventLine, HasTheToneAndTheSideOfAReceiver) {
  EXPECT_EQ(eventLine({{0, -1, Side::Behind}, event::StreamSilent{true, 1000}}, stamp),
            head + R"(stream_silent","slot":0,"side":"behind","tone":"bad","begun":true,)"
                   R"("silent_ms":1000,"what":"what comes out of the receiver is silent",)"
                   R"("why":"no packets for 1.0 s"})");
  const std::string before = eventLine({{0, -1, Side::Before}, event::StreamBegun{}}, stamp);
  EXPECT_NE(before.find(R"("slot":0,"side":"before","tone":"good")"), std::string::npos);
}

TEST(EventLine, LeavesOutThePlaceAndTheReasonThatAreNot) {
  EXPECT_EQ(eventLine(remark("hello"), stamp),
            head + R"(remark","tone":"plain","text":"hello","what":"hello"})");
  EXPECT_EQ(eventLine({{0, 1}, event::CamRemoved{}}, stamp),
            head + R"(cam_removed","slot":0,"cam":1,"tone":"plain","what":"CAM removed"})");
}

std::set<std::string> stringsOf(const nlohmann::json &list) {
  return list.is_null() ? std::set<std::string>() : list.get<std::set<std::string>>();
}

// What the schema says of a kind of event.
nlohmann::json rulesOf(const nlohmann::json &schema, const nlohmann::json &kind) {
  for (const auto &rule : schema["allOf"]) {
    if (rule["if"]["properties"]["kind"]["const"] == kind) {
      return rule["then"];
    }
  }
  return {};
}

std::string typeIn(const nlohmann::json &schema, const std::string &name) {
  const nlohmann::json &property = schema["properties"][name];
  return property.contains("$ref") ? "integer" : property.value("type", "string");
}

std::string typeOf(const nlohmann::json &value) {
  return value.is_number_integer() ? "integer" : value.type_name();
}

TEST(EventLine, OfEachKindFitsTheSchema) {
  std::ifstream file(DOCS "/events.schema.json");
  auto schema = nlohmann::json::parse(file);
  for (const sample_events::Told &told : sample_events::everyEvent()) {
    const auto line = nlohmann::json::parse(eventLine({told.place, told.facts}, stamp));
    auto rules = rulesOf(schema, line["kind"]);
    const std::set<std::string> allowed = stringsOf(rules["propertyNames"]["enum"]);
    const std::set<std::string> required = stringsOf(rules["required"]);
    for (const std::string &name : required) {
      EXPECT_TRUE(name == "slot" || line.contains(name)) << line << " has no " << name;
    }
    for (const auto &[name, value] : line.items()) {
      EXPECT_EQ(allowed.count(name), 1U) << line << " has " << name;
      EXPECT_EQ(typeOf(value), typeIn(schema, name)) << line << " " << name;
    }
    const auto reason = rules["properties"]["reason"]["enum"];
    EXPECT_EQ(line.contains("reason"), !reason.is_null()) << line;
    EXPECT_EQ(stringsOf(reason).count(line.value("reason", "")), reason.is_null() ? 0U : 1U)
        << line;
  }
}

TEST(EventLine, IsOneLineOfUtf8WhateverIsInATextOfTheStream) {
  EXPECT_EQ(eventLine(remark("a\nb\"\\\x01 \xC3\xA9 \xFF."), stamp),
            head +
                "remark\",\"tone\":\"plain\",\"text\":\"a\\nb\\\"\\\\\\u0001 \xC3\xA9 "
                "\xEF\xBF\xBD.\",\"what\":\"a\\nb\\\"\\\\\\u0001 \xC3\xA9 \xEF\xBF\xBD.\"}");
}

TEST(EventLines, CountEventsFromOneAndStampEachWithItsTimes) {
  std::uint64_t nowMs = 10;
  std::int64_t wallMs = 1000;
  std::string text;
  EventLines lines([&](const std::string &line) { text += line; }, [&] { return nowMs; },
                   [&] { return wallMs; });
  lines.tell(remark("a"));
  nowMs = 20;
  wallMs = 1001;
  lines.tell(remark("b"));
  EXPECT_EQ(text,
            R"({"number":1,"time":"1970-01-01T00:00:01.000Z","chassis_ms":10,"kind":"remark",)"
            "\"tone\":\"plain\",\"text\":\"a\",\"what\":\"a\"}\n"
            R"({"number":2,"time":"1970-01-01T00:00:01.001Z","chassis_ms":20,"kind":"remark",)"
            "\"tone\":\"plain\",\"text\":\"b\",\"what\":\"b\"}\n");
}

class EventFileTest : public testing::Test {
 protected:
  EventFileTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ci-events-XXXXXX").string();
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  ~EventFileTest() override { std::filesystem::remove_all(folder_); }

  std::unique_ptr<EventFile> open(const std::string &path) {
    return std::make_unique<EventFile>(files_, path, [] { return 5; });
  }
  static std::string textOf(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Files files_;
  std::filesystem::path folder_;
};

TEST_F(EventFileTest, EmptiesAFileWithTheFirstEventAndHasEachAtOnce) {
  const std::string path = folder_ / "events";
  std::ofstream(path) << "old";
  const auto file = open(path);
  EXPECT_EQ(textOf(path), "old");
  file->tell(remark("a"));
  EXPECT_NE(textOf(path).find("\"what\":\"a\"}\n"), std::string::npos);
  EXPECT_EQ(textOf(path).find("old"), std::string::npos);
  EXPECT_FALSE(file->newTrouble());
  EXPECT_EQ(file->end(), "");
}

TEST_F(EventFileTest, TellsALossOnceAndHowMuchItWasAtTheEnd) {
  const auto file = open("/dev/full");
  EXPECT_FALSE(file->newTrouble());
  file->tell(remark("a"));
  const std::optional<Event> trouble = file->newTrouble();
  ASSERT_TRUE(trouble);
  EXPECT_EQ(trouble->kind(), EventKind::OutputLost);
  EXPECT_EQ(wordsOf(*trouble).what, "the file of events is not whole");
  EXPECT_EQ(wordsOf(*trouble).why, "'/dev/full': No space left on device");
  file->tell(remark("b"));
  EXPECT_FALSE(file->newTrouble());
  const std::size_t bytes = 2 * eventLine(remark("a"), {1, 5, 0}).size() + 2;
  EXPECT_EQ(file->end(), "'/dev/full', the file of events, is not whole: " + std::to_string(bytes) +
                             " bytes lost: No space left on device");
}

TEST_F(EventFileTest, IsNoFileThatTheRunUsesAndItselfOneThatItUses) {
  const std::string path = folder_ / "x";
  std::ofstream(path) << "stream";
  files_.read("the stream of slot 0", path);
  EXPECT_THROW(open(path), InputError);
  files_.forget("the stream of slot 0");
  auto file = open(path);
  EXPECT_THROW(files_.checkReading("the stream of slot 0", path), InputError);
  file.reset();
  files_.checkReading("the stream of slot 0", path);
  EXPECT_EQ(textOf(path), "stream");
}

}  // namespace
}  // namespace chassis
