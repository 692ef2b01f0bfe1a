/*
 * The Common Interface supervision module: what it offers.
 *
 * Everything here has C linkage and is usable from C99 and C++17 on. "Supervision task" below is
 * the one firmware task that runs the periodic entry points: their state is plain memory without a
 * lock. The module stores a card's functions and tables by reference: they must stay valid for the
 * whole run.
 */
#ifndef CIIF_H
#define CIIF_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What must hold of a layout; C99, which has no static_assert, declares an array that cannot be. */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L)
#define CI_STATIC_ASSERT(condition, name) static_assert(condition, name)
#else
#define CI_STATIC_ASSERT(condition, name) extern const char ciStaticAssert[(condition) ? 1 : -1]
#endif

#define MAX_BOARD_NUM 6 /* card slots, slotNo 0..5 */
#define MAX_CAM_NUM 2   /* CAM slots of one card, camSlot 0 (CAM A) and 1 (CAM B) */

/* ------------------------------------------------------------------------------------------------
 * Program descriptor table: built and owned by the card driver, read by the module, fetched afresh
 * with the card's GetProgDesc at the start of every operation. At most 32 programs, 32 streams a
 * program, 32 CA entries a list; privOff + privLen at most 256. The module trusts these limits.
 * The order is significant: program p and stream e stand at DescStatus[slotNo][p].pid[e].
 * ---------------------------------------------------------------------------------------------- */

/* One CA system of a program or stream: what an ISO/IEC 13818-1 CA_descriptor tells. */
typedef struct CiDescCa {
  uint16_t casid;  /* CA_system_ID */
  uint16_t ecmPid; /* CA_PID: the PID that carries the ECMs */
} CiDescCa;

/* The CA information of a program or of a stream. */
typedef struct CiDescCaList {
  uint16_t caNum;        /* valid entries, 0..32 */
  uint16_t reserved;     /* not read */
  CiDescCa ca[32];       /* */
  uint8_t privLen[32];   /* bytes of private data of entry k */
  uint8_t privOff[32];   /* where they start in privData */
  uint8_t privData[256]; /* private data of all entries */
} CiDescCaList;

/* One elementary stream of a program. */
typedef struct CiDescElem {
  uint16_t streamType; /* ISO/IEC 13818-1 stream_type */
  uint16_t pid;        /* 0..0x1FFF */
  CiDescCaList caList; /* used when bit 1 of the program's caLevel is set */
} CiDescElem;

/* One program. */
typedef struct CiDescProg {
  uint16_t prog_num;   /* program_number */
  uint16_t caLevel;    /* bit 0: the program's CA list applies; bit 1: the streams' lists apply */
  CiDescCaList caList; /* used when bit 0 of caLevel is set */
  uint8_t reserved;    /* not read */
  uint8_t camMask;     /* bit n: CAM n descrambles the program; 0: no CAM does */
  uint16_t eleNum;     /* valid streams, 0..32 */
  CiDescElem ele[32];
} CiDescProg;

/* The table of one card. */
typedef struct CiDesc {
  uint32_t descProgCnt; /* valid programs, 0..32 */
  CiDescProg prog[32];
} CiDesc;

/* ------------------------------------------------------------------------------------------------
 * Descrambling status
 * ---------------------------------------------------------------------------------------------- */

/* Status of one PID or program. A smaller code is worse; a program has the smallest of its PIDs. */
enum {
  DESC_STAT_SCRAMBLED = 0x10,      /* not descrambled, no cause found outside the CAM */
  DESC_STAT_NO_ENTITLEMENT = 0x20, /* the CAM answers CA_enable 0x71 (EN 50221) */
  DESC_STAT_TECHNICAL = 0x21,      /* the CAM answers CA_enable 0x73 (EN 50221) */
  DESC_STAT_NO_ECM = 0x30,         /* no ECM PID of the matched CA system before the CAM */
  DESC_STAT_ECM_CC = 0x40,         /* ECM PIDs present, with continuity errors before the CAM */
  DESC_STAT_UNKNOWN = 0xEE,        /* not measured, or the hardware could not be read */
  DESC_STAT_OK = 0xFF              /* descrambled */
};

