// ts-scramble and ts-join as a person runs them: what becomes of files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "chassis/Folder.h"

namespace {

namespace fs = std::filesystem;

constexpr int badInput = 2;
constexpr int lost = 3;

struct Tool {
  const char *name;
  std::string command;  // without files
};

class Tools : public testing::Test {
 protected:
  Tools() {
    fs::copy_file(CLEAR_SAMPLE, folder.at("in.ts"));
    clear = folder.read("in.ts");
  }

  // The exit status; what was said stands in `out` and `err`.
  int run(const std::string &command) const {
    const std::string all =
        "cd '" + folder.at("") + "' && { " + command + "; } >out 2>err </dev/null";
    const int status = std::system(all.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string errors() const { return folder.read("err"); }

  const std::vector<Tool> tools = {{"ts-scramble", TS_SCRAMBLE}, {"ts-join", TS_JOIN}};
  testing_files::Folder folder;
  std::string clear;
};

TEST_F(Tools, TheInputIsNeverTheOutput) {
  fs::create_hard_link(folder.at("in.ts"), folder.at("hard.ts"));
  fs::create_symlink("in.ts", folder.at("soft.ts"));
  for (const Tool &tool : tools) {
    for (const char *out : {"in.ts", "hard.ts", "soft.ts"}) {
      EXPECT_EQ(run(tool.command + " in.ts " + out), badInput) << tool.name << " " << out;
      EXPECT_NE(errors().find("input"), std::string::npos) << errors();
      EXPECT_EQ(folder.read("in.ts"), clear);
    }
  }
  fs::copy_file(CLEAR_SAMPLE, folder.at("other.ts"));
  EXPECT_EQ(run(std::string(TS_JOIN) + " in.ts other.ts in.ts"), badInput);
  EXPECT_EQ(folder.read("in.ts"), clear);
}

TEST_F(Tools, WhatAUserHasStays) {
  for (const Tool &tool : tools) {
    folder.write("out.ts.partial", "a user's own");
    folder.write("out.ts", "old");
    chmod(folder.at("out.ts").c_str(), 0604);
    fs::create_symlink("out.ts", folder.at("link.ts"));
    ASSERT_EQ(run(tool.command + " in.ts link.ts"), 0) << errors();
    EXPECT_EQ(folder.read("out.ts.partial"), "a user's own");
    EXPECT_TRUE(fs::is_symlink(folder.at("link.ts")));
    EXPECT_GE(folder.read("out.ts").size(), clear.size());
    EXPECT_EQ(fs::status(folder.at("out.ts")).permissions(), fs::perms(0604));
    fs::remove(folder.at("link.ts"));
  }
}

TEST_F(Tools, WhatFailsLeavesTheOutputAsItWas) {
  folder.write("out.ts", "old");
  folder.write("noise.ts", std::string(5000, 'x'));
  const std::size_t entries = folder.entries() + 2;  // what the tool says
  for (const Tool &tool : tools) {
    EXPECT_EQ(run(tool.command + " noise.ts out.ts"), badInput) << tool.name;
    EXPECT_EQ(run(tool.command + " missing.ts out.ts"), badInput) << tool.name;
    EXPECT_EQ(folder.read("out.ts"), "old");
    EXPECT_EQ(folder.entries(), entries);
  }
}

TEST_F(Tools, DevicesAndFifosStayWhatTheyAre) {
  const std::string fifo = folder.fifo("fifo.ts");
  const std::string node = folder.at("null.ts");
  const bool nodes =
      mknod(node.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0 && access(node.c_str(), W_OK) == 0;
  for (const Tool &tool : tools) {
    EXPECT_EQ(run("timeout 60 cat fifo.ts >copy.ts & " + tool.command + " in.ts fifo.ts && wait"),
              0);
    EXPECT_TRUE(fs::is_fifo(fifo)) << tool.name;
    EXPECT_GE(folder.read("copy.ts").size(), clear.size());
    if (nodes) {
      EXPECT_EQ(run(tool.command + " in.ts null.ts"), 0) << errors();
      EXPECT_TRUE(fs::is_character_file(node)) << tool.name;
    }
  }
}

TEST_F(Tools, APipeWithoutANameIsWrittenThrough) {
  for (const Tool &tool : tools) {
    EXPECT_EQ(run(tool.command + " in.ts file.ts"), 0) << errors();
    EXPECT_EQ(run("{ " + tool.command + " in.ts /dev/fd/3 3>&1 >said; } | cat >piped.ts"), 0);
    EXPECT_EQ(errors(), "") << tool.name;
    EXPECT_EQ(folder.read("piped.ts"), folder.read("file.ts")) << tool.name;
    EXPECT_EQ(run("bash -c '" + tool.command + " in.ts >(cat >substituted.ts); wait $!'"), 0);
    EXPECT_EQ(errors(), "") << tool.name;
    EXPECT_EQ(folder.read("substituted.ts"), folder.read("file.ts")) << tool.name;
  }
}

TEST_F(Tools, AnEmptyNameIsNoFile) {
  for (const Tool &tool : tools) {
    EXPECT_EQ(run(tool.command + " in.ts ''"), badInput);
    EXPECT_EQ(errors(),
              std::string(tool.name) +
                  ": '' cannot be written: its name is empty; write the name of a file\n");
  }
}

TEST_F(Tools, BytesThatAreInNoPacketAreTold) {
  folder.write("cut.ts", clear.substr(0, 1000));
  ASSERT_EQ(run(std::string(TS_JOIN) + " in.ts cut.ts out.ts"), 0);
  EXPECT_EQ(folder.read("out.ts").size(), clear.size() + 940);
  EXPECT_EQ(errors(), "ts-join: 60 bytes of 'cut.ts' are in no packet and left out\n");
}

TEST_F(Tools, LossesHaveAStatusOfTheirOwn) {
  for (const Tool &tool : tools) {
    EXPECT_EQ(run(tool.command + " in.ts /dev/full"), lost) << tool.name;
    EXPECT_EQ(errors(),
              std::string(tool.name) + ": '/dev/full' is not whole: No space left on device\n");
    EXPECT_EQ(run(tool.command + " --help >/dev/full"), lost) << tool.name;
    EXPECT_EQ(errors().rfind(std::string(tool.name) + ": standard output is not whole", 0), 0U);
  }
  EXPECT_EQ(run(std::string(TS_SCRAMBLE) + " in.ts out.ts >/dev/full"), lost);
}

TEST_F(Tools, TellTheirUse) {
  for (const Tool &tool : tools) {
    EXPECT_EQ(run(tool.command + " --help"), 0);
    for (const char *part : {"IN", "OUT", "  2    bad input", "  3    an output"}) {
      EXPECT_NE(folder.read("out").find(part), std::string::npos) << tool.name << " " << part;
    }
    EXPECT_EQ(run(tool.command), badInput);
    EXPECT_EQ(run(tool.command + " in.ts"), badInput);
    EXPECT_EQ(run(tool.command + " --unknown in.ts out.ts"), badInput);
    EXPECT_EQ(errors().rfind(std::string(tool.name) + ": ", 0), 0U) << errors();
  }
}

TEST_F(Tools, JoinPassesBrokenPacketsOn) {
  std::string broken = clear;
  const std::size_t at = 1000 * 188;
  broken[at + 1] = static_cast<char>(broken[at + 1] | 0x80);
  broken[at + 3] = static_cast<char>(broken[at + 3] ^ 0x05);
  folder.write("broken.ts", broken);
  ASSERT_EQ(run(std::string(TS_JOIN) + " in.ts broken.ts out.ts"), 0) << errors();
  const std::string joined = folder.read("out.ts");
  ASSERT_EQ(joined.size(), 2 * clear.size());
  EXPECT_EQ(joined.substr(clear.size() + at, 188), broken.substr(at, 188));
}

// With time stamps before each packet, or check bytes behind it.
TEST_F(Tools, WritePlainPacketsOfAnySizeOfInput) {
  for (const auto &[before, behind] : {std::pair{4, 0}, std::pair{0, 16}}) {
    std::string larger;
    for (std::size_t at = 0; at < clear.size(); at += 188) {
      larger += std::string(static_cast<std::size_t>(before), static_cast<char>(at)) +
                clear.substr(at, 188) +
                std::string(static_cast<std::size_t>(behind), static_cast<char>(at));
    }
    folder.write("larger.ts", larger);
    ASSERT_EQ(run(std::string(TS_JOIN) + " larger.ts out.ts"), 0) << errors();
    EXPECT_TRUE(folder.read("out.ts") == clear);
    EXPECT_EQ(errors(), "");
    ASSERT_EQ(run(std::string(TS_SCRAMBLE) + " in.ts plain.ts"), 0) << errors();
    ASSERT_EQ(run(std::string(TS_SCRAMBLE) + " larger.ts out.ts"), 0) << errors();
    EXPECT_TRUE(folder.read("out.ts") == folder.read("plain.ts"));
  }
}

}  // namespace
