#include "Assert.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <fstream>
#include <string>

namespace {

constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/AssertProbe";

#define CS_TEST_LIMIT 10

// Text that must appear in the death message, matched literally.
class ContainsText : public ::testing::MatcherInterface<const std::string&> {
 public:
  explicit ContainsText(std::string text) : m_Text(std::move(text)) {}
  bool MatchAndExplain(const std::string& output,
                       ::testing::MatchResultListener* listener) const override {
    return output.find(m_Text) != std::string::npos;
  }
  void DescribeTo(std::ostream* os) const override { *os << "contains \"" << m_Text << "\""; }
  void DescribeNegationTo(std::ostream* os) const override {
    *os << "does not contain \"" << m_Text << "\"";
  }

 private:
  std::string m_Text;
};

::testing::Matcher<const std::string&> contains(const std::string& text) {
  return ::testing::MakeMatcher(new ContainsText(text));
}

}  // namespace

namespace CustomScanPlugin {

// Stands in for a plug-in class with an invariant to check.
class AssertProbe {
 public:
  int checkPointer(const wchar_t* i_Table, int i_Count) const;
  int checkLimit(int i_Value) const;
  int checkAtLine(const void* i_Cache) const;
  static int evaluations;
};

int AssertProbe::evaluations = 0;

int AssertProbe::checkPointer(const wchar_t* i_Table, int i_Count) const {
  CS_ASSERT(i_Table != NULL);
  return i_Count;
}

int AssertProbe::checkLimit(int i_Value) const {
  CS_ASSERT((++evaluations, i_Value < CS_TEST_LIMIT));
  return i_Value;
}

int AssertProbe::checkAtLine(const void* i_Cache) const {
  CS_ASSERT_LINE(i_Cache != 0, 108);
  return 1;
}

}  // namespace CustomScanPlugin

namespace {

using CustomScanPlugin::AssertProbe;

// The line of this file on which text first appears, or 0.
int lineOf(const std::string& text) {
  std::ifstream in(CUSTOMSCAN_SOURCE_DIR "/tests/plugin/AssertTest.cpp");
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.find(text) != std::string::npos) return number;
  }
  return 0;
}

TEST(AssertDeathTest, FailedAssertionPrintsExpressionLabelLineAndSignatureThenAborts) {
  const int line = lineOf("CS_ASSERT(i_Table != NULL);");
  ASSERT_GT(line, 0);
  const std::string expected =
      std::string(kSourceLabel) + ":" + std::to_string(line) +
      ": int CustomScanPlugin::AssertProbe::checkPointer(const wchar_t*, int) const: "
      "Assertion `i_Table != __null' failed.";
  AssertProbe probe;
  EXPECT_EXIT(probe.checkPointer(nullptr, 3), ::testing::KilledBySignal(SIGABRT),
              contains(expected));
}

TEST(AssertDeathTest, ExpressionIsPrintedAfterMacroExpansion) {
  AssertProbe probe;
  EXPECT_EXIT(probe.checkLimit(12), ::testing::KilledBySignal(SIGABRT),
              contains("Assertion `(++evaluations, i_Value < 10)' failed."));
}

TEST(AssertDeathTest, AssertLineReportsTheGivenLine) {
  AssertProbe probe;
  EXPECT_EXIT(probe.checkAtLine(nullptr), ::testing::KilledBySignal(SIGABRT),
              contains(std::string(kSourceLabel) +
                       ":108: int CustomScanPlugin::AssertProbe::checkAtLine(const void*) const: "
                       "Assertion `i_Cache != 0' failed."));
}

TEST(AssertTest, PassingAssertionEvaluatesOnceAndContinues) {
  AssertProbe probe;
  wchar_t table[] = L"x";
  EXPECT_EQ(probe.checkPointer(table, 4), 4);
  AssertProbe::evaluations = 0;
  EXPECT_EQ(probe.checkLimit(3), 3);
  EXPECT_EQ(AssertProbe::evaluations, 1);
  int cache = 0;
  EXPECT_EQ(probe.checkAtLine(&cache), 1);
}

}  // namespace
