#include "operands/RunCommandEx.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "CustomScanPlugin.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"

using CustomScanPlugin::RunCommandEx;

namespace {

constexpr char kResultLabel[] = "RunCommandEx::getVectorResult()";

class RunCommandExTest : public ::testing::Test {
 protected:
  void SetUp() override { m_Child = m_Sandbox.installChild("child"); }
  void TearDown() override {
    HostFaults::reset();
    m_Hygiene.verify();
  }

  static std::vector<std::wstring> items(const PluginSDK::StringVector& v) {
    std::vector<std::wstring> out;
    for (std::size_t k = 0; k < v.size(); ++k) out.push_back(toWideString(v[k]));
    return out;
  }

  // Evaluates RunCommandEx with the given "path" (and "trim" unless null).
  TErrorCode evaluate(const std::string& path, const wchar_t* trim,
                      std::vector<std::wstring>& out) {
    RunCommandEx op;
    op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, String(path.c_str()));
    if (trim != nullptr) op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, trim);
    PluginSDK::StringVector result;
    result.addString(L"stale");
    TErrorCode code = op.getVectorResult(result);
    out = items(result);
    return code;
  }

  std::vector<std::string> records(const std::string& label) const {
    std::vector<std::string> out;
    for (const auto& r : m_Trace.records()) {
      if (r.label == label) out.push_back(cstest::narrow(r.text));
    }
    return out;
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
  cstest::TraceCapture m_Trace;
  std::string m_Child;
};

using Lines = std::vector<std::wstring>;

TEST_F(RunCommandExTest, TrimmingDropsLaterEmptyLinesAndTrimsTheRest) {
  Lines result;
  EXPECT_EQ(evaluate("child print \"a\\n\\n b \\n\"", nullptr, result), 0);
  EXPECT_EQ(result, (Lines{L"a", L"b"}));
  EXPECT_TRUE(records(kResultLabel).empty());  // no "Result: " record
}

TEST_F(RunCommandExTest, TrimFalseReturnsEveryLineRaw) {
  Lines result;
  EXPECT_EQ(evaluate("child print \"a\\n\\n b \\n\"", L"false", result), 0);
  EXPECT_EQ(result, (Lines{L"a", L"", L" b ", L""}));
}

TEST_F(RunCommandExTest, EmptyFirstLineIsKeptWhenTrimming) {
  Lines result;
  EXPECT_EQ(evaluate("child print \\nx", nullptr, result), 0);
  EXPECT_EQ(result, (Lines{L"", L"x"}));
}

TEST_F(RunCommandExTest, BlankFirstLineIsKeptAsAnEmptyElementWhenTrimming) {
  Lines result;
  EXPECT_EQ(evaluate("child print \"   \\n\\nx\\n   \\n\"", nullptr, result), 0);
  EXPECT_EQ(result,
            (Lines{L"", L"x", L""}));  // a later line of blanks is not empty before trimming
}

TEST_F(RunCommandExTest, EmptyOutputGivesOneEmptyElementInEitherMode) {
  for (const wchar_t* trim : {static_cast<const wchar_t*>(nullptr), L"false", L"true"}) {
    Lines result;
    EXPECT_EQ(evaluate("child", trim, result), 0);
    EXPECT_EQ(result, (Lines{L""}));
  }
}

TEST_F(RunCommandExTest, TrimValuesOtherThanExactlyFalseTrim) {
  for (const wchar_t* trim : {L"no", L"FALSE", L"", L"true"}) {
    Lines result;
    EXPECT_EQ(evaluate("child print \" a \\n\\n b\"", trim, result), 0);
    EXPECT_EQ(result, (Lines{L"a", L"b"})) << cstest::narrow(trim);
  }
}

TEST_F(RunCommandExTest, CarriageReturnsAreGoneBeforeTheLinesAreCut) {
  Lines result;
  EXPECT_EQ(evaluate("child print a\\r\\n\\r\\nb", L"false", result), 0);
  EXPECT_EQ(result, (Lines{L"a", L"", L"b"}));
}

TEST_F(RunCommandExTest, LinesAreWidenedAsUtf8AndOtherBytesAreKept) {
  Lines result;
  EXPECT_EQ(evaluate("child print \\xc3\\xa9\\n\\xfe", L"false", result), 0);
  EXPECT_EQ(result, (Lines{L"\x00e9", L"\xdcfe"}));
}

TEST_F(RunCommandExTest, ManyLinesComeBackInOrder) {
  std::string text;
  Lines expected;
  for (int k = 0; k < 200; ++k) {
    text += " line" + std::to_string(k) + "\\n";
    expected.push_back(L"line" + std::to_wstring(k));
  }
  Lines result;
  EXPECT_EQ(evaluate("child print \"" + text + "\"", nullptr, result), 0);
  EXPECT_EQ(result, expected);
}

TEST_F(RunCommandExTest, SeveralMegabytesOfOutputComeBackWhole) {
  Lines result;
  EXPECT_EQ(evaluate("child write 3000000 print \\nend", nullptr, result), 0);
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(result[0], std::wstring(3000000, L'x'));
  EXPECT_EQ(result[1], L"end");
}

