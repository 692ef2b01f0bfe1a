#include <string.h>

#include "CiCommon.h"
#include "CiIf_capmt/CaPmtRecord.h"

using namespace ciif;

namespace {

constexpr char capmtUnit[] = "../../CiIf_capmt";
constexpr uint8_t recordCount = 32;
constexpr uint8_t lastVersion = 30;
constexpr int waitForever = -1;

// EN 50221 ca_pmt_list_management, and the library's own add.
enum ListManagement : uint8_t { more = 0, first = 1, last = 2, only = 3, add = 4 };

// What a Flag of caPMTSend means.
enum Flag : uint8_t { flagFull = 0, flagAdd = 1, flagQueryFailing = 2, flagQueryAll = 3 };

bool isQuery(uint8_t flag) {
  return flag == flagQueryFailing || flag == flagQueryAll;
}

uint8_t CaPmtVerNum[MAX_BOARD_NUM];

struct Request {
  uint32_t slotNo;
  uint32_t camSlot;
  uint16_t progNumber;  // 0: all
  uint8_t flag;
};

// The card's table; null after a message that tells what is wrong with the request.
const CiDesc *requestedDesc(const Request &request) {
  if (request.slotNo >= MAX_BOARD_NUM) {
    printf("slotNo == %lu ,overflow!! \n", lu(request.slotNo));
    return nullptr;
  }
  if (request.camSlot >= MAX_CAM_NUM) {
    printf("camSlot == %lu ,overflow!! \n", lu(request.camSlot));
    return nullptr;
  }
  if (pCiData[request.slotNo] == nullptr) {
    printf("pcidata[%lu] == NULL!! \n", lu(request.slotNo));
    return nullptr;
  }
  const CiDesc *pdesc = pCiData[request.slotNo]->GetProgDesc(request.slotNo);
  if (pdesc == nullptr) {
    printf("file[%s] line[%d] pdesc == NULL!! \n", capmtUnit, __LINE__);
  }
  return pdesc;
}

bool hasPrograms(const CiDesc *pdesc, uint8_t count, uint32_t camSlot) {
  for (uint8_t i = 0; i < count; ++i) {
    if (onCam(pdesc->prog[i], camSlot)) {
      return true;
    }
  }
  return false;
}

// A query of the failing programs leaves out those that fail on the stream's side.
bool wanted(const Request &request, const CiDescProg &program, uint8_t progStatus) {
  const bool numberFits = request.progNumber == 0 || request.progNumber == program.prog_num;
  return numberFits && onCam(program, request.camSlot) &&
         !(request.flag == flagQueryFailing && progStatus >= DESC_STAT_NO_ECM);
}

uint8_t nextVersion(const Request &request) {
  uint8_t &version = CaPmtVerNum[request.slotNo];
  if (version >= lastVersion) {
    version = 0;
  }
  ++version;
  printf("card %lu cam %lu capmtVerNum=%d\n", lu(request.slotNo + 1), lu(request.camSlot), version);
  return version;
}

uint8_t fillRecords(const Request &request, const CiDesc *pdesc, uint8_t count, uint8_t index,
                    uint8_t version) {
  const CaPmtCmdId streamCmdId = isQuery(request.flag) ? query : okDescrambling;
  uint8_t k = 0;
  for (uint8_t i = 0; i < count; ++i) {
    if (wanted(request, pdesc->prog[i], DescStatus[request.slotNo][i].progStatus)) {
      fillCaPmtRecord(*CaPmtInfo[k], pdesc->prog[i], index, version, streamCmdId);
      ++k;
    }
  }
  return k;
}

ListManagement byPosition(uint8_t i, uint8_t k, uint16_t progNumber) {
  if (k == 1) {
    return progNumber == 0 ? only : add;
  }
  if (i == 0) {
    return first;
  }
  return i == k - 1 ? last : more;
}

void setListManagement(const Request &request, uint8_t k) {
  const bool byFlag = request.flag == flagAdd || isQuery(request.flag);
  for (uint8_t i = 0; i < k; ++i) {
    CaPmtInfo[i]->listMgmt = byFlag ? add : byPosition(i, k, request.progNumber);
    if (isQuery(request.flag)) {
      CaPmtInfo[i]->cmdId = query;
    }
  }
}

int32_t buildAndSend(const Request &request, const CiDesc *pdesc, uint8_t count, uint8_t index) {
  const uint8_t version = nextVersion(request);
  semTake(CaPmtSem, waitForever);
  const uint8_t k = fillRecords(request, pdesc, count, index, version);
  setListManagement(request, k);
  const int32_t sent = ciLibSendCaPmt(request.slotNo, request.camSlot, CaPmtInfo, k);
  semGive(CaPmtSem);
  return sent;
}

}  // namespace

int32_t caPMTSend(uint32_t slotNo, uint32_t camSlot, uint16_t caSysID, uint16_t ProgNumber,
                  uint8_t Flag) {
  const Request request = {slotNo, camSlot, ProgNumber, Flag};
  const CiDesc *pdesc = requestedDesc(request);
  if (pdesc == nullptr) {
    return 0;
  }
  // Before the index is known: a query that fails there has still cleared the reply.
  if (isQuery(Flag)) {
    memset(&caPmtReplyInfo[slotNo * MAX_CAM_NUM + camSlot], 0, sizeof(CaPmtReply));
    printf("send CAPMT_QUERY info \n");
  }
  const uint8_t index = static_cast<uint8_t>(ciLibGetCardIndex(slotNo, camSlot));
  if (index >= camIndexCount) {
    printf("slotNo%lu camNo%lu caPMTSend get ci_index=%d error! \n", lu(slotNo), lu(camSlot),
           index);
    return 0;
  }
  const uint8_t listed = static_cast<uint8_t>(pdesc->descProgCnt);
  const uint8_t count = listed < recordCount ? listed : recordCount;
  if (!hasPrograms(pdesc, count, camSlot)) {
    qm_ci_ca_pmt_clr(index, caSysID);
    return 0;
  }
  return buildAndSend(request, pdesc, count, index);
}
