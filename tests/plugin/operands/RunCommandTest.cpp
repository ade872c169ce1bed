#include "operands/RunCommand.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "CustomScanPlugin.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"

using CustomScanPlugin::RunCommand;

namespace {

constexpr char kResultLabel[] = "RunCommand::getScalarResult()";
constexpr char kSource[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommand";

class RunCommandTest : public ::testing::Test {
 protected:
  void SetUp() override { m_Child = m_Sandbox.installChild("child"); }
  void TearDown() override {
    HostFaults::reset();
    m_Hygiene.verify();
  }

  // Evaluates RunCommand with the given "path" (and "trim" unless null).
  TErrorCode evaluate(const std::string& path, const wchar_t* trim, std::wstring& out) {
    RunCommand op;
    op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, String(path.c_str()));
    if (trim != nullptr) op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, trim);
    PluginSDK::String result(L"stale");
    TErrorCode code = op.getScalarResult(result);
    out = toWideString(result);
    return code;
  }

  // Texts of the records written under label at level (0: any).
  std::vector<std::string> records(const std::string& label, int level = 0) const {
    std::vector<std::string> out;
    for (const auto& r : m_Trace.records()) {
      if (r.label == label && (level == 0 || r.level == level))
        out.push_back(cstest::narrow(r.text));
    }
    return out;
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
  cstest::TraceCapture m_Trace;
  std::string m_Child;
};

TEST_F(RunCommandTest, TrimmingCleansEachLineAndMergesRunsOfLineBreaks) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print \"  a  \\n\\n b\\n\"", nullptr, result), 0);
  EXPECT_EQ(result, L"a\nb");
  EXPECT_EQ(records(kResultLabel), std::vector<std::string>{"Result: a\nb"});
  EXPECT_EQ(records(kResultLabel, Trace::Detail), std::vector<std::string>{"Result: a\nb"});
}

TEST_F(RunCommandTest, TrimFalseReturnsTheOutputUnchanged) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print \"  a  \\n\\n b\\n\"", L"false", result), 0);
  EXPECT_EQ(result, L"  a  \n\n b\n");
  EXPECT_EQ(records(kResultLabel, Trace::Detail),
            std::vector<std::string>{"Result:   a  \n\n b\n"});
}

TEST_F(RunCommandTest, OneLineWithoutALineBreakIsReturnedWithoutAResultRecord) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print \"  solo \"", nullptr, result), 0);
  EXPECT_EQ(result, L"solo");
  EXPECT_TRUE(records(kResultLabel).empty());
}

TEST_F(RunCommandTest, EachFurtherLineWritesTheResultSoFar) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print a\\n\\tb\\nc\\n", nullptr, result), 0);
  EXPECT_EQ(result, L"a\nb\nc");
  EXPECT_EQ(records(kResultLabel), (std::vector<std::string>{"Result: a\nb", "Result: a\nb\nc"}));
  for (const auto& r : m_Trace.records()) {
    if (r.label == kResultLabel) {
      EXPECT_EQ(r.file, kSource);
    }
  }
}

// Left to the implementer: the first strtok yields null for empty output, and
// a null narrow text makes an empty PluginSDK::String.
TEST_F(RunCommandTest, EmptyOutputGivesAnEmptyResultAndSucceeds) {
  std::wstring result = L"x";
  EXPECT_EQ(evaluate("child", nullptr, result), 0);
  EXPECT_EQ(result, L"");
  EXPECT_TRUE(records(kResultLabel).empty());
  PluginSDK::String fromNull(L"before");
  fromNull = static_cast<const char*>(nullptr);
  EXPECT_TRUE(fromNull.empty());
  fromNull.trim();
  EXPECT_TRUE(fromNull.empty());
}

TEST_F(RunCommandTest, EmptyOutputWithTrimFalseGivesAnEmptyResult) {
  std::wstring result = L"x";
  EXPECT_EQ(evaluate("child", L"false", result), 0);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(records(kResultLabel), std::vector<std::string>{"Result: "});
}

TEST_F(RunCommandTest, OnlyLineBreaksGiveAnEmptyResult) {
  std::wstring result = L"x";
  EXPECT_EQ(evaluate("child print \\n\\n\\n", nullptr, result), 0);
  EXPECT_EQ(result, L"");
}

