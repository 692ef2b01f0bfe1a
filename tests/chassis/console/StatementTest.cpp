#include "console/Statement.h"

#include <gtest/gtest.h>

#include "base/InputError.h"

namespace chassis {
namespace {

TEST(Statement, ACall) {
  const Statement statement = parseStatement("camAlarmCheck(0, 1, 0xA01)  # check");
  EXPECT_FALSE(statement.isVariable);
  EXPECT_EQ(statement.line.name, "camAlarmCheck");
  EXPECT_EQ(statementText(statement), "camAlarmCheck 0, 1, 0xA01");
}

TEST(Statement, AnAssignment) {
  const Statement statement = parseStatement("  TIME_RESET=60000 # a minute");
  EXPECT_TRUE(statement.isVariable);
  ASSERT_TRUE(statement.value);
  EXPECT_EQ(statement.value->text, "60000");
  EXPECT_EQ(statementText(statement), "TIME_RESET = 60000");
}

TEST(Statement, Indexes) {
  const Statement statement = parseStatement("caPmtQuery [ 1 ][0x0] = 7");
  ASSERT_EQ(statement.indexes.size(), 2u);
  EXPECT_EQ(statement.indexes[0].text, "1");
  EXPECT_EQ(statement.indexes[1].text, "0x0");
  EXPECT_EQ(statementText(parseStatement("pCiData[0]")), "pCiData[0]");
}

TEST(Statement, NothingToDo) {
  EXPECT_EQ(parseStatement("").line.name, "");
  EXPECT_EQ(parseStatement("   # a remark = 5").line.name, "");
}

class BadStatement : public testing::TestWithParam<const char *> {};

TEST_P(BadStatement, IsRefused) {
  EXPECT_THROW(parseStatement(GetParam()), InputError);
}

INSTANTIATE_TEST_SUITE_P(Lines, BadStatement,
                         testing::Values("TIME_RESET =", "TIME_RESET = # none", "pCiData[",
                                         "pCiData[0", "pCiData[]", "pCiData[0] 5", "= 5", "[0]",
                                         "5 = 5", "f(1", "f 1,", "\"x\" = 1", "$%&"));

}  // namespace
}  // namespace chassis
