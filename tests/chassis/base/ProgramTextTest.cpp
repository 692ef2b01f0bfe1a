#include "base/ProgramText.h"

#include <gtest/gtest.h>

namespace chassis {

TEST(ProgramText, ANumberWithoutANameStandsAlone) {
  EXPECT_EQ(namedNumber(101, ""), "101");
  EXPECT_EQ(programText(101, ""), "program 101");
  EXPECT_EQ(programsText({101, 102}, {"", ""}), "programs 101, 102");
  EXPECT_EQ(nameOf(nullptr, 101), "");
}

TEST(ProgramText, ANameStandsBesideItsNumber) {
  EXPECT_EQ(programText(101, "One"), "program 101 \"One\"");
  EXPECT_EQ(programsText({101}, {"One"}), "program 101 \"One\"");
  EXPECT_EQ(programsText({101, 102, 103}, {"One", "", "Three"}),
            "programs 101 \"One\", 102, 103 \"Three\"");
}

TEST(ProgramText, ANameDoesNotEndItsOwnQuotation) {
  EXPECT_EQ(programText(101, "One\" descrambled"), "program 101 \"One' descrambled\"");
}

}  // namespace chassis
