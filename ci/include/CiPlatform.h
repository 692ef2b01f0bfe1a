/*
 * The Common Interface supervision module: what it calls.
 *
 * A platform supplies every function and every piece of data declared here, with C linkage, and
 * malloc, memset, memcpy and printf of the standard library. It may replace malloc and printf at
 * link time.
 */
#ifndef CIPLATFORM_H
#define CIPLATFORM_H

#include "CiIf.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Kernel. Under the real kernel its own headers stand in for these five.
 * ---------------------------------------------------------------------------------------------- */

typedef struct semaphore *SEM_ID;

/* Takes a semaphore; timeout in ticks, 0 no wait, -1 forever. Returns 0 when taken. */
int semTake(SEM_ID semId, int timeout);
/* Gives a semaphore. The result is ignored. */
int semGive(SEM_ID semId);
/* Suspends the calling task for a number of ticks. The result is ignored. */
int taskDelay(int ticks);
/* Ticks per second. */
int sysClkRateGet(void);

/* ------------------------------------------------------------------------------------------------
 * CI library: records
 * ---------------------------------------------------------------------------------------------- */

/* One stream of a CA PMT program record. All lists have one entry per CA descriptor. */
typedef struct CaPmtElem {
  uint8_t cmdId;         /* EN 50221 ca_pmt_cmd_id, 0 when the stream has no CA descriptor */
  uint8_t streamType;    /* ISO/IEC 13818-1 stream_type */
  uint16_t pid;          /* elementary_PID */
  uint16_t casid[32];    /* CA_system_ID */
  uint8_t reserved;      /* 0 */
  uint8_t caNum;         /* CA descriptors, 0..32 */
  uint16_t caPid[32];    /* CA_PID */
  uint16_t privLen[32];  /* private data: length; set where it is not 0 */
  uint8_t privOff[32];   /* private data: offset in privData; set where the length is not 0 */
  uint8_t privData[256]; /* */
} CaPmtElem;

/* One program of a CA PMT: an EN 50221 ca_pmt object, decoded. The library encodes the APDU. */
typedef struct CaPmtProg {
  uint8_t mark;          /* 1 */
  uint8_t caLevel;       /* bit 0: program-level CA list applies; bit 1: the streams' lists do */
  uint8_t cmdId;         /* ca_pmt_cmd_id: 1 ok_descrambling, 3 query */
  uint8_t listMgmt;      /* ca_pmt_list_management: 0 more, 1 first, 2 last, 3 only, 4 add */
  uint16_t progNum;      /* program_number */
  uint8_t reserved0;     /* 0 */
  uint8_t version;       /* version_number, 1..30 */
  uint16_t casid[32];    /* CA_system_ID */
  uint8_t reserved1;     /* 0 */
  uint8_t caNum;         /* program-level CA descriptors, 0..32 */
  uint16_t caPid[32];    /* CA_PID */
  uint16_t privLen[32];  /* private data: length */
  uint8_t privOff[32];   /* private data: offset in privData */
  uint8_t privData[256]; /* */
  uint8_t reserved2[3];  /* 0 */
  uint8_t eleNum;        /* streams, 0..32 */
  CaPmtElem ele[32];
} CaPmtProg;

/* One stream of a CA PMT reply (EN 50221 ca_pmt_reply, decoded). */
typedef struct CaPmtReplyElem {
  uint16_t pid;     /* elementary_PID */
  uint8_t reserved; /* not read by the module */
  uint8_t caEnable; /* CA_enable: 0x71 no entitlement, 0x73 technical reasons, others ignored */
} CaPmtReplyElem;

/* One program of a CA PMT reply. */
typedef struct CaPmtReplyProg {
  uint16_t progNum;    /* program_number */
  uint8_t caEnable;    /* CA_enable at program level */
  uint8_t reserved[2]; /* not read by the module */
  uint8_t eleNum;      /* streams */
  CaPmtReplyElem ele[32];
} CaPmtReplyProg;

/* A CAM's answer to the last CA PMT query: cleared by the module before each query, filled by the
   library. Entries beyond the counts must stay zero. */
typedef struct CaPmtReply {
  uint16_t progNum;  /* program entries */
  uint16_t reserved; /* not read by the module */
  CaPmtReplyProg prog[32];
} CaPmtReply;

/* ------------------------------------------------------------------------------------------------
 * CI library: functions (supervision task unless told otherwise)
 * ---------------------------------------------------------------------------------------------- */

