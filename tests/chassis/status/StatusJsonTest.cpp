#include "status/StatusJson.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "chassis/StreamWriter.h"
#include "chassis/io/Datagrams.h"
#include "console/Shell.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

namespace chassis {
namespace {

using namespace testing_streams;

constexpr std::int64_t wallMs = 1795293045678;

// One program of one stream with CA descriptors, clear all the same.
Bytes clearProgram() {
  StreamWriter writer;
  const ProgramMap map{101, 0x100, 0x201, {{0x02, 0x201, {}}}, caDescriptor(0x0500, 0x300), 0};
  for (int i = 0; i < 16; ++i) {
    writer.psi({map}).payload(0x300);
    writer.pes(0x201);
  }
  writer.table(0x11, sdtSection({{101, {'O', 'n', 'e'}, {'S', 'o', 'm', 'e'}}}));
  while (writer.packets() < 1000) {
    writer.null();
  }
  return writer.bytes();
}

class Idle : public Agenda {
 public:
  void runDue(std::uint64_t) override {}
};

class StatusJsonTest : public testing::Test {
 protected:
  void runUntil(std::uint64_t ms) { chassis_.run(ms, agenda_); }

  TemporaryFile file_{clearProgram()};
  Clock clock_;
  EventFan events_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
  StatusWatch watch_{chassis_, events_};
  Idle agenda_;
};

TEST_F(StatusJsonTest, AnEmptyChassisHasNothing) {
  EXPECT_EQ(statusJson(*watch_.snapshot(), {}, wallMs),
            "{\n"
            "  \"time\": \"2026-11-21T20:30:45.678Z\",\n"
            "  \"chassis_ms\": 0,\n"
            "  \"cards\": [],\n"
            "  \"alarms\": [],\n"
            "  \"losses\": []\n"
            "}\n");
}

constexpr const char *afterThirtySeconds = R"({
  "time": "2026-11-21T20:30:45.678Z",
  "chassis_ms": 30000,
  "cards": [
    {
      "slot": 2,
      "bitrate": 1504000,
      "transport_errors": 0,
      "cimaxStat": {
        "value": 0,
        "words": "CI controller in sync and carrying traffic"
      },
      "input": {
        "name": "STREAM",
        "live": false,
        "silent": false,
        "counters": {
          "packets": 30000,
          "skipped_bytes": 0,
          "datagrams": 0,
          "foreign": 0,
          "kernel_lost": 0,
          "network_lost": 0,
          "reordered": 0,
          "duplicates": 0,
          "late": 0,
          "senders": 0,
          "dropped": 0
        }
      },
      "cams": [
        {
          "cam": 0,
          "inserted": false,
          "ca_systems": [],
          "camInsert": {
            "value": 255,
            "words": "not checked"
          },
          "casidStat": {
            "value": 255,
            "words": "not checked"
          },
          "preCamPidStat": {
            "value": 255,
            "words": "not checked"
          },
          "descStat": {
            "value": 255,
            "words": "not checked"
          },
          "programs": 0,
          "clear_programs": 0,
          "resets": 0
        },
        {
          "cam": 1,
          "inserted": true,
          "ca_systems": [
            1280,
            2816
          ],
          "camInsert": {
            "value": 1,
            "words": "CAM usable"
          },
          "casidStat": {
            "value": 1,
            "words": "CA system supported"
          },
          "preCamPidStat": {
            "value": 0,
            "words": "CA PIDs present"
          },
          "descStat": {
            "value": 0,
            "words": "all PIDs descrambled"
          },
          "programs": 1,
          "clear_programs": 0,
          "resets": 0,
          "last_ca_pmt_ms": 5000
        }
      ],
      "programs": [
        {
          "program": 101,
          "name": "One",
          "provider": "Some",
          "cams": [
            1
          ],
          "status": 255,
          "state": "descrambled",
          "pids": [
            {
              "pid": 513,
              "stream_type": 2,
              "stream": "MPEG-2 video",
              "status": 255,
              "state": "descrambled",
              "ecms": [
                {
                  "pid": 768,
                  "present": true,
                  "packets": 480,
                  "scrambled": 0,
                  "continuity_errors": 0,
                  "last_scrambled": false,
                  "last_seen_ms": 29070
                }
              ],
              "before": {
                "packets": 480,
                "scrambled": 0,
                "continuity_errors": 0,
                "last_scrambled": false,
                "last_seen_ms": 29070
              },
              "behind": {
                "packets": 480,
                "scrambled": 0,
                "continuity_errors": 0,
                "last_scrambled": false,
                "last_seen_ms": 29070
              }
            }
          ]
        }
      ]
    }
  ],
  "alarms": [],
  "losses": [
    "'x' is not whole"
  ]
}
)";

