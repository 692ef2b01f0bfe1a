// The five kinds of alarms as data, and one alarm of a card that a test drives.
#ifndef TESTS_CIIF_STATUS_ALARMKINDS_H
#define TESTS_CIIF_STATUS_ALARMKINDS_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Platform.h"

using SetField = void (*)(CiData &record, uint32_t camSlot, uint32_t value);

struct AlarmKind {
  struct Delays {
    uint32_t raise;
    uint32_t clear;
    int32_t answerPast;  // the result once the fault has lasted longer than the raise delay
  };
  struct Values {  // of the status field, the usual one first
    std::vector<uint32_t> faults;
    std::vector<uint32_t> harmless;
  };
  struct Failures {
    const char *maskedClear;
    const char *raise;
    const char *clear;
  };
  struct Ids {
    uint32_t objects[MAX_CAM_NUM];  // of the faulty object
    std::vector<uint32_t> reasons;  // behind it
  };

  const char *name;
  uint32_t code;
  bool perCard;  // one state for both CAMs; its messages show CAM 0
  Delays delays;
  SetField set;
  Values values;
  Failures failures;
  Ids ids;
};

inline std::ostream &operator<<(std::ostream &out, const AlarmKind &kind) {
  return out << kind.name;
}

extern const std::vector<AlarmKind> alarmKinds;
const AlarmKind &alarmKind(uint32_t code);

// The lines of OSTimeGet and get_inc_of_time.
extern const std::string TIME;
std::string since(uint32_t stamp);

std::string alarmDel(int32_t index);

// One alarm. Its calls are camAlarmCheck's for one card, CAM and kind.
class Alarm {
 public:
  Alarm(const AlarmKind &kind, uint32_t slotNo, uint32_t camSlot)
      : kind_(&kind), slotNo_(slotNo), camSlot_(camSlot) {}

  const AlarmKind &kind() const { return *kind_; }

  // What the next check finds.
  void field(uint32_t value) const { kind_->set(*pCiData[slotNo_], camSlot_, value); }
  void fault() const { field(kind_->values.faults.front()); }
  void noFault() const { field(kind_->values.harmless.front()); }
  void masks(uint32_t camA, uint32_t camB) const;
  void mask() const { masks(1, 1); }
  void unmask() const { masks(0, 0); }

  int32_t check() const { return camAlarmCheck(slotNo_, camSlot_, kind_->code); }

  // Brings the alarm into a state and drops what that recorded: a fault-free check now, an alarm
  // that is raised now, and a cleared one that is masked no more.
  uint32_t markOk() const;
  uint32_t raise(int32_t index = 1) const;
  void clear() const;

  // Lines: what comes before every dispatch, the raise, and a failure's message.
  Calls front() const;
  Calls raising() const;
  std::string message(const char *format) const;

  Calls checked(const Calls &calls) const { return joined({front(), calls}); }

 private:
  const AlarmKind *kind_;
  uint32_t slotNo_;
  uint32_t camSlot_;
};

#endif
