#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

constexpr char ciIfVer[] = "V3.0.1.1";

constexpr char starLine[] = " ******************************************** \n";

// A fixed text: it names calls of other modules too, and lists one call twice.
constexpr const char *help[] = {
    "---------------------------------------------------------------------\n",
    "void printCiIfVer()\n",
    "void printCiCard(slotNo)\n",
    "void resetCAM(SlotNo,CamNo)\n",
    "int  caPMTSend(slotNo, camSlot, caSysID, ProgNumber, Flag);\n",
    "int  printDesSta(slotNo)\n",
    "void getCAinfo(slotNo)\n",
    "uint32_t cimax_pid_rate_pre(slotNo, pid_l, pid_h)\n",
    "uint32_t cimax_pid_rate(slotNo, pid_l, pid_h)\n",
    "void CaPmtAdd(slotNo,camSlot,addProgNumber)\n",
    "void GetCAMCC(slotNo)\n",
    "void printCiCard(slotNo)\n",
    "---------------------------------------------------------------------\n",
};

void printStream(uint8_t i, uint16_t e, const CiDescCaList &list) {
  const uint8_t count = static_cast<uint8_t>(list.caNum);
  printf("  Prg%d ele%d CA NUM = %d \n", i, e, count);
  for (uint8_t k = 0; k < count; ++k) {
    printf("   prg%d ele%d ca%d casid=0x%x \n", i, e, k, list.ca[k].casid);
  }
}

void printProgram(uint8_t i, const CiDescProg &program) {
  const uint8_t count = static_cast<uint8_t>(program.caList.caNum);
  printf(" Prg%d CA NUM = %d \n ", i, count);
  for (uint8_t k = 0; k < count; ++k) {
    printf("  prg%d ca%d casid=0x%x \n", i, k, program.caList.ca[k].casid);
  }
  for (uint16_t e = 0; e < program.eleNum; ++e) {
    printStream(i, e, program.ele[e].caList);
  }
}

}  // namespace

void getCAinfo(uint32_t slotNo) {
  const CiDesc *pdesc = guardedDesc(statusUnit, static_cast<uint8_t>(slotNo), __LINE__, __LINE__);
  if (pdesc == nullptr) {
    return;
  }
  printf("%s", starLine);
  printf("Prg NUM = %d \n ", static_cast<int>(pdesc->descProgCnt));
  for (uint8_t i = 0; i < pdesc->descProgCnt; ++i) {
    printProgram(i, pdesc->prog[i]);
  }
  printf("%s", starLine);
}

void printCiCard(uint32_t slotNo) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  if (!ciAssert(pCiData[slot] != nullptr, statusUnit, __LINE__, "pCiData[slotNo]") ||
      !ciAssert(pCiData[slot]->pCardName != nullptr, statusUnit, __LINE__,
                "pCiData[slotNo]->pCardName")) {
    return;
  }
  printf("Card %d CI interface register:%s \n", slot + 1, pCiData[slot]->pCardName);
}

void printCiIfVer(void) {
  printf("CI Interface Version is %s \n", ciIfVer);
}

void ci_Help(void) {
  for (const char *line : help) {
    printf("%s", line);
  }
}