TEST_F(RunCommandTest, TrimValuesOtherThanExactlyFalseStillTrim) {
  for (const wchar_t* trim : {L"FALSE", L"False", L"false ", L"", L"true", L"no"}) {
    std::wstring result;
    EXPECT_EQ(evaluate("child print \" x \\n y \"", trim, result), 0);
    EXPECT_EQ(result, L"x\ny") << cstest::narrow(trim);
  }
}

TEST_F(RunCommandTest, FinalLineOfBlanksStillAddsALineBreak) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print \"a\\n   \\n\"", nullptr, result), 0);
  EXPECT_EQ(result, L"a\n");
}

TEST_F(RunCommandTest, TrimFalseKeepsTheFinalLineBreak) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print a\\n", L"false", result), 0);
  EXPECT_EQ(result, L"a\n");
}

TEST_F(RunCommandTest, CarriageReturnsAreGoneBeforeTheLinesAreCut) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print a\\r\\nb\\r\\n", L"false", result), 0);
  EXPECT_EQ(result, L"a\nb\n");
}

// Left to the implementer: the bytes are widened as the host does everywhere:
// UTF-8 to code points, any other byte b to U+DC00 + b (lossless).
TEST_F(RunCommandTest, OutputIsWidenedAsUtf8AndOtherBytesAreKept) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print caf\\xc3\\xa9\\xff", L"false", result), 0);
  EXPECT_EQ(result, L"caf\x00e9\xdcff");
  EXPECT_EQ(evaluate("child print \\xe2\\x82\\xac\\n\\xc3", nullptr, result), 0);
  EXPECT_EQ(result, L"\x20ac\n\xdcc3");
}

TEST_F(RunCommandTest, NonZeroExitFailsWithAnEmptyResultEvenAfterOutput) {
  std::wstring result;
  const std::string line = m_Child + " print out exit 3";
  EXPECT_EQ(evaluate("child print out exit 3", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            (std::vector<std::string>{"Command " + line + " terminated with error 3",
                                      "Error executing command, error number = -14202"}));
  EXPECT_EQ(records(kResultLabel, Trace::Error),
            std::vector<std::string>{"Error executing command, error number = -14202"});
}

TEST_F(RunCommandTest, MissingPathFailsBeforeAnythingRuns) {
  RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"false");
  PluginSDK::String result(L"stale");
  EXPECT_EQ(op.getScalarResult(result), CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND);
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(m_Trace.texts(),
            (std::vector<std::string>{"Path attribute not specified.",
                                      "Properties not validated properly, error number = -14203"}));
  ASSERT_EQ(m_Trace.records().size(), 2u);
  EXPECT_EQ(m_Trace.records()[0].label, "CustomScanRunCommand::validateProperties()");
  EXPECT_EQ(m_Trace.records()[0].level, Trace::Error);
  EXPECT_EQ(m_Trace.records()[1].label, kResultLabel);
  EXPECT_EQ(m_Trace.records()[1].level, Trace::Error);
}

