#include "io/ReplacedFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/InputError.h"
#include "chassis/Folder.h"

using chassis::ReplacedFile;
using testing_files::Folder;

namespace fs = std::filesystem;

namespace {

void replace(const std::string &path, const std::string &text) {
  ReplacedFile file(path);
  file.write(text.data(), text.size());
  file.finish();
}

std::string refusal(const std::string &path) {
  try {
    replace(path, "new");
  } catch (const chassis::InputError &error) {
    return error.what();
  }
  return "";
}

mode_t modeOf(const std::string &path) {
  struct stat file {};
  EXPECT_EQ(stat(path.c_str(), &file), 0);
  return file.st_mode & 07777;
}

}  // namespace

TEST(ReplacedFile, WhatWasThereStaysUntilItIsWhole) {
  const Folder folder;
  const std::string path = folder.write("out", "old");
  folder.write("out.partial", "a user's own");
  {
    ReplacedFile file(path);
    file.write("new", 3);
    EXPECT_EQ(folder.read("out"), "old");
    file.finish();
  }
  EXPECT_EQ(folder.read("out"), "new");
  EXPECT_EQ(folder.read("out.partial"), "a user's own");
  EXPECT_EQ(folder.entries(), 2U);
}

TEST(ReplacedFile, WhatIsNotFinishedLeavesNothing) {
  const Folder folder;
  const std::string path = folder.write("out", "old");
  {
    ReplacedFile file(path);
    file.write("new", 3);
  }
  EXPECT_EQ(folder.read("out"), "old");
  EXPECT_EQ(folder.entries(), 1U);
}

TEST(ReplacedFile, WhatASignalEndsLeavesNothing) {
  const Folder folder;
  const std::string path = folder.write("out", "old");
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    const pid_t child = fork();
    if (child == 0) {
      const rlimit noCore{0, 0};
      setrlimit(RLIMIT_CORE, &noCore);
      ReplacedFile file(path);
      file.write("new", 3);
      static_cast<void>(raise(signal));
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
    EXPECT_EQ(folder.read("out"), "old");
    EXPECT_EQ(folder.entries(), 1U);
  }
}

TEST(ReplacedFile, ModeBitsStayAndNewFilesFollowTheMask) {
  const Folder folder;
  const std::string path = folder.write("out", "old");
  chmod(path.c_str(), 0640);
  replace(path, "new");
  EXPECT_EQ(modeOf(path), 0640U);
  const mode_t before = umask(027);
  replace(folder.at("fresh"), "new");
  umask(before);
  EXPECT_EQ(modeOf(folder.at("fresh")), 0640U);
  umask(0);
  replace(folder.at("anybodys"), "new");
  umask(before);
  EXPECT_EQ(modeOf(folder.at("anybodys")), 0666U);
}

TEST(ReplacedFile, ASymbolicLinkStaysOne) {
  const Folder folder;
  fs::create_directory(folder.at("far"));
  folder.write("far/out", "old");
  fs::create_symlink("far/out", folder.at("link"));
  fs::create_symlink("far/fresh", folder.at("dangling"));
  replace(folder.at("link"), "new");
  replace(folder.at("dangling"), "newer");
  EXPECT_TRUE(fs::is_symlink(folder.at("link")));
  EXPECT_TRUE(fs::is_symlink(folder.at("dangling")));
  EXPECT_EQ(folder.read("far/out"), "new");
  EXPECT_EQ(folder.read("far/fresh"), "newer");
}

TEST(ReplacedFile, AFifoIsWrittenThrough) {
  const Folder folder;
  const std::string path = folder.fifo("fifo");
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  replace(path, "new");
  char text[8] = {};
  EXPECT_EQ(read(reader, text, sizeof text), 3);
  EXPECT_EQ(std::string(text), "new");
  EXPECT_TRUE(fs::is_fifo(path));
  close(reader);
}

TEST(ReplacedFile, ADeviceStaysADevice) {
  const Folder folder;
  const std::string path = folder.at("null");
  if (mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0 || access(path.c_str(), W_OK) != 0) {
    GTEST_SKIP() << "no device nodes can be made here";
  }
  replace(path, "new");
  EXPECT_TRUE(fs::is_character_file(path));
  EXPECT_EQ(folder.entries(), 1U);
}

TEST(ReplacedFile, LossesAreThrown) {
  EXPECT_THROW(replace("/dev/full", "new"), chassis::OutputLost);
  ReplacedFile file("/dev/full");
  const std::string much(1 << 20, 'x');
  EXPECT_THROW(file.write(much.data(), much.size()), chassis::OutputLost);
}

TEST(ReplacedFile, WhatCannotBeWrittenIsRefused) {
  const Folder folder;
  EXPECT_NE(refusal(folder.at("none/out")).find("no file can be put beside it"), std::string::npos);
  EXPECT_NE(refusal(folder.at(".")).find("it is no file"), std::string::npos);
  if (geteuid() != 0) {
    const std::string path = folder.write("out", "old");
    chmod(path.c_str(), 0444);
    EXPECT_NE(refusal(path).find("Permission denied"), std::string::npos);
  }
}
