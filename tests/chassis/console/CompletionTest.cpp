#include "console/Completion.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace chassis {
namespace {

const std::vector<std::string> names{"camAlarm", "camAlarmCheck", "status"};

TEST(Completion, TheOnlyNameIsFinished) {
  const Completion completion = complete("st", names);
  EXPECT_EQ(completion.insert, "atus ");
  EXPECT_TRUE(completion.choices.empty());
}

TEST(Completion, SeveralNamesGetWhatTheyShare) {
  const Completion completion = complete("ca", names);
  EXPECT_EQ(completion.insert, "mAlarm");
  EXPECT_EQ(completion.choices.size(), 2u);
}

TEST(Completion, NothingMoreIsShared) {
  const Completion completion = complete("camAlarm", names);
  EXPECT_EQ(completion.insert, "");
  EXPECT_EQ(completion.choices.size(), 2u);
}

TEST(Completion, AlsoBehindOtherWords) {
  EXPECT_EQ(complete("help sta", names).insert, "tus ");
}

TEST(Completion, NotWhereNoNameStands) {
  for (const char *before : {"", "x", "note \"st", "# st", "camAlarm 5", "status "}) {
    const Completion completion = complete(before, names);
    EXPECT_EQ(completion.insert, "") << before;
    EXPECT_TRUE(completion.choices.empty()) << before;
  }
}

TEST(Completion, AStringBehindAStringIsKnown) {
  EXPECT_EQ(complete("note \"a # \\\" b\", sta", names).insert, "tus ");
  EXPECT_EQ(complete("f \"a\" # sta", names).insert, "");
}

class FileCompletion : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "completion-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern + "/";
    for (const char *name :
         {"one.ts", "only two.ts", "mö.ts", "mü.ts", "a\"b\\c", ".hidden", "x\n", "(1)"}) {
      std::ofstream file(folder_ + name);
    }
    std::filesystem::create_directory(folder_ + "sub folder");
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  Completion completeIn(const std::string &begun) const {
    return complete("cardInsert 0, \"" + folder_ + begun, names);
  }

  std::string folder_;
};

TEST_F(FileCompletion, TheOnlyFileGetsItsQuote) {
  EXPECT_EQ(completeIn("one").insert, ".ts\"");
  EXPECT_EQ(completeIn("only ").insert, "two.ts\"");
  EXPECT_EQ(completeIn(".h").insert, "idden\"");
  EXPECT_EQ(completeIn("(").insert, "1)\"");
}

TEST_F(FileCompletion, AFolderGetsASlash) {
  EXPECT_EQ(completeIn("su").insert, "b folder/");
  EXPECT_EQ(completeIn("sub folder/").insert, "");
}

TEST_F(FileCompletion, SeveralFilesAreShown) {
  const Completion completion = completeIn("o");
  EXPECT_EQ(completion.insert, "n");
  EXPECT_EQ(completion.choices, (std::vector<std::string>{"one.ts", "only two.ts"}));
  EXPECT_EQ(completeIn("").choices,
            (std::vector<std::string>{"(1)", "a\"b\\c", "mö.ts", "mü.ts", "one.ts", "only two.ts",
                                      "sub folder/"}));
}

TEST_F(FileCompletion, AQuoteInANameIsEscaped) {
  EXPECT_EQ(completeIn("a").insert, "\\\"b\\\\c\"");
  EXPECT_EQ(completeIn("a\\\"b").insert, "\\\\c\"");
}

TEST_F(FileCompletion, CharactersStayWhole) {
  EXPECT_EQ(completeIn("m").insert, "");
  EXPECT_EQ(completeIn("m").choices.size(), 2u);
}

TEST_F(FileCompletion, NothingWhereThereIsNoFolder) {
  EXPECT_EQ(completeIn("none/a").insert, "");
  EXPECT_TRUE(completeIn("none/a").choices.empty());
}

TEST(Completion, Columns) {
  EXPECT_EQ(inColumns({"a", "bcd", "e"}, 11), "a    bcd\ne\n");
  EXPECT_EQ(inColumns({"abcdef", "g"}, 3), "abcdef\ng\n");
  EXPECT_EQ(inColumns({}, 80), "");
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(inColumns({"日本", "b", "c"}, 12), "日本  b\nc\n");
}

}  // namespace
}  // namespace chassis