TEST_F(RunCommandTest, EmptyPathCountsAsSetAndIsRefusedByTheGate) {
  std::wstring result;
  EXPECT_EQ(evaluate("", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(m_Trace.texts(Trace::Error), std::vector<std::string>{"Empty command specified"});
}

TEST_F(RunCommandTest, RefusedCommandReturnsTheGateCodeAndRecordOnly) {
  std::wstring result;
  EXPECT_EQ(evaluate("../canary", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            std::vector<std::string>{
                "the command [../canary] is not located in the custom scanner directory [" +
                m_Sandbox.dir() + "]"});
  EXPECT_FALSE(m_Sandbox.canaryRan());
  EXPECT_EQ(evaluate("nothere", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST);
  EXPECT_EQ(evaluate("\"open", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT);
}

TEST_F(RunCommandTest, ProcessCreationFailureIsPassedOn) {
  HostFaults::instance().failProcessCreationAt = 1;
  std::wstring result;
  EXPECT_EQ(evaluate("child print x", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(
      m_Trace.texts(Trace::Error),
      (std::vector<std::string>{"Unable to create the process for command " + m_Child + " print x",
                                "Error executing command, error number = -14200"}));
}

TEST_F(RunCommandTest, MissingOutputStreamIsPassedOn) {
  HostFaults::instance().noOutputStream = true;
  std::wstring result;
  EXPECT_EQ(evaluate("child", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(
      m_Trace.texts(Trace::Error),
      (std::vector<std::string>{"Unable to get the child output stream for command " + m_Child,
                                "Error executing command, error number = -14201"}));
}

TEST_F(RunCommandTest, ChildDeathBySignalIsAFailedScan) {
  std::wstring result;
  EXPECT_EQ(evaluate("child print x signal 9", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(result, L"");
  EXPECT_EQ(m_Trace.texts(Trace::Error)[0],
            "Command " + m_Child + " print x signal 9 terminated with error 137");
}

TEST_F(RunCommandTest, TraceScopesNameEachStep) {
  cstest::TraceCapture trace(Trace::Scope);
  {
    RunCommand op;
    op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child");
    PluginSDK::String result;
    EXPECT_EQ(op.getScalarResult(result), 0);
  }
  std::vector<std::string> entered;
  for (const auto& s : trace.scopes()) {
    if (s.entering) entered.push_back(s.label);
  }
  EXPECT_EQ(entered,
            (std::vector<std::string>{"RunCommand::RunCommand()", "RunCommand::getScalarResult()",
                                      "CustomScanRunCommand::validateProperties()",
                                      "RunCommand::getCommand(const String&,String&)",
                                      "Command::run(String&, MemoryBuffer&)"}));
}

TEST_F(RunCommandTest, OptionalPropertyIsTheValueOrTheVeryDefault) {
  RunCommand op;
  const wchar_t* fallback = L"fallback";
  cstest::TraceCapture trace(Trace::Scope);
  EXPECT_EQ(op.getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, fallback), fallback);
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"false");
  EXPECT_STREQ(op.getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, fallback), L"false");
  ASSERT_FALSE(trace.scopes().empty());
  EXPECT_EQ(trace.scopes().front().label, "RunCommand::getOptionalProperty()");
}

TEST_F(RunCommandTest, ValidationNeedsOnlyThePath) {
  RunCommand op;
  EXPECT_EQ(op.validateProperties(), CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND);
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"");
  EXPECT_EQ(op.validateProperties(), 0);
}

TEST_F(RunCommandTest, CommandAndLimitCharsAreNotRead) {
  RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print abcdef");
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_LIMIT_CHARS, L"2");
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, L"nothere");
  PluginSDK::String result;
  EXPECT_EQ(op.getScalarResult(result), 0);
  EXPECT_EQ(toWideString(result), L"abcdef");
}

TEST_F(RunCommandTest, EvaluatingTwiceGivesTheSameOutcome) {
  RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print \" x \\n y\"");
  for (int k = 0; k < 2; ++k) {
    PluginSDK::String result(L"stale");
    EXPECT_EQ(op.getScalarResult(result), 0);
    EXPECT_EQ(toWideString(result), L"x\ny");
    op.disposeExpression();
  }
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child exit 1");
  for (int k = 0; k < 2; ++k) {
    PluginSDK::String result(L"stale");
    EXPECT_EQ(op.getScalarResult(result), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
    EXPECT_TRUE(result.empty());
  }
}

TEST_F(RunCommandTest, SeveralMegabytesOfLinesComeBackWhole) {
  std::wstring result;
  EXPECT_EQ(evaluate("child write 4000000", L"false", result), 0);
  EXPECT_EQ(result, std::wstring(4000000, L'x'));
}

TEST_F(RunCommandTest, PluginCreatesItByNameAsAScalarOperand) {
  PluginSDK::CustomScanPlugin plugin;
  PluginSDK::Expression* e = nullptr;
  ASSERT_EQ(plugin.createExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMAND, &e), 0);
  ASSERT_NE(e, nullptr);
  EXPECT_NE(dynamic_cast<RunCommand*>(e), nullptr);
  EXPECT_EQ(e->getType(), 0);
  EXPECT_FALSE(e->isOperator());
  EXPECT_TRUE(e->isReady());
  e->setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print hello");
  PluginSDK::String result;
  EXPECT_EQ(static_cast<PluginSDK::ScalarExpression*>(e)->getScalarResult(result), 0);
  EXPECT_EQ(toWideString(result), L"hello");
  EXPECT_EQ(plugin.destroyExpression(e), 0);
  e = reinterpret_cast<PluginSDK::Expression*>(0x1);
  EXPECT_EQ(plugin.createExpression(L"runcommand", &e), -10008);
  EXPECT_EQ(e, nullptr);
}

}  // namespace
