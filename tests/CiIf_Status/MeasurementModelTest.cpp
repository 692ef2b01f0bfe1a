// The causes of random failures against a slow model of them, with every reading of an ECM PID.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"
#include "platform/Random.h"

namespace {

constexpr uint32_t SLOT = 3;
constexpr uint32_t CAM = 1;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t OTHER_CAS = 0x0100;
constexpr int STEPS = 60;

// Few values, so that ECM PIDs repeat, and alike in their low bits.
uint16_t ecmPid(Random &random) {
  return static_cast<uint16_t>(0x100 + 0x40 * random.below(4) + random.below(12));
}

void fill(CiDescCaList &list, Random &random) {
  list.caNum = static_cast<uint16_t>(random.of({0u, 1u, 3u, 32u}));
  for (CiDescCa &ca : list.ca) {
    ca = {random.below(5) != 0 ? CAS : OTHER_CAS, ecmPid(random)};
  }
}

void fill(CiDesc &table, Random &random) {
  table.descProgCnt = 4;
  for (uint16_t p = 0; p < 4; ++p) {
    CiDescProg &program = table.prog[p];
    program.prog_num = static_cast<uint16_t>(1 + random.below(3));
    program.caLevel = static_cast<uint16_t>(random.below(4));
    program.camMask = random.of<uint8_t>({1, 2, 3});
    program.eleNum = static_cast<uint16_t>(random.below(4));
    fill(program.caList, random);
    for (uint16_t e = 0; e < 4; ++e) {
      program.ele[e].pid = static_cast<uint16_t>(0x200 + random.below(3));
      fill(program.ele[e].caList, random);
    }
  }
}

void fill(CaPmtReply &reply, Random &random) {
  std::memset(&reply, 0, sizeof reply);
  reply.progNum = static_cast<uint16_t>(random.below(6));
  for (size_t p = 0; p < 6; ++p) {
    CaPmtReplyProg &program = reply.prog[p];
    program.progNum = static_cast<uint16_t>(1 + random.below(3));
    program.caEnable = random.of<uint8_t>({0, 1, 0x70, 0x71, 0x72, 0x73, 0xFF});
    program.eleNum = static_cast<uint8_t>(random.below(4));
    for (size_t e = 0; e < 5; ++e) {
      program.ele[e].pid = static_cast<uint16_t>(0x200 + random.below(3));
      program.ele[e].caEnable = random.of<uint8_t>({0, 1, 1, 1, 0x70, 0x72, 0xFF, 0x71, 0x73});
    }
  }
}

// The card's side: whether an ECM PID exists and its count, until it is reset.
struct Ecms {
  std::vector<uint32_t> exists = std::vector<uint32_t>(0x400);
  std::vector<uint16_t> counts = std::vector<uint16_t>(0x400);
};

std::string hex(uint16_t pid) {
  char text[8];
  snprintf(text, sizeof text, "0x%x", pid);
  return text;
}

class Model {
 public:
  Model(const CaPmtReply &reply, const Ecms &ecms) : reply_(reply), ecms_(ecms) {}

  uint8_t status(const CiDescProg &program, const CiDescElem &stream) {
    const uint8_t refused = refusal(program, stream);
    return refused != 0 ? refused : before(program, stream);
  }
  Calls calls;

 private:
  uint8_t refusal(const CiDescProg &program, const CiDescElem &stream) {
    for (size_t i = 0; i < reply_.progNum; ++i) {
      const CaPmtReplyProg &entry = reply_.prog[i];
      const uint8_t enable =
          entry.progNum == program.prog_num ? caEnable(entry, program, stream) : 0;
      if (enable == 0x71) {
        calls.push_back(bbPrinted("card 4 Program 000" + std::to_string(program.prog_num) +
                                  " NO_ENTITLEMENT\n"));
        return DESC_STAT_NO_ENTITLEMENT;
      }
      if (enable == 0x73) {
        return DESC_STAT_TECHNICAL;
      }
    }
    return 0;
  }

