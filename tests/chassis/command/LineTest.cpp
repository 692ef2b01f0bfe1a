#include "command/Line.h"

#include <gtest/gtest.h>

#include "base/InputError.h"

namespace chassis {
namespace {

std::string errorOf(const std::string &text) {
  try {
    parseLine(text);
  } catch (const InputError &error) {
    return error.what();
  }
  return "no error";
}

TEST(Line, NothingOnEmptyAndCommentLines) {
  for (const char *text : {"", "   \t", "# wait 3", "  # wait 3"}) {
    EXPECT_EQ(parseLine(text).name, "") << text;
  }
}

TEST(Line, BothWaysOfWritingACall) {
  for (const char *text :
       {"f 1, 0x2", "f(1, 0x2)", "  f ( 1 ,0x2 )  # why", "f 1,0x2", "f\t1 ,\t0x2#why"}) {
    const Line line = parseLine(text);
    EXPECT_EQ(line.name, "f") << text;
    ASSERT_EQ(line.args.size(), 2u) << text;
    EXPECT_EQ(line.args[0].text, "1") << text;
    EXPECT_EQ(line.args[1].text, "0x2") << text;
    EXPECT_FALSE(line.args[0].quoted) << text;
  }
}

TEST(Line, CallsWithoutArguments) {
  for (const char *text : {"f", "f()", "f ( ) # why"}) {
    EXPECT_EQ(parseLine(text).name, "f") << text;
    EXPECT_TRUE(parseLine(text).args.empty()) << text;
  }
}

TEST(Line, StringsKeepWhatWouldOtherwiseEndThem) {
  const Line line = parseLine(R"(f "a, b) # c", "say \"hi\" \\", "")");
  ASSERT_EQ(line.args.size(), 3u);
  EXPECT_EQ(line.args[0].text, "a, b) # c");
  EXPECT_EQ(line.args[1].text, R"(say "hi" \)");
  EXPECT_EQ(line.args[2].text, "");
  for (const Word &word : line.args) {
    EXPECT_TRUE(word.quoted);
  }
}

TEST(Line, WhatIsPrintedBackIsTheSameCall) {
  for (const char *text :
       {R"(f "a \"b\" \\", 1)", R"(f "\\\"")", R"(f "", "a, b) # c")", "f 0x10, 2", "f"}) {
    EXPECT_EQ(lineText(parseLine(text)), text);
    EXPECT_EQ(lineText(parseLine(lineText(parseLine(text)))), text);
  }
}

TEST(Line, LeadingName) {
  EXPECT_EQ(leadingName("  TIME_RESET = 5"), "TIME_RESET");
  EXPECT_EQ(leadingName("f(1)"), "f");
  EXPECT_EQ(leadingName("f"), "f");
  for (const char *text : {"", "  ", "1f", "= 5", "# f", "\"f\""}) {
    EXPECT_EQ(leadingName(text), "") << text;
  }
}

TEST(Line, LengthIsBounded) {
  EXPECT_NO_THROW(checkLength(std::string(longestLine, 'a')));
  EXPECT_THROW(checkLength(std::string(longestLine + 1, 'a')), InputError);
}

TEST(Line, OneReturnAtItsEndIsNoneOfIt) {
  EXPECT_EQ(withoutReturn("wait 1\r"), "wait 1");
  EXPECT_EQ(withoutReturn("wait 1\r\r"), "wait 1\r");
  EXPECT_EQ(withoutReturn("\rwait 1"), "\rwait 1");
  EXPECT_EQ(withoutReturn("\r"), "");
  EXPECT_EQ(withoutReturn(""), "");
}

TEST(Line, ControlCharactersAreRefusedUnquoted) {
  EXPECT_NO_THROW(checkCharacters("f\t\"d\u00E9j\u00E0 vu\u00A0\""));
  EXPECT_THROW(checkCharacters("f \"back\rto the front\""), InputError);
  EXPECT_THROW(checkCharacters("f \"\u009B2J\""), InputError);  // a terminal's command
  EXPECT_THROW(checkCharacters("f \u0080"), InputError);
  for (const char *text : {"\033[2J", "f \"a\x07\"", "f\x7f"}) {
    try {
      checkCharacters(text);
      ADD_FAILURE() << text;
    } catch (const InputError &error) {
      EXPECT_STREQ(error.what(), "the line has control characters; write plain text");
    }
  }
}

TEST(Line, Errors) {
  const struct {
    const char *text;
    const char *error;
  } cases[] = {
      {"\"f\" 1", "\"\"f\" 1\" is not a call; write name arg, arg"},
      {"1f 2", "\"1f 2\" is not a call; write name arg, arg"},
      {", 1", "\", 1\" is not a call; write name arg, arg"},
      {"f=1", "unexpected \"=1\" behind f; write f arg, arg"},
      {"f \"abc", "a string is not closed; end it with \""},
      {"f \"abc\\\"", "a string is not closed; end it with \""},
      {"f 1,, 2", "argument 2 is missing; write one value between commas"},
      {"f , 2", "argument 1 is missing; write one value between commas"},
      {"f 1,", "argument 2 is missing; write one value between commas"},
      {"f(1, )", "argument 2 is missing; write one value between commas"},
      {"f(1, 2", "a parenthesis is not closed; end the call with )"},
      {"f(1 2)", "unexpected \"2)\" in the arguments; part them with commas"},
      {"f 1 2", "unexpected \"2\" behind the arguments; part them with commas"},
      {"f \"a\" \"b\"", "unexpected \"\"b\"\" behind the arguments; part them with commas"},
      {"f(1) g", "unexpected \"g\" behind the arguments; part them with commas"},
      {"f() g", "unexpected \"g\" behind the call; write one call a line"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(errorOf(c.text), c.error) << c.text;
  }
}

}  // namespace
}  // namespace chassis
