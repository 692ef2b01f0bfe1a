#include "script/Script.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "InputError.h"

namespace chassis {
namespace {

Script read(const std::string &text) {
  std::istringstream lines(text);
  return readScript("x", lines);
}

std::string errorOf(const std::string &text) {
  try {
    read(text);
  } catch (const InputError &error) {
    return error.what();
  }
  return "no error";
}

TEST(Script, CallsKeepLineAndValues) {
  const Script script = read(
      "# a chassis\n"
      "cardInsert 0, \"a.ts\"\n"
      "\n"
      "camInsert(0, 1, 0x0500, 256)\n"
      "wait 0.5\n"
      "note \"# no comment\"\n");
  ASSERT_EQ(script.calls.size(), 4u);
  EXPECT_EQ(script.calls[0].line, 2u);
  EXPECT_EQ(script.calls[0].values.size(), 2u);
  EXPECT_EQ(script.calls[0].values[1].text, "a.ts");
  EXPECT_EQ(script.calls[1].line, 4u);
  ASSERT_EQ(script.calls[1].values.size(), 4u);
  EXPECT_EQ(script.calls[1].values[2].number, 0x0500u);
  EXPECT_EQ(script.calls[1].values[3].number, 256u);
  EXPECT_EQ(script.calls[2].values[0].number, 500u);
  EXPECT_EQ(script.calls[3].values[0].text, "# no comment");
}

TEST(Script, LastLineNeedsNoEnd) {
  EXPECT_EQ(read("wait 1").calls.size(), 1u);
}

TEST(Script, LimitsFit) {
  EXPECT_EQ(errorOf("cardInsert 5, \"f\", 1000000000\ncamInsert 5, 1, 1, 65535\n"
                    "progAssign 5, 65535, 3\npidDrop 5, 0x1FFF, 1\nwait 1000000\nwait .5\n"
                    "pidDrop 5, 0, 0\nprogAssign 5, 1, 0\nwait 0\nwait 3."),
            "no error");
}

TEST(Script, WrongLines) {
  const std::string card = "cardInsert 0, \"f\"\n";
  const struct {
    std::string text;
    const char *error;
  } cases[] = {
      {"camInser 0, 0, 1",
       "x:1: there is no function camInser; did you mean camInsert slot, cam, casid[, casid...]?"},
      {"CAMDEAF 0, 0, 1", "x:1: there is no function CAMDEAF; did you mean camDeaf slot, cam, on?"},
      {"\nwait", "x:2: wait takes 1 argument, not 0; write wait seconds"},
      {"wait 1, 2", "x:1: wait takes 1 argument, not 2; write wait seconds"},
      {"progAssign 0, 101",
       "x:1: progAssign takes 3 arguments, not 2; write progAssign slot, program, camMask"},
      {"cardInsert 0",
       "x:1: cardInsert takes 2 to 3 arguments, not 1; write cardInsert slot, \"file\"[, bitrate]"},
      {"cardInsert 0, \"f\", 1, 2",
       "x:1: cardInsert takes 2 to 3 arguments, not 4; write cardInsert slot, \"file\"[, bitrate]"},
      {"camInsert 0, 0",
       "x:1: camInsert takes 3 or more arguments, not 2; write camInsert slot, cam, casid[, "
       "casid...]"},
      {"cardInsert 6, \"f\"", "x:1: there is no slot 6; write 0 to 5"},
      {"cardInsert -1, \"f\"", "x:1: there is no slot -1; write 0 to 5"},
      {card + "camInsert 0, 2, 1", "x:2: there is no cam 2; write 0 to 1"},
      {"cardInsert 0, f", "x:1: file must be a string, not f; write \"f\""},
      {"cardInsert 0, \"f\", 0", "x:1: bitrate 0 does not fit; write 1 to 1000000000"},
      {"cardInsert 0, \"f\", 1000000001",
       "x:1: bitrate 1000000001 does not fit; write 1 to 1000000000"},
      {"cardInsert zero, \"f\"", "x:1: slot must be a number, not zero; write 0 to 5"},
      {"cardInsert \"0\", \"f\"", "x:1: slot must be a number, not \"0\"; write 0 to 5"},
      {"cardInsert 0x, \"f\"", "x:1: slot must be a number, not 0x; write 0 to 5"},
      {"cardInsert 1.5, \"f\"", "x:1: slot must be a number, not 1.5; write 0 to 5"},
      {card + "camInsert 0, 0, 0x0500, 0x10000",
       "x:2: casid 0x10000 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 99999999999999999999999, 1",
       "x:2: program 99999999999999999999999 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 0, 1", "x:2: program 0 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 1, 4", "x:2: camMask 4 does not fit; write 0 to 3"},
      {card + "pidDrop 0, 0x2000, 1", "x:2: pid 0x2000 does not fit; write 0 to 8191"},
      {card + "cardBusy 0, 2", "x:2: on 2 does not fit; write 0 to 1"},
      {"wait soon", "x:1: seconds must be a number, not soon; write it such as 30 or 0.5"},
      {"wait 1.2.3", "x:1: seconds must be a number, not 1.2.3; write it such as 30 or 0.5"},
      {"wait .", "x:1: seconds must be a number, not .; write it such as 30 or 0.5"},
      {"wait -1", "x:1: seconds must be a number, not -1; write it such as 30 or 0.5"},
      {"wait \"1\"", "x:1: seconds must be a number, not 1; write it such as 30 or 0.5"},
      {"wait 1000001", "x:1: seconds 1000001 does not fit; write 0 to 1000000"},
      {"note hello", "x:1: text must be a string, not hello; write \"hello\""},
      {"progAssign 0, 101, 1",
       "x:1: no card is in slot 0; put one in first: cardInsert 0, \"file\""},
      {card + "cardRemove 0\ncardBusy 0, 1",
       "x:3: no card is in slot 0; put one in first: cardInsert 0, \"file\""},
      {card + "camDeaf 0, 1, 1", "x:2: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {card + "camInsert 0, 1, 1\ncamRemove 0, 1\ncamDeaf 0, 1, 1",
       "x:4: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {card + "camInsert 0, 1, 1\ncardRemove 0\n" + card + "camDeaf 0, 1, 1",
       "x:5: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {"wait 1\nwait (2", "x:2: a parenthesis is not closed; end the call with )"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(errorOf(c.text), c.error) << c.text;
  }
}

TEST(Script, NamesAndHelpAreComplete) {
  std::set<std::string> names;
  for (const Function &function : functions()) {
    EXPECT_TRUE(names.insert(function.name).second) << function.name;
    EXPECT_LE(function.required, function.params.size()) << function.name;
    EXPECT_NE(functionHelp().find("  " + signature(function) + "  "), std::string::npos);
    EXPECT_EQ(&findFunction(function.name), &function);
    EXPECT_EQ(isWait(function), function.name == std::string("wait"));
    EXPECT_EQ(function.differs != nullptr, std::string(function.name).rfind("expect", 0) == 0);
  }
}

TEST(Script, FileThatCannotBeRead) {
  try {
    readScript("/no/such/script");
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(), "/no/such/script: cannot be read: No such file or directory");
  }
  try {
    readScript("/");
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(), "/: cannot be read; write the name of a script");
  }
}

}  // namespace
}  // namespace chassis