TEST_F(RunCommandExTest, NonZeroExitFailsWithAnEmptyResult) {
  Lines result;
  EXPECT_EQ(evaluate("child print out exit 2", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(
      m_Trace.texts(Trace::Error),
      (std::vector<std::string>{"Command " + m_Child + " print out exit 2 terminated with error 2",
                                "Error executing command, error number = -14202"}));
  EXPECT_EQ(records(kResultLabel),
            std::vector<std::string>{"Error executing command, error number = -14202"});
}

TEST_F(RunCommandExTest, MissingPathFailsBeforeAnythingRuns) {
  RunCommandEx op;
  PluginSDK::StringVector result;
  result.addString(L"stale");
  EXPECT_EQ(op.getVectorResult(result), CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND);
  EXPECT_EQ(result.size(), 0u);
  EXPECT_EQ(m_Trace.texts(),
            (std::vector<std::string>{"Path attribute not specified.",
                                      "Properties not validated properly, error number = -14203"}));
  ASSERT_EQ(m_Trace.records().size(), 2u);
  EXPECT_EQ(m_Trace.records()[0].label, "RunCommandEx::validateProperties()");
  EXPECT_EQ(m_Trace.records()[0].level, Trace::Error);
  EXPECT_EQ(m_Trace.records()[1].label, kResultLabel);
  EXPECT_EQ(m_Trace.records()[1].level, Trace::Error);
}

TEST_F(RunCommandExTest, RefusedCommandReturnsTheGateCodeAndRecordOnly) {
  Lines result;
  EXPECT_EQ(evaluate("sub/../../canary", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            std::vector<std::string>{
                "the command [sub/../../canary] is not located in the custom scanner directory [" +
                m_Sandbox.dir() + "]"});
  EXPECT_FALSE(m_Sandbox.canaryRan());
  EXPECT_EQ(evaluate("", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT);
  EXPECT_EQ(evaluate(".", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST);
}

TEST_F(RunCommandExTest, ProcessCreationFailureIsPassedOn) {
  HostFaults::instance().failProcessCreationAt = 1;
  Lines result;
  EXPECT_EQ(evaluate("child", nullptr, result), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            (std::vector<std::string>{"Unable to create the process for command " + m_Child,
                                      "Error executing command, error number = -14200"}));
}

TEST_F(RunCommandExTest, MissingOutputStreamIsPassedOn) {
  HostFaults::instance().noOutputStream = true;
  Lines result;
  EXPECT_EQ(evaluate("child", nullptr, result),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(
      m_Trace.texts(Trace::Error),
      (std::vector<std::string>{"Unable to get the child output stream for command " + m_Child,
                                "Error executing command, error number = -14201"}));
}

TEST_F(RunCommandExTest, TraceScopesNameEachStep) {
  cstest::TraceCapture trace(Trace::Scope);
  {
    RunCommandEx op;
    op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child");
    PluginSDK::StringVector result;
    EXPECT_EQ(op.getVectorResult(result), 0);
  }
  std::vector<std::string> entered;
  for (const auto& s : trace.scopes()) {
    if (s.entering) entered.push_back(s.label);
  }
  EXPECT_EQ(entered, (std::vector<std::string>{
                         "RunCommandEx::RunCommandEx()", "RunCommandEx::getVectorResult()",
                         "RunCommandEx::validateProperties()",
                         "CustomScanRunCommandEx::getOptionalProperty()",
                         "RunCommandEx::getCommand(const String&,String&)",
                         "Command::run(String&, MemoryBuffer&)", "RunCommandEx::~RunCommandEx()"}));
}

TEST_F(RunCommandExTest, OptionalPropertyIsTheValueOrTheVeryDefault) {
  RunCommandEx op;
  const wchar_t* fallback = L"true";
  EXPECT_EQ(op.getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, fallback), fallback);
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"false");
  EXPECT_STREQ(op.getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, fallback), L"false");
}

TEST_F(RunCommandExTest, EvaluatingTwiceGivesTheSameOutcome) {
  RunCommandEx op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print a\\nb");
  for (int k = 0; k < 2; ++k) {
    PluginSDK::StringVector result;
    EXPECT_EQ(op.getVectorResult(result), 0);
    EXPECT_EQ(items(result), (Lines{L"a", L"b"}));
    op.disposeExpression();
  }
}

TEST_F(RunCommandExTest, PluginCreatesItByNameAsAVectorOperand) {
  PluginSDK::CustomScanPlugin plugin;
  PluginSDK::Expression* e = nullptr;
  ASSERT_EQ(plugin.createExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMANDEX, &e), 0);
  ASSERT_NE(e, nullptr);
  EXPECT_NE(dynamic_cast<RunCommandEx*>(e), nullptr);
  EXPECT_EQ(e->getType(), 1);
  EXPECT_FALSE(e->isOperator());
  EXPECT_TRUE(e->isReady());
  e->setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print x\\ny");
  PluginSDK::StringVector result;
  EXPECT_EQ(static_cast<PluginSDK::VectorExpression*>(e)->getVectorResult(result), 0);
  EXPECT_EQ(items(result), (Lines{L"x", L"y"}));
  EXPECT_EQ(plugin.destroyExpression(e), 0);
}

}  // namespace
