#include "card/StreamPrograms.h"

#include <algorithm>

#include "base/InputError.h"
#include "card/StreamScan.h"
#include "ts/Psi.h"
#include "ts/TsFile.h"

namespace chassis {
namespace {

using Numbers = std::vector<std::uint16_t>;

bool has(const Numbers &numbers, std::uint16_t number) {
  return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

void addPrograms(const PsiReader &psi, Numbers &numbers) {
  for (const PsiProgram &program : psi.psi().programs) {
    if (!has(numbers, program.number)) {
      numbers.push_back(program.number);
    }
  }
}

Numbers firstPrograms(const std::string &path, const GoOn &goOn) {
  TsFile file(path, goOn);
  PsiReader psi;
  const auto begun = [&psi] { return psi.complete() && !psi.psi().programs.empty(); };
  TsPacket packet;
  while (!begun() && file.goesOn() && file.next(packet)) {
    psi.push(packet);
  }
  file.requireUninterrupted();
  requirePrograms(path, psi);
  Numbers numbers;
  addPrograms(psi, numbers);
  return numbers;
}

Numbers allPrograms(const std::string &path, const GoOn &goOn) {
  TsFile file(path, goOn);
  PsiReader psi;
  Numbers numbers;
  TsPacket packet;
  for (std::uint32_t seen = 0; file.goesOn() && file.next(packet);) {
    psi.push(packet);
    if (psi.changes() != seen) {
      seen = psi.changes();
      addPrograms(psi, numbers);
    }
  }
  file.requireUninterrupted();
  return numbers;
}

}  // namespace

GoOn StreamPrograms::begun() const {
  return begin_ ? begin_() : GoOn();
}

void StreamPrograms::require(const std::string &path) {
  if (files_.count(path) == 0) {
    files_[path] = {firstPrograms(path, begun()), {}, {}};
  }
}

void StreamPrograms::requireBitrate(const std::string &path) {
  require(path);
  std::optional<std::string> &trouble = files_.at(path).bitrateTrouble;
  if (!trouble) {
    trouble = bitrateTrouble(path, begun());
  }
  if (!trouble->empty()) {
    throw InputError(*trouble);
  }
}

bool StreamPrograms::carries(const std::string &path, std::uint16_t program) {
  Known &known = files_.at(path);
  if (has(known.first, program)) {
    return true;
  }
  if (known.all.empty()) {
    known.all = allPrograms(path, begun());
  }
  return has(known.all, program);
}

const std::vector<std::uint16_t> &StreamPrograms::first(const std::string &path) {
  return files_.at(path).first;
}

}  // namespace chassis