/* Summary of one CAM, in CiData.descStat: OK, ERROR, or PART or ALL with or without SCRAMBLED. */
enum {
  DESC_SUM_OK = 0x00,        /* every PID is descrambled (also: the CAM has no PIDs) */
  DESC_SUM_SCRAMBLED = 0x01, /* bit: at least one PID is DESC_STAT_SCRAMBLED */
  DESC_SUM_PART = 0x10,      /* bit: some PIDs are not descrambled */
  DESC_SUM_ALL = 0x20,       /* bit: no PID is descrambled */
  DESC_SUM_ERROR = 0xFF      /* no record, no table, inconsistent counts; also: not checked */
};

/* Class of a PID, handed to rdDescStat; 0 when never filled. */
enum {
  DESC_PID_TYPE_AV = 1,   /* audio or video */
  DESC_PID_TYPE_OTHER = 4 /* anything else */
};

typedef struct DescPidStat {
  uint16_t pid;   /* 0x1FFF: no stream fills the record */
  uint8_t status; /* DESC_STAT_ */
  uint8_t type;   /* DESC_PID_TYPE_ */
} DescPidStat;

typedef struct DescProgStat {
  uint8_t progStatus; /* DESC_STAT_ */
  DescPidStat pid[32];
} DescProgStat;

/* ------------------------------------------------------------------------------------------------
 * Card record
 * ---------------------------------------------------------------------------------------------- */

/*
 * One card: its driver's functions and the status that the supervision leaves. Functions take the
 * card slot first and are called in the supervision task or in the caller's task of an accessor.
 * Ids 11, 12, 13, 16 and 21 are called unchecked: a card must register them. The others are
 * reached through the accessors below, which report a missing one. The number behind a field is
 * its registration id.
 */
typedef struct CiData {
  const char *pCardName;                      /*  1 name of the CI interface */
  uint32_t (*GetCardOnline)(uint32_t slotNo); /* 11 exactly 1: online */
  uint32_t (*GetCardReady)(uint32_t slotNo);  /* 12 exactly 1: ready; 0: CI path unused */
  CiDesc *(*GetProgDesc)(uint32_t slotNo);    /* 13 the card's table, or null */
  void (*CardFn14)(void);                     /* 14 stored, never called */
  void (*CardFn15)(void);                     /* 15 stored, never called */
  uint32_t (*CamAlarmMask)(uint32_t slotNo, uint32_t camSlot); /* 16 non-zero: hold alarms clear */
  uint32_t (*GetCardBusy)(uint32_t slotNo);                    /* 21 exactly 0: not busy */

  /* Written by camStatusCheck; 0xFF in any of them: not checked in this cycle. */
  uint8_t cimaxStat;                  /* 0 in sync and carrying traffic, 1 fault */
  uint8_t preCamPidStat[MAX_CAM_NUM]; /* 0 a CA PID is present before the CAM, 1 none is */
  uint8_t camInsert[MAX_CAM_NUM];     /* insert status of the CAM; 0 not inserted */
  uint16_t casidStat[MAX_CAM_NUM];    /* 1 the CAM supports a CA system of its programs, 0 none */
  uint8_t descStat[MAX_CAM_NUM];      /* DESC_SUM_ */

  /* CI controller and FPGA, before the CAMs */
  uint32_t (*cimax_sync_ok)(uint32_t slotNo);                                      /* 30 */
  uint32_t (*cimax_pid_rate_pre)(uint32_t slotNo, uint16_t pid_l, uint16_t pid_h); /* 31 */
  uint32_t (*cimax_sys_rate_pre)(uint32_t slotNo);                                 /* 32 */
  uint32_t (*cimax_vld_rate_pre)(uint32_t slotNo);                                 /* 33 */
  void (*SetPreCAMCC)(uint32_t slotNo, uint16_t pid, uint16_t value);              /* 34 */
  uint16_t (*GetPreCAMCC)(uint32_t slotNo, uint16_t pid);                          /* 35 */
  void (*ClrAllPreCAMPidExist)(uint8_t slotNo);                                    /* 36 */
  uint32_t (*GetPreCAMPidExist)(uint32_t slotNo, uint16_t pid);                    /* 37 */
  /* the same behind the CAMs */
  uint32_t (*cimax_pid_rate)(uint32_t slotNo, uint16_t pid_l, uint16_t pid_h); /* 41 */
  uint32_t (*cimax_sys_rate)(uint32_t slotNo);                                 /* 42 */
  uint32_t (*cimax_vld_rate)(uint32_t slotNo);                                 /* 43 */
  void (*SetCAMCC)(uint32_t slotNo, uint16_t pid, uint16_t value);             /* 44 */
  uint16_t (*GetCAMCC)(uint32_t slotNo, uint16_t pid);                         /* 45 */
  void (*ClrAllCAMPidExist)(uint32_t slotNo);                                  /* 46 */
  uint32_t (*GetCAMPidExist)(uint32_t slotNo, uint16_t pid);                   /* 47 */
  /* FPGA */
  int32_t (*PllReg)(uint32_t slotNo, uint32_t value);               /* 51 */
  uint32_t (*PllLock)(uint32_t slotNo);                             /* 52 */
  void (*SetCamFlit)(uint32_t slotNo, uint16_t pid, uint32_t pass); /* 53 */
  void (*wrDesPid)(uint32_t slotNo, uint16_t pid);                  /* 54 */
  uint32_t (*rdDescStat)(uint32_t slotNo, uint32_t pidType);        /* 55 */
} CiData;