/* Starts the library, once a run; start-up task. Negative: failed. */
int32_t ciLibLoad(void);
/* The library's index of a CAM, in the low byte: 0..11 valid, more: no such CAM. */
uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot);
/* Insert status, in the low byte: 0 not inserted, 1 inserted and usable, else inserted. */
uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot);
/* 0 when the CAM has declared the CA system id in its ca_info (EN 50221), else non-zero. */
uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID);
/* Sends count records as CA PMT to a CAM; holds CaPmtSem's protection. Returns programs sent. */
int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **records, uint32_t count);
/* Discards the CA PMT state held for a CAM and CA system. */
void qm_ci_ca_pmt_clr(uint8_t index, uint16_t caSysID);
/* Resets a CAM. The result is ignored. */
int32_t resetCAM(uint32_t slotNo, uint32_t camSlot);
/* Forgets the CA system ids that a CAM has declared. */
void EXT_Clear_Ca_Sys_Id(uint8_t index);

/* ------------------------------------------------------------------------------------------------
 * CI library: data
 * ---------------------------------------------------------------------------------------------- */

extern CaPmtProg *CaPmtInfo[32]; /* record buffers, guarded by CaPmtSem */
extern SEM_ID CaPmtSem;          /* taken around every use of CaPmtInfo */
extern SEM_ID CaPMTFlag[12];     /* by CAM index; given when the CAM needs a fresh CA PMT */
extern CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM]; /* slotNo * 2 + camSlot */

/* ------------------------------------------------------------------------------------------------
 * Chassis firmware
 * ---------------------------------------------------------------------------------------------- */

/* One identifier of the alarm service with its instance. */
typedef struct AlarmPair {
  uint32_t id;
  int32_t instance; /* -1: none */
} AlarmPair;

/* An alarm as the alarm service takes it. */
typedef struct AlarmRecord {
  uint32_t head;       /* 1 */
  uint8_t reserved[3]; /* */
  uint8_t pairCount;   /* 3 or 5 */
  AlarmPair pairs[5];
} AlarmRecord;

/* One CA system of a card's input port. */
typedef struct InPortFormCa {
  uint16_t casid; /* CA_system_ID */
  uint16_t pid;   /* CA PID */
} InPortFormCa;

/* The CA systems and CA PIDs that a card's input port carries. */
typedef struct InPortForm {
  uint8_t caNum; /* valid entries; the module reads 32 at most */
  InPortFormCa ca[32];
} InPortForm;

/* The multiplexer form of a card: the chassis's own. The module reads only these fields, at byte
   offsets: u16 at 110 program count; of program i, 236 bytes apart: u8 at 128 PID count, u16 at
   206 + 4j PID j. */
typedef struct MuxCardForm MuxCardForm;

/* Raises an alarm; the record is the caller's. Returns its index, negative: failed. */
int32_t AlarmAdd(AlarmRecord *record);
/* Clears the alarm with an index; reserved is 0. Negative: failed. */
int32_t AlarmDel(int32_t index, int32_t reserved);
/* The form of an input port of a card, or null. */
InPortForm *GetInPortFormList(uint32_t slotNo, uint32_t port);
/* The multiplexer form of a card, or null. */
MuxCardForm *GetMuxCardFormList(uint32_t slotNo);
/* Exactly 1: all cards are loaded. */
extern volatile uint32_t is_all_card_loaded;
/* A time stamp in milliseconds, modulo 2^32. */
uint32_t OSTimeGet(void);
/* Milliseconds since a stamp, correct across its wrap. */
uint32_t get_inc_of_time(uint32_t stamp);
/* The firmware's debug print, with printf's rules. The result is ignored. */
int bbPrintf(const char *format, ...);

/* ------------------------------------------------------------------------------------------------
 * The layouts are shared with the CI library and the alarm service.
 * ---------------------------------------------------------------------------------------------- */

