// Runs the program as a person would, in a folder of its own in which `build` leads to the build
// and `samples` has the demo.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace e2e {

struct Result {
  int status = -1;  // exit status; -1: it did not exit by itself
  std::string out;
  std::string err;
  double seconds = 0;
};

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

constexpr const char *headend = "build/samples/headend.ts";
const std::string samples = E2E_SAMPLES;
const std::string program = E2E_PROGRAM;

class Run : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Arguments as a shell takes them.
  Result run(const std::string &arguments, const std::string &input = "") const;
  Result command(const std::string &line) const;  // any, in the folder
  Result runScript(const std::string &script, const std::string &arguments = "") const;
  std::string write(const std::string &name, const std::string &text) const;
  void write(const std::string &name, const Bytes &bytes) const;
  Bytes read(const std::string &name) const;
  std::string path(const std::string &name) const { return folder_ + "/" + name; }

 private:
  std::string folder_;
};

Bytes readFile(const std::string &path);
Lines linesOf(const std::string &text);
Lines linesWith(const std::string &text, const std::string &part);
Lines linesWithout(const std::string &text, const std::string &part);

// The rows of the final table: the cells of each PID.
struct TableRow {
  std::string program, name, pid, cam, state, cause, reply, ecms, before, behind, seen;
};
std::vector<TableRow> tableRows(const std::string &text);

}  // namespace e2e