/* One registration item: an id and the function (id 1: the name string) that it stores. */
typedef struct DescIfItem {
  uint32_t vid;
  void *ptr;
} DescIfItem;

/* Cards by slot; null until the card registers, then valid for the rest of the run. */
extern CiData *pCiData[MAX_BOARD_NUM];

/* Status by card slot, program index and stream index of the card's table. Bytes are written
   whole, so another task may read them without a lock. */
extern DescProgStat DescStatus[MAX_BOARD_NUM][32];

/* Limits in milliseconds, read at each use, so a console may change them; all compare strictly. */
extern uint32_t TIME_CAPMT;       /* quiet time after a CA PMT or a query: no reset, no query */
extern uint32_t TIME_FIRST_RESET; /* an all-programs fault lasts longer: first reset */
extern uint32_t TIME_RESET;       /* interval of the repeated resets while it goes on */
extern uint32_t TIME_PART_RESET;  /* a some-programs fault lasts longer: its one reset */
extern uint32_t TIME_NO_RESET;    /* fault-free for longer: the reset policy re-arms */

/* Defined for the firmware's other modules; this module neither reads nor writes them. */
extern uint32_t caPmtQuery[MAX_BOARD_NUM][MAX_CAM_NUM];
extern uint8_t ciProFlag;

/* ------------------------------------------------------------------------------------------------
 * Registration and start-up
 * ---------------------------------------------------------------------------------------------- */

/*
 * Registers a card: allocates its record, zero-fills it and stores each item's pointer in the
 * field of its id; an unknown id is reported and skipped, a repeated one overwrites. slotNo 0..5,
 * unchecked. Registering a slot again abandons its old record. Blocks, retrying every 3 s, while
 * there is no memory. Task: the card driver's, before is_all_card_loaded becomes 1.
 */
void descIfRegist(uint32_t slotNo, const DescIfItem *items, uint32_t count);

/* Body of the start-up task: polls once a second until is_all_card_loaded is 1, sets the alarm
   delays and loads the CI library, once a run; a failure is printed and not retried. */
void ciTskInit(void);

/* ------------------------------------------------------------------------------------------------
 * Periodic entry points (supervision task)
 * ---------------------------------------------------------------------------------------------- */

/*
 * One status check cycle of a card (slotNo 0..5) and both its CAMs: insertion, CA system, CA PMT or
 * query, CI controller, CA PIDs, descrambling, reset policy. Leaves its findings in the card's
 * status fields and in DescStatus. Blocks for one second per CAM that gets a CA PMT. A missing
 * record or table is printed and nothing is changed.
 */
void camStatusCheck(uint8_t slotNo);

