#include "card/Tables.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace chassis {

namespace {

constexpr std::size_t tableMax = 32;  // programs, streams of a program, CA entries of a list

std::uint8_t maskOf(const CamMasks &masks, std::uint16_t program) {
  const auto found = masks.find(program);
  return found == masks.end() ? 0 : found->second;
}

// How many of the items there is room for; tells when that is not all.
std::size_t roomFor(std::size_t items, std::size_t room, const std::string &what, LeftOut &out) {
  if (items > room) {
    out.push_back(std::to_string(items - room) + " " + what + ", there is room for " +
                  std::to_string(room));
  }
  return std::min(items, room);
}

class PrivatePool {
 public:
  explicit PrivatePool(CiDescCaList &list) : list_(list) {}

  void put(std::size_t entry, const std::vector<std::uint8_t> &data) {
    if (data.empty() || used_ + data.size() > sizeof list_.privData) {
      return;
    }
    list_.privLen[entry] = static_cast<std::uint8_t>(data.size());
    list_.privOff[entry] = static_cast<std::uint8_t>(used_);
    std::copy(data.begin(), data.end(), list_.privData + used_);
    used_ += data.size();
  }

 private:
  CiDescCaList &list_;
  std::size_t used_ = 0;
};

void fillCaList(const std::vector<PsiCa> &ca, const std::string &where, CiDescCaList &list,
                LeftOut &out) {
  const std::size_t count = roomFor(ca.size(), tableMax, "CA descriptors of " + where, out);
  PrivatePool pool(list);
  for (std::size_t i = 0; i < count; ++i) {
    list.ca[i] = {ca[i].casid, ca[i].pid};
    pool.put(i, ca[i].privateData);
  }
  list.caNum = static_cast<std::uint16_t>(count);
}

// name: with its number, for people.
void fillProgram(const PsiProgram &program, std::uint8_t camMask, const std::string &name,
                 CiDescProg &entry, LeftOut &out) {
  constexpr std::uint16_t programLevel = 1;
  constexpr std::uint16_t streamLevel = 2;
  entry.prog_num = program.number;
  entry.camMask = camMask;
  entry.caLevel = program.ca.empty() ? 0 : programLevel;
  fillCaList(program.ca, name, entry.caList, out);
  const std::size_t count = roomFor(program.streams.size(), tableMax, "streams of " + name, out);
  for (std::size_t i = 0; i < count; ++i) {
    const PsiStream &stream = program.streams[i];
    entry.ele[i].streamType = stream.type;
    entry.ele[i].pid = stream.pid;
    entry.caLevel =
        static_cast<std::uint16_t>(entry.caLevel | (stream.ca.empty() ? 0 : streamLevel));
    fillCaList(stream.ca, "a stream of " + name, entry.ele[i].caList, out);
  }
  entry.eleNum = static_cast<std::uint16_t>(count);
}

// The CA entries of a program, program level first.
std::vector<PsiCa> allCa(const PsiProgram &program) {
  std::vector<PsiCa> all = program.ca;
  for (const PsiStream &stream : program.streams) {
    all.insert(all.end(), stream.ca.begin(), stream.ca.end());
  }
  return all;
}

// The ECM PIDs that the CAMs need.
std::set<std::uint16_t> neededEcmPids(const Psi &psi, const CamMasks &masks) {
  std::set<std::uint16_t> pids;
  for (const PsiProgram &program : psi.programs) {
    for (const PsiCa &ca : allCa(program)) {
      if (maskOf(masks, program.number) != 0) {
        pids.insert(ca.pid);
      }
    }
  }
  return pids;
}

template <typename Item>
void addOnce(std::vector<Item> &items, const Item &item) {
  if (std::find(items.begin(), items.end(), item) == items.end()) {
    items.push_back(item);
  }
}

std::vector<std::uint16_t> muxPids(const PsiProgram &program,
                                   const std::set<std::uint16_t> &neededEcms) {
  std::vector<std::uint16_t> pids;
  for (const PsiStream &stream : program.streams) {
    addOnce(pids, stream.pid);
  }
  if (program.pcrPid != nullPid) {
    addOnce(pids, program.pcrPid);
  }
  for (const PsiCa &ca : allCa(program)) {
    if (neededEcms.count(ca.pid) == 0) {
      addOnce(pids, ca.pid);
    }
  }
  return pids;
}

}  // namespace

LeftOut buildDescTable(const Psi &psi, const CamMasks &masks, CiDesc &table,
                       const ProgramNames &names) {
  LeftOut out;
  std::memset(&table, 0, sizeof table);
  std::size_t assigned = 0;
  for (const PsiProgram &program : psi.programs) {
    const std::uint8_t mask = maskOf(masks, program.number);
    if (mask != 0 && assigned++ < tableMax) {
      const std::string name = programText(program.number, nameOf(names, program.number));
      fillProgram(program, mask, name, table.prog[assigned - 1], out);
    }
  }
  table.descProgCnt =
      static_cast<std::uint32_t>(roomFor(assigned, tableMax, "programs of the CAMs", out));
  return out;
}

LeftOut buildInPortForm(const Psi &psi, InPortForm &form) {
  LeftOut out;
  std::vector<std::pair<std::uint16_t, std::uint16_t>> entries;
  const auto add = [&entries](const PsiCa &ca) { addOnce(entries, {ca.casid, ca.pid}); };
  for (const PsiProgram &program : psi.programs) {
    const std::vector<PsiCa> ca = allCa(program);
    std::for_each(ca.begin(), ca.end(), add);
  }
  std::for_each(psi.cat.begin(), psi.cat.end(), add);

  std::memset(&form, 0, sizeof form);
  form.caNum = static_cast<std::uint8_t>(
      roomFor(entries.size(), std::size(form.ca), "CA PIDs of the input port", out));
  for (std::size_t i = 0; i < form.caNum; ++i) {
    form.ca[i] = {entries[i].first, entries[i].second};
  }
  return out;
}

LeftOut buildMuxForm(const Psi &psi, const CamMasks &masks, MuxCardForm &form,
                     const ProgramNames &names) {
  LeftOut out;
  std::memset(&form, 0, sizeof form);
  const std::set<std::uint16_t> neededEcms = neededEcmPids(psi, masks);
  const std::size_t programs =
      roomFor(psi.programs.size(), muxProgramMax, "programs of the multiplex", out);
  form.programNum = static_cast<std::uint16_t>(programs);
  for (std::size_t i = 0; i < programs; ++i) {
    const PsiProgram &program = psi.programs[i];
    MuxCardProgram &entry = form.programs[i];
    const std::vector<std::uint16_t> pids = muxPids(program, neededEcms);
    const std::string name = programText(program.number, nameOf(names, program.number));
    const std::size_t count = roomFor(pids.size(), muxPidMax, "PIDs of " + name, out);
    entry.pidNum = static_cast<std::uint8_t>(count);
    entry.assigned = maskOf(masks, program.number) != 0 ? 1 : 0;
    entry.number = program.number;
    entry.pmtPid = program.pmtPid;
    entry.pcrPid = program.pcrPid;
    for (std::size_t j = 0; j < count; ++j) {
      entry.pids[j].pid = pids[j];
    }
  }
  return out;
}

}  // namespace chassis
