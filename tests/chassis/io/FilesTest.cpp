#include "io/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/InputError.h"
#include "chassis/Folder.h"

using chassis::Files;
using chassis::identityOf;
using testing_files::Folder;

namespace fs = std::filesystem;

namespace {

class FilesTest : public testing::Test {
 protected:
  FilesTest() {
    folder.write("in", "x");
    fs::create_hard_link(folder.at("in"), folder.at("hard"));
    fs::create_symlink("in", folder.at("soft"));
    fs::create_symlink("soft", folder.at("softer"));
  }

  std::string whyNotWritten(const std::string &user, const std::string &path) {
    return refusal([&] { files.write(user, path); });
  }
  std::string whyNotRead(const std::string &user, const std::string &path) {
    return refusal([&] { files.read(user, path); });
  }

  Folder folder;
  Files files;

 private:
  template <typename Action>
  static std::string refusal(const Action &action) {
    try {
      action();
    } catch (const chassis::InputError &error) {
      return error.what();
    }
    return "";
  }
};

}  // namespace

TEST_F(FilesTest, AFileIsTheSameByWhateverName) {
  files.read("the stream of slot 0", folder.at("in"));
  const std::string other = fs::path(folder.at("in")).parent_path().string() + "/./in";
  for (const std::string &name :
       {folder.at("in"), folder.at("hard"), folder.at("soft"), folder.at("softer"), other}) {
    const std::string why = whyNotWritten("the output of slot 1", name);
    EXPECT_NE(why.find("is the stream of slot 0"), std::string::npos) << name << ": " << why;
    EXPECT_NE(why.find("'" + name + "'"), std::string::npos) << why;
    EXPECT_NE(why.find("'" + folder.at("in") + "'"), std::string::npos) << why;
  }
  EXPECT_EQ(whyNotWritten("the output of slot 1", folder.at("another")), "");
}

TEST_F(FilesTest, WhatIsWrittenIsNeitherReadNorWrittenByOthers) {
  files.write("the output of slot 0", folder.at("soft"));
  EXPECT_NE(whyNotRead("the stream of slot 1", folder.at("hard")), "");
  EXPECT_NE(whyNotWritten("the output of slot 1", folder.at("in")), "");
  EXPECT_EQ(whyNotWritten("the output of slot 0", folder.at("in")), "");
  files.forget("the output of slot 0");
  EXPECT_EQ(whyNotRead("the stream of slot 1", folder.at("hard")), "");
  EXPECT_EQ(whyNotRead("the stream of slot 2", folder.at("in")), "");
}

TEST_F(FilesTest, AFileThatIsNotThereYetIsKnownToo) {
  fs::create_symlink("new", folder.at("dangling"));
  files.write("the output of slot 0", folder.at("dangling"));
  EXPECT_NE(whyNotWritten("the output of slot 1", folder.at("new")), "");
  folder.write("new", "x");
  EXPECT_NE(whyNotRead("the stream of slot 1", folder.at("new")), "");
  EXPECT_EQ(whyNotRead("the stream of slot 1", folder.at("in")), "");
}

TEST_F(FilesTest, FilesOfAFolderThatAreNotThereYetAreNotOne) {
  EXPECT_EQ(whyNotWritten("the output of slot 0", folder.at("b")), "");
  EXPECT_EQ(whyNotWritten("the output of slot 1", folder.at("a")), "");
  EXPECT_EQ(whyNotWritten("the output of slot 2", folder.at("c")), "");
}

TEST_F(FilesTest, AFileThatGotAnotherNameIsKnownStill) {
  files.read("the stream of slot 0", folder.at("in"));
  fs::rename(folder.at("in"), folder.at("renamed"));
  EXPECT_NE(whyNotWritten("the output of slot 0", folder.at("renamed")), "");
}

TEST_F(FilesTest, AnOpenFileTellsWhoseItIs) {
  files.read("the script", folder.at("in"));
  const int file = open(folder.at("hard").c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(files.otherUserOf("the output of slot 0", file), "the script");
  EXPECT_EQ(files.otherUserOf("the script", file), "");
  close(file);
}

TEST_F(FilesTest, AFifoIsNotSharedButADeviceIs) {
  const std::string fifo = folder.fifo("fifo");
  files.write("the output of slot 0", fifo);
  EXPECT_NE(whyNotWritten("the output of slot 1", fifo), "");
  files.write("the output of slot 2", "/dev/null");
  EXPECT_EQ(whyNotWritten("the output of slot 3", "/dev/null"), "");
  EXPECT_EQ(whyNotRead("the stream of slot 3", "/dev/null"), "");
}

TEST_F(FilesTest, WhereAStandardStreamGoesNothingElseIsWritten) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const int before = dup(stream);
    const int file = open(folder.at("hard").c_str(), O_WRONLY | O_CLOEXEC);
    dup2(file, stream);
    files.addStandardStreams();
    dup2(before, stream);
    close(before);
    close(file);
    const std::string name = stream == STDOUT_FILENO ? "is standard output;" : "is standard error;";
    const std::string why = whyNotWritten("the output of slot 0", folder.at("in"));
    EXPECT_NE(why.find(name), std::string::npos) << why;
    EXPECT_NE(whyNotRead("the stream of slot 0", folder.at("in")).find(name), std::string::npos);
  }
}

TEST_F(FilesTest, LongWorkGoesOnUntilSomebodySaysNo) {
  EXPECT_TRUE(files.goesOn({"reading"}));
  files.onLongWork([](const chassis::Progress &progress) { return progress.done < 2; });
  EXPECT_TRUE(files.goesOn({"reading", 1, 3}));
  EXPECT_FALSE(files.goesOn({"reading", 2, 3}));
}
