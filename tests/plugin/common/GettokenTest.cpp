#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "common/Command.h"

using CustomScanPlugin::gettoken;

namespace {

std::string str(const char* token) { return token == nullptr ? "<null>" : std::string(token); }

TEST(GettokenTest, AdjacentSeparatorsGiveAnEmptyToken) {
  char text[] = "a,,b";
  EXPECT_EQ(str(gettoken(text, ',', 0)), "a");
  EXPECT_EQ(str(gettoken(nullptr, ',', 0)), "");
  EXPECT_EQ(str(gettoken(nullptr, ',', 0)), "b");
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
}

TEST(GettokenTest, IndexSkipsThatManyTokens) {
  char text[] = "a,b,c";
  EXPECT_EQ(str(gettoken(text, ',', 2)), "c");
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
}

TEST(GettokenTest, IndexOnAGoingTokenisationSkipsFromTheCurrentPosition) {
  char text[] = "a,b,c,d";
  EXPECT_EQ(str(gettoken(text, ',', 0)), "a");
  EXPECT_EQ(str(gettoken(nullptr, ',', 1)), "c");
  EXPECT_EQ(str(gettoken(nullptr, ',', 0)), "d");
}

TEST(GettokenTest, IndexPastTheLastTokenGivesNull) {
  char text[] = "a,b";
  EXPECT_EQ(gettoken(text, ',', 5), nullptr);
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
}

TEST(GettokenTest, TrailingSeparatorGivesALastEmptyToken) {
  char text[] = "x\n";
  EXPECT_EQ(str(gettoken(text, '\n', 0)), "x");
  EXPECT_EQ(str(gettoken(nullptr, '\n', 0)), "");
  EXPECT_EQ(gettoken(nullptr, '\n', 0), nullptr);
}

TEST(GettokenTest, EmptyTextGivesOneEmptyToken) {
  char text[] = "";
  EXPECT_EQ(str(gettoken(text, '\n', 0)), "");
  EXPECT_EQ(gettoken(nullptr, '\n', 0), nullptr);
}

TEST(GettokenTest, WorksOnAPrivateCopyAndLeavesTheTextAlone) {
  char text[] = "a,b";
  char* token = gettoken(text, ',', 0);
  EXPECT_STREQ(text, "a,b");
  EXPECT_NE(token, text);
}

TEST(GettokenTest, ZeroSeparatorReturnsTheRestAndEndsTheTokenisation) {
  char text[] = "a,b,c";
  EXPECT_EQ(str(gettoken(text, ',', 0)), "a");
  EXPECT_EQ(str(gettoken(nullptr, 0, 0)), "b,c");
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
}

TEST(GettokenTest, ZeroSeparatorWithAnIndexEndsTheTokenisationAndGivesNull) {
  char text[] = "a,b,c";
  EXPECT_EQ(gettoken(text, 0, 1), nullptr);
  EXPECT_EQ(gettoken(nullptr, ',', 0), nullptr);
}

TEST(GettokenTest, NewTextStartsOverAndDropsTheOldTokenisation) {
  char first[] = "1;2;3";
  char second[] = "x;y";
  EXPECT_EQ(str(gettoken(first, ';', 0)), "1");
  EXPECT_EQ(str(gettoken(second, ';', 0)), "x");
  EXPECT_EQ(str(gettoken(nullptr, ';', 0)), "y");
  EXPECT_EQ(gettoken(nullptr, ';', 0), nullptr);
}

TEST(GettokenTest, ManyTokenisationsInARowReleaseTheirCopies) {
  // Under the address sanitizer a copy that is not released is reported.
  for (int k = 0; k < 1000; ++k) {
    std::string text = "line " + std::to_string(k) + "\nnext";
    EXPECT_EQ(str(gettoken(&text[0], '\n', 1)), "next");
  }
}

}  // namespace
