// Where the program is started from, and what its script names.
#include <sys/stat.h>

#include <filesystem>

#include "Run.h"

namespace e2e {
namespace {

class Place : public Run {
 protected:
  void writeProgram(const std::string &name, const std::string &text) const {
    write(name, "#!/bin/sh\n" + text);
    ASSERT_EQ(command("chmod +x " + name).status, 0);
  }
};

TEST_F(Place, TheDemoPlaysFromAnyDirectory) {
  const std::string options = " --speed max --for 5 --no-table --script ";
  const Result here = run(options + "samples/demo");
  EXPECT_EQ(here.status, 0) << here.err;
  EXPECT_NE(here.out.find("CAM is up"), std::string::npos) << here.out;
  const struct {
    const char *folder;
    const char *script;
  } others[] = {{"samples", "demo"}, {"deep", "../samples/demo"}};
  ASSERT_EQ(command("mkdir deep").status, 0);
  for (const auto &other : others) {
    const Result result = command("cd " + std::string(other.folder) + " && '" + program + "'" +
                                  options + other.script);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, here.out);
  }
}

// With an installer, a builder and a program that only tell what they were asked for.
TEST_F(Place, TheRunCommandKeepsTheDirectoryOfItsCaller) {
  ASSERT_EQ(
      command("mkdir -p tree/tools tree/build bin caller && cp '" + samples + "/../run' tree/run")
          .status,
      0);
  writeProgram("tree/tools/install-packages", "");
  writeProgram("bin/cmake", "");
  writeProgram("tree/build/ci-chassis", "pwd; for word; do echo \"$word\"; done\n");
  const std::string path = "PATH=\"$PWD/bin:$PATH\" && cd caller && ";
  const Result given = command(path + "../tree/run --script 'my script'");
  EXPECT_EQ(given.status, 0) << given.err;
  const Lines lines = linesOf(given.out);
  ASSERT_EQ(lines.size(), 3U) << given.out;
  EXPECT_EQ(std::filesystem::path(lines[0]).filename(), "caller");
  EXPECT_EQ(lines[1], "--script");
  EXPECT_EQ(lines[2], "my script");
  const Lines demo = linesOf(command(path + "../tree/run").out);
  ASSERT_GE(demo.size(), 3U);
  EXPECT_EQ(std::filesystem::path(demo[0]).filename(), "caller");
  EXPECT_NE(demo[2].find("/tree/samples/demo"), std::string::npos) << demo[2];
}

}  // namespace
}  // namespace e2e