TEST_F(StatusJsonTest, HasEveryFindingOfACard) {
  chassis_.rack().cardInsert(2, file_.path(), 1504000);
  chassis_.rack().camInsert(2, 1, {0x0500, 0x0B00});
  chassis_.rack().progAssign(2, 101, 2);
  runUntil(30000);
  watch_.lookAtLast();
  std::string expected = afterThirtySeconds;
  expected.replace(expected.find("STREAM"), 6, file_.path());
  EXPECT_EQ(statusJson(*watch_.snapshot(), {"'x' is not whole"}, wallMs), expected);
}

TEST_F(StatusJsonTest, HasTheAlarmsThatStandWithTheirPlace) {
  AlarmRecord record{};
  record.pairCount = 3;
  record.pairs[0] = {1, 2};
  record.pairs[1] = {0x706, -1};
  record.pairs[2] = {0x703, -1};
  AlarmAdd(&record);
  record.pairs[1].id = 0x705;
  AlarmAdd(&record);
  AlarmDel(0, 0);
  const auto status = nlohmann::ordered_json::parse(statusJson(*watch_.snapshot(), {}, wallMs));
  EXPECT_EQ(status["alarms"].dump(),
            R"([{"alarm":1,"slot":1,"cam":0,"object":"slot 1, CAM 0","fault":"CAM absent",)"
            R"("identifiers":"1 (2), 0x705, 0x703","raised_ms":0}])");
}

TEST_F(StatusJsonTest, AProgramThatNoCamHasHasNoStatus) {
  chassis_.rack().cardInsert(0, file_.path(), 1504000);
  runUntil(5000);
  const auto status = nlohmann::json::parse(statusJson(*watch_.snapshot(), {}, wallMs));
  const auto &program = status["cards"][0]["programs"][0];
  EXPECT_EQ(program["state"], "not supervised");
  EXPECT_EQ(program["cams"].dump(), "[]");
  EXPECT_FALSE(program.contains("status"));
  EXPECT_EQ(program["pids"][0]["state"], "not supervised");
}

TEST_F(StatusJsonTest, AnOutputIntoANetworkTellsHowLateItsDatagramsLeft) {
  const std::string url = "rtp://127.0.0.1:" + std::to_string(testing_datagrams::freePort());
  const testing_datagrams::Receiver receiver(url);
  chassis_.rack().cardInsert(0, file_.path(), 1504000);
  chassis_.rack().output(0, url);
  chassis_.rack().output(1, "/dev/null");
  chassis_.rack().cardInsert(1, file_.path(), 1504000);
  runUntil(200);
  chassis_.rack().endOutputs();
  watch_.lookAtLast();
  const auto status = nlohmann::json::parse(statusJson(*watch_.snapshot(), {}, wallMs));
  const auto &output = status["cards"][0]["output"];
  const std::uint64_t packets = output["packets"];
  EXPECT_GT(packets, 0U);
  EXPECT_GE(output["datagrams"], (packets + 6) / 7);
  EXPECT_LE(output["late"], output["datagrams"]);
  EXPECT_TRUE(output["worst_lateness_ns"].is_number_unsigned());
  EXPECT_FALSE(status["cards"][1]["output"].contains("datagrams")) << "a file has no times to keep";
}

}  // namespace
}  // namespace chassis