/*
 * The five alarm checks of a card, in the order CAM absent, CA system mismatch, CA PID absent, CI
 * input, descrambling; call it after camStatusCheck of that card. Returns the result of the last
 * check (descrambling of CAM B): 1 raised or standing past its delay, 0 not, -1 failed.
 */
int32_t camAlarm(uint32_t slotNo);

/* Kinds of camAlarmCheck. */
enum {
  ALARM_KIND_CAM_ABSENT = 0xA01,      /* per CAM: not inserted */
  ALARM_KIND_CA_PID_ABSENT = 0xA02,   /* per CAM: no CA PID reaches the card before the CAM */
  ALARM_KIND_CA_SYS_MISMATCH = 0xA03, /* per CAM: supports no CA system of its programs */
  ALARM_KIND_CI_INPUT = 0xA04,        /* per card: CI controller out of sync or rate too low */
  ALARM_KIND_DESCRAMBLE = 0xA05       /* per CAM: some or all programs not descrambled */
};

/*
 * One alarm check. Low byte of slotNo (0..5) and camSlot (0..1), low 16 bits of kind count.
 * Returns -1 when an argument is out of range, the card is not registered or the alarm service
 * fails; 1 (kinds 0xA01, 0xA03, 0xA05) when the fault has lasted longer than its raise delay;
 * else 0, also for an unknown kind.
 */
int32_t camAlarmCheck(uint32_t slotNo, uint32_t camSlot, uint32_t kind);

/*
 * Programs the pre-CAM PID switch of a card (slotNo 0..5): PIDs of the card's multiplexed programs
 * that its table does not list, and 0x1FFF, are kept away from the CAM; all others pass. Every PID
 * is kept away when the card is not ready. port counts in messages only. Failed preconditions are
 * printed and leave the switch as it was.
 */
void PreCAMFilte(uint32_t slotNo, uint32_t port);

/*
 * Takes over a new or changed program table of a card: clears its DescStatus rows and fills in
 * PIDs and classes for both CAMs. Must follow every change of the table. Low byte of slotNo, 0..5;
 * a larger one is reported and nothing is done.
 */
void getSlotDescPidInfo(uint32_t slotNo);

/* ------------------------------------------------------------------------------------------------
 * Queries and sending
 * ---------------------------------------------------------------------------------------------- */

/*
 * One status for the web pages; any task. query: bits 31..16 program index, bits 12..0 PID (0: the
 * program's own status), bits 15..13 ignored. Returns DESC_STAT_, and DESC_STAT_UNKNOWN whenever
 * there is nothing to report (card absent or not ready, CAM not inserted, no such PID).
 * Nothing else is checked: the caller guarantees slotNo 0..5 and a program index below the
 * table's descProgCnt, and so below 32; anything else reads outside the tables.
 */
uint8_t getDescStatWeb(uint32_t slotNo, uint32_t query);

/*
 * Builds the CA PMT of a CAM from the card's table and hands it to the CI library.
 *   ProgNumber  0: all programs of the CAM; else that program_number only
 *   caSysID     CA system whose CA PMT state is cleared when the CAM has no programs
 *   Flag        0 full CA PMT, 1 add, 2 query of the programs that fail on the CAM's side,
 *               3 query of all (EN 50221 ca_pmt_cmd_id: ok_descrambling, and query for 2 and 3)
 * Only CA descriptors of CA systems that the CAM supports are sent. Returns what the library
 * returns (the number of programs sent), or 0 when nothing was handed over: slotNo not 0..5,
 * camSlot not 0..1, no card, no table, no library index (each printed), or no programs. Waits for
 * CaPmtSem without limit. Supervision task or console.
 */
int32_t caPMTSend(uint32_t slotNo, uint32_t camSlot, uint16_t caSysID, uint16_t ProgNumber,
                  uint8_t Flag);

/* ------------------------------------------------------------------------------------------------
 * Console (all print with printf)
 * ---------------------------------------------------------------------------------------------- */

void ci_Help(void);      /* the list of diagnostic calls, a fixed text */
void printCiIfVer(void); /* the module's version */

/* The name under which a card registered. Low byte of slotNo, which must be 0..5. */
void printCiCard(uint32_t slotNo);