CI_STATIC_ASSERT(sizeof(CaPmtElem) == 486, "CaPmtElem");
CI_STATIC_ASSERT(offsetof(CaPmtElem, streamType) == 1, "CaPmtElem.streamType");
CI_STATIC_ASSERT(offsetof(CaPmtElem, pid) == 2, "CaPmtElem.pid");
CI_STATIC_ASSERT(offsetof(CaPmtElem, casid) == 4, "CaPmtElem.casid");
CI_STATIC_ASSERT(offsetof(CaPmtElem, caNum) == 69, "CaPmtElem.caNum");
CI_STATIC_ASSERT(offsetof(CaPmtElem, caPid) == 70, "CaPmtElem.caPid");
CI_STATIC_ASSERT(offsetof(CaPmtElem, privLen) == 134, "CaPmtElem.privLen");
CI_STATIC_ASSERT(offsetof(CaPmtElem, privOff) == 198, "CaPmtElem.privOff");
CI_STATIC_ASSERT(offsetof(CaPmtElem, privData) == 230, "CaPmtElem.privData");
CI_STATIC_ASSERT(sizeof(CaPmtProg) == 16046, "CaPmtProg");
CI_STATIC_ASSERT(offsetof(CaPmtProg, caLevel) == 1, "CaPmtProg.caLevel");
CI_STATIC_ASSERT(offsetof(CaPmtProg, cmdId) == 2, "CaPmtProg.cmdId");
CI_STATIC_ASSERT(offsetof(CaPmtProg, listMgmt) == 3, "CaPmtProg.listMgmt");
CI_STATIC_ASSERT(offsetof(CaPmtProg, progNum) == 4, "CaPmtProg.progNum");
CI_STATIC_ASSERT(offsetof(CaPmtProg, version) == 7, "CaPmtProg.version");
CI_STATIC_ASSERT(offsetof(CaPmtProg, casid) == 8, "CaPmtProg.casid");
CI_STATIC_ASSERT(offsetof(CaPmtProg, caNum) == 73, "CaPmtProg.caNum");
CI_STATIC_ASSERT(offsetof(CaPmtProg, caPid) == 74, "CaPmtProg.caPid");
CI_STATIC_ASSERT(offsetof(CaPmtProg, privLen) == 138, "CaPmtProg.privLen");
CI_STATIC_ASSERT(offsetof(CaPmtProg, privOff) == 202, "CaPmtProg.privOff");
CI_STATIC_ASSERT(offsetof(CaPmtProg, privData) == 234, "CaPmtProg.privData");
CI_STATIC_ASSERT(offsetof(CaPmtProg, eleNum) == 493, "CaPmtProg.eleNum");
CI_STATIC_ASSERT(offsetof(CaPmtProg, ele) == 494, "CaPmtProg.ele");
CI_STATIC_ASSERT(sizeof(CaPmtReplyElem) == 4, "CaPmtReplyElem");
CI_STATIC_ASSERT(offsetof(CaPmtReplyElem, caEnable) == 3, "CaPmtReplyElem.caEnable");
CI_STATIC_ASSERT(sizeof(CaPmtReplyProg) == 134, "CaPmtReplyProg");
CI_STATIC_ASSERT(offsetof(CaPmtReplyProg, caEnable) == 2, "CaPmtReplyProg.caEnable");
CI_STATIC_ASSERT(offsetof(CaPmtReplyProg, eleNum) == 5, "CaPmtReplyProg.eleNum");
CI_STATIC_ASSERT(offsetof(CaPmtReplyProg, ele) == 6, "CaPmtReplyProg.ele");
CI_STATIC_ASSERT(sizeof(CaPmtReply) == 4292, "CaPmtReply");
CI_STATIC_ASSERT(offsetof(CaPmtReply, prog) == 4, "CaPmtReply.prog");
CI_STATIC_ASSERT(sizeof(AlarmPair) == 8, "AlarmPair");
CI_STATIC_ASSERT(offsetof(AlarmPair, instance) == 4, "AlarmPair.instance");
CI_STATIC_ASSERT(sizeof(AlarmRecord) == 48, "AlarmRecord");
CI_STATIC_ASSERT(offsetof(AlarmRecord, pairCount) == 7, "AlarmRecord.pairCount");
CI_STATIC_ASSERT(offsetof(AlarmRecord, pairs) == 8, "AlarmRecord.pairs");
CI_STATIC_ASSERT(sizeof(InPortFormCa) == 4, "InPortFormCa");
CI_STATIC_ASSERT(offsetof(InPortFormCa, pid) == 2, "InPortFormCa.pid");
CI_STATIC_ASSERT(sizeof(InPortForm) == 130, "InPortForm");
CI_STATIC_ASSERT(offsetof(InPortForm, ca) == 2, "InPortForm.ca");

#ifdef __cplusplus
}
#endif

#endif
