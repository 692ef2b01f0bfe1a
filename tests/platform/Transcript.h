// The record of everything the module called.
#ifndef TESTS_PLATFORM_TRANSCRIPT_H
#define TESTS_PLATFORM_TRANSCRIPT_H

#include <cstddef>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

// Lines of a transcript, compared with EXPECT_EQ:
//
//   EXPECT_EQ(platform.take(), (Calls{"GetCardOnline(0)", printed("no table \n")}));
//
// Slots, CAMs, indexes, counts, results and ticks are decimal; PIDs, CA system ids, register values
// and alarm ids are hexadecimal ("SetCamFlit(0, 0x100, 1)").
using Calls = std::vector<std::string>;

// The lines of prints: the formatted text, verbatim.
std::string printed(const std::string &text);    // printf
std::string bbPrinted(const std::string &text);  // bbPrintf

// The line of a failed precondition, with its line number ...
std::string asserted(const std::string &unit, int line, const std::string &condition);
// ... or with any, for transcripts that went through anyLine(). anyLine() replaces the
// first "line[<decimal above 0>]" of each line by "line[N]".
std::string asserted(const std::string &unit, const std::string &condition);
Calls anyLine(Calls calls);

// The lines of some functions, and all others. The name of a line ends at its '(' or blank.
Calls only(const Calls &calls, std::initializer_list<const char *> names);
Calls except(const Calls &calls, std::initializer_list<const char *> names);

// Several transcripts, one behind the other.
Calls joined(std::initializer_list<Calls> parts);

class Transcript {
 public:
  void add(std::string line) { lines_.push_back(std::move(line)); }

  // Everything since the last take.
  Calls take();
  // The same, reduced to some functions; the others are dropped.
  Calls take(std::initializer_list<const char *> names) { return only(take(), names); }

  // Calls of a function since the last take.
  size_t count(const char *name) const { return only(lines_, {name}).size(); }

  size_t size() const { return lines_.size(); }
  void shrink(size_t size) { lines_.resize(size); }

 private:
  Calls lines_;
};

#endif