/* The CA system ids of a card's program table. Low byte of slotNo, which must be 0..5. */
void getCAinfo(uint32_t slotNo);

/* Every PID of a card with the raw FPGA reading. Low byte of slotNo, which must be 0..5. The result
   carries no meaning. Selects PIDs in the FPGA: not beside a running camStatusCheck. */
int printDesSta(uint32_t slotNo);

/* Sets the continuity counts of every supervised PID of a card to 0, before and after the CAMs. */
void ClrAllDescCC(uint32_t slotNo);

/* Prints both continuity counts of every supervised PID of a card. */
void CheckDescCC(uint32_t slotNo);

/* Sets the pre-CAM switch by hand: pid 0xFFFF all PIDs, else one; flag 0 keeps away, else passes.
   Low byte of slotNo and flag, low 16 bits of pid count. Returns its printf's result. */
int testprefilter(uint32_t slotNo, uint32_t pid, uint32_t flag);

/* Bit `bit` (low 16 bits, counted from the least significant bit of byte 0) of a set: 1, 0, or
   0xFF when bitfield is null (printed). */
uint32_t test_bit(const uint8_t *bitfield, uint32_t bit);

/* ------------------------------------------------------------------------------------------------
 * Hardware accessors: each calls the card's function of the same name, in the caller's task,
 * without a lock. A missing card or function is printed and gives the failure result, which a
 * caller cannot tell from a genuine one: 0, for PllReg -1. PIDs and values are cut to 16 bits.
 * slotNo 0..5 is checked, but for SetPreCAMCC, SetCAMCC and ClrAllCAMPidExist.
 * ---------------------------------------------------------------------------------------------- */

/* before the CAMs; units of rates are the card driver's */
uint32_t cimax_sync_ok(uint32_t slotNo); /* non-zero: CI controller input in sync */
uint32_t cimax_pid_rate_pre(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h); /* rate of a range */
uint32_t cimax_sys_rate_pre(uint32_t slotNo);                                 /* total rate */
uint32_t cimax_vld_rate_pre(uint32_t slotNo);                    /* rate of valid packets */
void SetPreCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value); /* sets a continuity count */
uint16_t GetPreCAMCC(uint32_t slotNo, uint32_t pid);             /* reads it */
void ClrAllPreCAMPidExist(uint32_t slotNo);                      /* clears the presence flags */
uint32_t GetPreCAMPidExist(uint32_t slotNo, uint32_t pid); /* non-zero: seen since the clear */

/* behind the CAMs */
uint32_t cimax_pid_rate(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h);
uint32_t cimax_sys_rate(uint32_t slotNo);
uint32_t cimax_vld_rate(uint32_t slotNo);
void SetCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value);
uint16_t GetCAMCC(uint32_t slotNo, uint32_t pid);
void ClrAllCAMPidExist(uint32_t slotNo);
uint32_t GetCAMPidExist(uint32_t slotNo, uint32_t pid);

/* FPGA */
int32_t PllReg(uint32_t slotNo, uint32_t value);               /* the PLL register */
uint32_t PllLock(uint32_t slotNo);                             /* 0: clock not locked */
void SetCamFlit(uint32_t slotNo, uint32_t pid, uint32_t pass); /* pre-CAM switch of one PID */
void wrDesPid(uint32_t slotNo, uint32_t pid);                  /* selects the PID to report */
uint32_t rdDescStat(uint32_t slotNo, uint32_t pidType); /* 0 descrambled, 0xFF failed, else not */

/* ------------------------------------------------------------------------------------------------
 * The layouts are shared with card drivers and with other compilers.
 * ---------------------------------------------------------------------------------------------- */

