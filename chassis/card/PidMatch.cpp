#include "card/PidMatch.h"

#include <algorithm>
#include <bitset>

namespace chassis {

namespace {

const PsiProgram *find(const Psi &psi, std::uint16_t number) {
  const auto found =
      std::find_if(psi.programs.begin(), psi.programs.end(),
                   [number](const PsiProgram &program) { return program.number == number; });
  return found == psi.programs.end() ? nullptr : &*found;
}

// Matches the streams of one program.
class Streams {
 public:
  Streams(const PsiProgram &before, const PsiProgram &behind)
      : before_(before), left_(behind.streams) {}

  // The PID behind of a stream before, and never again; nullPid: none.
  std::uint16_t take(const PsiStream &wanted, bool samePid) {
    const auto found = std::find_if(left_.begin(), left_.end(), [&](const PsiStream &stream) {
      return stream.type == wanted.type && (!samePid || stream.pid == wanted.pid);
    });
    if (found == left_.end()) {
      return nullPid;
    }
    const std::uint16_t pid = found->pid;
    left_.erase(found);
    return pid;
  }

  void match(PidMatch &result, std::bitset<pidCount> &known) {
    std::vector<const PsiStream *> others;
    for (const PsiStream &stream : before_.streams) {
      const std::uint16_t pid = take(stream, true);
      pid == nullPid ? others.push_back(&stream) : note(stream, pid, result, known);
    }
    for (const PsiStream *stream : others) {
      const std::uint16_t pid = take(*stream, false);
      if (pid != nullPid) {
        note(*stream, pid, result, known);
      } else {
        result.unmatched.push_back({before_.number, stream->pid, stream->type});
      }
    }
  }

 private:
  static void note(const PsiStream &stream, std::uint16_t behind, PidMatch &result,
                   std::bitset<pidCount> &known) {
    if (!known.test(stream.pid) && result.before[behind] == nullPid) {
      known.set(stream.pid);
      result.before[behind] = stream.pid;
    }
  }

  const PsiProgram &before_;
  std::vector<PsiStream> left_;
};

}  // namespace

bool operator==(const UnmatchedStream &a, const UnmatchedStream &b) {
  return a.program == b.program && a.pid == b.pid && a.type == b.type;
}

Psi withoutUnmatched(const Psi &before, const PidMatch &match) {
  Psi left = before;
  for (PsiProgram &program : left.programs) {
    const auto gone = [&](const PsiStream &stream) {
      const UnmatchedStream wanted{program.number, stream.pid, stream.type};
      return std::find(match.unmatched.begin(), match.unmatched.end(), wanted) !=
             match.unmatched.end();
    };
    program.streams.erase(std::remove_if(program.streams.begin(), program.streams.end(), gone),
                          program.streams.end());
  }
  return left;
}

std::uint16_t numberBehind(const ProgramNumbers &numbers, std::uint16_t program) {
  const auto renumbered = numbers.find(program);
  return renumbered == numbers.end() ? program : renumbered->second;
}

PidMatch matchPids(const Psi &before, const Psi &behind, const ProgramNumbers &numbers) {
  PidMatch result;
  std::bitset<pidCount> known;  // PIDs before that have one behind
  for (const PsiProgram &program : before.programs) {
    const PsiProgram *other = find(behind, numberBehind(numbers, program.number));
    if (other == nullptr) {
      result.missing.insert(program.number);
    } else {
      Streams(program, *other).match(result, known);
    }
  }
  return result;
}

}  // namespace chassis