  static uint8_t caEnable(const CaPmtReplyProg &entry, const CiDescProg &program,
                          const CiDescElem &stream) {
    if ((program.caLevel & 2) == 0) {
      return (program.caLevel & 1) != 0 ? entry.caEnable : 0;
    }
    size_t e = 0;
    while (e < entry.eleNum && entry.ele[e].pid != stream.pid) {
      ++e;
    }
    return entry.ele[e].caEnable;
  }

  uint8_t before(const CiDescProg &program, const CiDescElem &stream) {
    if ((program.caLevel & 3) == 0) {
      calls.push_back(printed("getFpgaDescPidSta get ecm pid error! \n"));
      return DESC_STAT_NO_ECM;
    }
    const CiDescCaList &list = (program.caLevel & 2) != 0 ? stream.caList : program.caList;
    uint32_t existence = 0;
    uint32_t errors = 0;
    std::vector<uint16_t> seen;
    for (size_t k = 0; k < list.caNum; ++k) {
      const uint16_t pid = list.ca[k].ecmPid;
      if (list.ca[k].casid == CAS && std::count(seen.begin(), seen.end(), pid) == 0) {
        seen.push_back(pid);
        calls.push_back("GetPreCAMPidExist(3, " + hex(pid) + ")");
        calls.push_back("GetPreCAMCC(3, " + hex(pid) + ")");
        calls.push_back("SetPreCAMCC(3, " + hex(pid) + ", 0)");
        existence += ecms_.exists[pid];
        errors += ecms_.counts[pid];
      }
    }
    if (existence == 0) {
      return DESC_STAT_NO_ECM;
    }
    return errors != 0 ? DESC_STAT_ECM_CC : DESC_STAT_SCRAMBLED;
  }

  const CaPmtReply &reply_;
  const Ecms &ecms_;
};

class MeasurementModel : public testing::TestWithParam<uint32_t> {
 protected:
  MeasurementModel() {
    registerCard(SLOT);
    card.rdDescStat = 5;
    platform.ciLibCaSysIdMatch = 0;
  }

  void setCard(Random &random) {
    fill(card.desc, random);
    // The first entry of the CAM's first list answers, so all programs have one of CAS there.
    for (CiDescProg &program : card.desc.prog) {
      program.caList.ca[0].casid = CAS;
      program.caList.caNum = std::max<uint16_t>(program.caList.caNum, 1);
    }
    fill(caPmtReplyInfo[SLOT * MAX_CAM_NUM + CAM], random);
    for (uint16_t pid = 0x100; pid < 0x200; ++pid) {
      card.GetPreCAMPidExist.when(pid) = ecms.exists[pid] = random.below(4) == 0 ? 1 : 0;
      card.GetPreCAMCC.when(pid) = ecms.counts[pid] =
          static_cast<uint16_t>(random.below(40) == 0 ? 2 : 0);
    }
    getSlotDescPidInfo(SLOT);
    platform.take();
  }

  Card &card = platform.card[SLOT];
  Ecms ecms;
};

TEST_P(MeasurementModel, CausesOfRandomFailuresAreThoseOfTheModel) {
  Random random(GetParam());
  for (int step = 0; step < STEPS; ++step) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()) + " step " + std::to_string(step));
    setCard(random);
    getFpgaDescPidSta(SLOT, CAM);
    const Calls calls = only(
        platform.take(), {"GetPreCAMPidExist", "GetPreCAMCC", "SetPreCAMCC", "printf", "bbPrintf"});
    Model model(caPmtReplyInfo[SLOT * MAX_CAM_NUM + CAM], ecms);
    for (size_t p = 0; p < card.desc.descProgCnt; ++p) {
      const CiDescProg &program = card.desc.prog[p];
      uint8_t worst = DESC_STAT_OK;
      for (size_t e = 0; (program.camMask & 2) != 0 && e < program.eleNum; ++e) {
        const uint8_t status = model.status(program, program.ele[e]);
        worst = std::min(worst, status);
        ASSERT_EQ(DescStatus[SLOT][p].pid[e].status, status) << p << ' ' << e;
      }
      if ((program.camMask & 2) != 0) {
        ASSERT_EQ(DescStatus[SLOT][p].progStatus, worst) << p;
      }
    }
    ASSERT_EQ(calls, model.calls);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, MeasurementModel, testing::Range(1u, 9u));

}  // namespace