CI_STATIC_ASSERT(sizeof(CiDescCa) == 4, "CiDescCa");
CI_STATIC_ASSERT(offsetof(CiDescCa, ecmPid) == 2, "CiDescCa.ecmPid");
CI_STATIC_ASSERT(sizeof(CiDescCaList) == 452, "CiDescCaList");
CI_STATIC_ASSERT(offsetof(CiDescCaList, ca) == 4, "CiDescCaList.ca");
CI_STATIC_ASSERT(offsetof(CiDescCaList, privLen) == 132, "CiDescCaList.privLen");
CI_STATIC_ASSERT(offsetof(CiDescCaList, privOff) == 164, "CiDescCaList.privOff");
CI_STATIC_ASSERT(offsetof(CiDescCaList, privData) == 196, "CiDescCaList.privData");
CI_STATIC_ASSERT(sizeof(CiDescElem) == 456, "CiDescElem");
CI_STATIC_ASSERT(offsetof(CiDescElem, pid) == 2, "CiDescElem.pid");
CI_STATIC_ASSERT(offsetof(CiDescElem, caList) == 4, "CiDescElem.caList");
CI_STATIC_ASSERT(sizeof(CiDescProg) == 15052, "CiDescProg");
CI_STATIC_ASSERT(offsetof(CiDescProg, caLevel) == 2, "CiDescProg.caLevel");
CI_STATIC_ASSERT(offsetof(CiDescProg, caList) == 4, "CiDescProg.caList");
CI_STATIC_ASSERT(offsetof(CiDescProg, camMask) == 457, "CiDescProg.camMask");
CI_STATIC_ASSERT(offsetof(CiDescProg, eleNum) == 458, "CiDescProg.eleNum");
CI_STATIC_ASSERT(offsetof(CiDescProg, ele) == 460, "CiDescProg.ele");
CI_STATIC_ASSERT(sizeof(CiDesc) == 481668, "CiDesc");
CI_STATIC_ASSERT(offsetof(CiDesc, prog) == 4, "CiDesc.prog");
CI_STATIC_ASSERT(sizeof(DescPidStat) == 4, "DescPidStat");
CI_STATIC_ASSERT(offsetof(DescPidStat, status) == 2, "DescPidStat.status");
CI_STATIC_ASSERT(offsetof(DescPidStat, type) == 3, "DescPidStat.type");
CI_STATIC_ASSERT(sizeof(DescProgStat) == 130, "DescProgStat");
CI_STATIC_ASSERT(offsetof(DescProgStat, pid) == 2, "DescProgStat.pid");
CI_STATIC_ASSERT(sizeof(DescProgStat[MAX_BOARD_NUM][32]) == 24960, "DescStatus");
CI_STATIC_ASSERT(offsetof(DescIfItem, ptr) == sizeof(void *), "DescIfItem.ptr");
CI_STATIC_ASSERT(sizeof(DescIfItem) == 2 * sizeof(void *), "DescIfItem");
/* eight pointers, twelve bytes of status, twenty pointers */
CI_STATIC_ASSERT(offsetof(CiData, GetCardBusy) == 7 * sizeof(void *), "CiData.GetCardBusy");
CI_STATIC_ASSERT(offsetof(CiData, cimaxStat) == 8 * sizeof(void *), "CiData.cimaxStat");
CI_STATIC_ASSERT(offsetof(CiData, preCamPidStat) == 8 * sizeof(void *) + 1, "CiData.preCamPidStat");
CI_STATIC_ASSERT(offsetof(CiData, camInsert) == 8 * sizeof(void *) + 3, "CiData.camInsert");
CI_STATIC_ASSERT(offsetof(CiData, casidStat) == 8 * sizeof(void *) + 6, "CiData.casidStat");
CI_STATIC_ASSERT(offsetof(CiData, descStat) == 8 * sizeof(void *) + 10, "CiData.descStat");
CI_STATIC_ASSERT(offsetof(CiData, cimax_sync_ok) == (8 * sizeof(void *) + 12 + sizeof(void *) - 1) /
                                                        sizeof(void *) * sizeof(void *),
                 "CiData.cimax_sync_ok");
CI_STATIC_ASSERT(offsetof(CiData, rdDescStat) ==
                     offsetof(CiData, cimax_sync_ok) + 19 * sizeof(void *),
                 "CiData.rdDescStat");
CI_STATIC_ASSERT(sizeof(CiData) == offsetof(CiData, cimax_sync_ok) + 20 * sizeof(void *), "CiData");

#ifdef __cplusplus
}
#endif

#endif
