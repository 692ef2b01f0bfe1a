#include "history/EventLines.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/InputError.h"
#include "history/EventFile.h"

namespace chassis {
namespace {

constexpr EventStamp stamp{7, 61010, 1795293045678};
const std::string head =
    R"({"number":7,"time":"2026-11-21T20:30:45.678Z","chassis_ms":61010,"kind":")";

Event remark(const std::string &what) {
  return {EventKind::Remark, {}, what, ""};
}

TEST(EventLine, HasTheTimesThePlaceTheFactsAndTheWords) {
  const Event event{EventKind::QuerySent,
                    {5, 1},
                    "query sent: programs 101, 102",
                    "list management first, last",
                    {{"programs", std::vector<std::uint16_t>{101, 65535}},
                     {"list_management", std::vector<std::string>{"first", "last"}},
                     {"ca_enable", std::uint64_t{0x71}},
                     {"path", "a b"}},
                    Tone::Bad};
  EXPECT_EQ(eventLine(event, stamp),
            head +
                R"(query_sent","slot":5,"cam":1,"tone":"bad","programs":[101,65535],)"
                R"("list_management":["first","last"],"ca_enable":113,"path":"a b",)"
                R"("what":"query sent: programs 101, 102","why":"list management first, last"})");
}

TEST(EventLine, LeavesOutThePlaceAndTheReasonThatAreNot) {
  EXPECT_EQ(eventLine(remark("hello"), stamp), head + R"(remark","tone":"plain","what":"hello"})");
  EXPECT_EQ(eventLine({EventKind::CardRemoved, {0, -1}, "gone", ""}, stamp),
            head + R"(card_removed","slot":0,"tone":"plain","what":"gone"})");
}

TEST(EventLine, IsOneLineOfUtf8WhateverIsInATextOfTheStream) {
  EXPECT_EQ(eventLine(remark("a\nb\"\\\x01 \xC3\xA9 \xFF."), stamp),
            head +
                "remark\",\"tone\":\"plain\",\"what\":\"a\\nb\\\"\\\\\\u0001 \xC3\xA9 "
                "\xEF\xBF\xBD.\"}");
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
            "\"tone\":\"plain\",\"what\":\"a\"}\n"
            R"({"number":2,"time":"1970-01-01T00:00:01.001Z","chassis_ms":20,"kind":"remark",)"
            "\"tone\":\"plain\",\"what\":\"b\"}\n");
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
  EXPECT_EQ(trouble->kind, EventKind::OutputLost);
  EXPECT_EQ(trouble->what, "the file of events is not whole");
  EXPECT_EQ(trouble->why, "'/dev/full': No space left on device");
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
