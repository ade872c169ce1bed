// The plug-in's record macros: a record reaches the host's sink only when the
// sink keeps its level, and a record macro is one statement wherever it stands.

#include "TraceSupport.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

constexpr char kSourceLabel[] = "TraceSupportTest";
constexpr char kLabel[] = "TraceSupportTest::record";

// Counts how often the text of a record was computed.
const char* counted(int& calls) {
  ++calls;
  return "piece";
}

TEST(TraceSupportTest, RecordWithoutASinkIsDroppedWhole) {
  ASSERT_EQ(TraceControl::getSink(), nullptr);
  int calls = 0;
  CS_TRACE(Trace::Error, kLabel) << counted(calls) << Trace::End;
  // Nothing of it is kept for a sink that comes later.
  cstest::TraceCapture capture(Trace::Detail);
  CS_TRACE(Trace::Error, kLabel) << "next" << Trace::End;
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"next"});
}

TEST(TraceSupportTest, RecordAboveTheSinkLevelIsNotDelivered) {
  cstest::TraceCapture capture(Trace::Error);
  int calls = 0;
  CS_TRACE(Trace::Detail, kLabel) << counted(calls) << Trace::End;
  CS_TRACE(Trace::Warning, kLabel) << counted(calls) << Trace::End;
  EXPECT_TRUE(capture.records().empty());
}

TEST(TraceSupportTest, RecordAtOrBelowTheSinkLevelIsDeliveredWhole) {
  cstest::TraceCapture capture(Trace::Detail);
  int calls = 0;
  const int line = __LINE__ + 1;
  CS_TRACE(Trace::Detail, kLabel) << counted(calls) << " and " << 42 << Trace::End;
  CS_TRACE(Trace::Error, kLabel) << counted(calls) << Trace::End;
  EXPECT_EQ(calls, 2);
  ASSERT_EQ(capture.records().size(), 2U);
  const TraceRecord& first = capture.records()[0];
  EXPECT_EQ(first.level, Trace::Detail);
  EXPECT_EQ(first.component, CustomScanPlugin::kTraceComponent);
  EXPECT_EQ(first.label, kLabel);
  EXPECT_EQ(first.file, kSourceLabel);
  EXPECT_EQ(first.line, line);
  EXPECT_EQ(first.text, L"piece and 42");
  EXPECT_EQ(capture.records()[1].level, Trace::Error);
}

// The else below must belong to the outer if: a record macro that left an if
// open would take it, and the wrong branch would run.
int branchTaken(bool condition) {
  int taken = 0;
  // The braces are left out on purpose: this is the form under test.
  if (condition)  // NOLINT(readability-braces-around-statements)
    CS_TRACE(Trace::Error, kLabel) << "condition held" << Trace::End;
  else  // NOLINT(readability-braces-around-statements)
    taken = 2;
  if (condition) taken = 1;
  return taken;
}

TEST(TraceSupportTest, RecordMacroIsOneStatementInAnUnbracedIfElse) {
  {
    cstest::TraceCapture capture(Trace::Detail);
    EXPECT_EQ(branchTaken(true), 1);
    EXPECT_EQ(branchTaken(false), 2);
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"condition held"});
  }
  EXPECT_EQ(branchTaken(true), 1);
  EXPECT_EQ(branchTaken(false), 2);
}

}  // namespace
