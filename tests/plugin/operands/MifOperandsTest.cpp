// The three MIF operands, CustomScanInfo, CustomScanExists and CustomScanList,
// driven through the plug-in's virtual interface with real scanners.

#include <gtest/gtest.h>

#include <string>

#include "CustomScanConstants.h"
#include "MifSamples.h"
#include "PluginHarness.h"
#include "TestSupport.h"
#include "operands/CustomScanExists.h"
#include "operands/CustomScanInfo.h"
#include "operands/CustomScanList.h"
#include "operands/MifCache.h"

using cstest::Evaluation;
using cstest::Properties;

namespace {

std::wstring w(const std::string& s) { return std::wstring(s.begin(), s.end()); }

class MifOperandsTest : public ::testing::Test {
 protected:
  MifOperandsTest() : scannerDir(dir.path()) {
    cstest::writeScript(dir.file("count.sh"), "echo run >> \"$1.runs\"\ncat \"$1\"");
    disks = w(write("disks.mif", cstest::kDisksMif));
    agents = w(write("agents.mif", cstest::kAgentsMif));
    empty = w(write("empty.mif", cstest::kEmptyTableMif));
    broken = w(write("broken.mif", cstest::kBrokenMif));
  }
  std::string write(const std::string& name, const std::string& text) {
    cstest::writeFile(dir.file(name), text);
    return dir.file(name);
  }
  int runs(const std::wstring& path) {
    std::string p(path.begin(), path.end());
    if (!cstest::fileExists(p + ".runs")) return 0;
    std::string log = cstest::readFile(p + ".runs");
    int n = 0;
    for (char c : log) n += c == '\n';
    return n;
  }

  cstest::TempDir dir;
  cstest::ScannerDirScope scannerDir;
  std::wstring disks, agents, empty, broken;
  cstest::PluginHarness host;
};

// ------------------------------------------------------------ shared shape

TEST_F(MifOperandsTest, TypesAndFlagsOfTheThreeOperands) {
  CustomScanPlugin::CustomScanInfo info;
  CustomScanPlugin::CustomScanExists exists;
  CustomScanPlugin::CustomScanList list;
  EXPECT_EQ(info.getType(), 0);
  EXPECT_EQ(exists.getType(), 0);
  EXPECT_EQ(list.getType(), 1);
  for (PluginSDK::Expression* e :
       std::initializer_list<PluginSDK::Expression*>{&info, &exists, &list}) {
    EXPECT_FALSE(e->isOperator());
    EXPECT_TRUE(e->isReady());
    e->disposeExpression();
  }
}

TEST_F(MifOperandsTest, OptionalPropertyUnsetYieldsTheVeryDefaultPointer) {
  const wchar_t* def = L"default";
  CustomScanPlugin::CustomScanInfo info;
  CustomScanPlugin::CustomScanExists exists;
  CustomScanPlugin::CustomScanList list;
  EXPECT_EQ(info.getOptionalProperty(L"output", def), def);
  EXPECT_EQ(exists.getOptionalProperty(L"output", def), def);
  EXPECT_EQ(list.getOptionalProperty(L"output", def), def);
  info.setProperty(L"output", L"x");
  EXPECT_STREQ(info.getOptionalProperty(L"output", def), L"x");
}

TEST_F(MifOperandsTest, EmptyPropertyValuesPassValidation) {
  CustomScanPlugin::CustomScanInfo info;
  for (const wchar_t* name : {L"command", L"class", L"code", L"field"}) info.setProperty(name, L"");
  EXPECT_EQ(info.validateProperties(), 0);
  CustomScanPlugin::CustomScanList list;
  list.setProperty(L"command", L"");
  list.setProperty(L"class", L"");
  EXPECT_EQ(list.validateProperties(), 0);
}

TEST_F(MifOperandsTest, CreateExpressionMakesEachMifOperandByItsExactName) {
  for (const wchar_t* name : {L"CustomScanList", L"CustomScanInfo", L"CustomScanExists"}) {
    PluginSDK::Expression* e = nullptr;
    ASSERT_EQ(host.plugin().createExpression(name, &e), 0) << cstest::narrow(name);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(host.plugin().destroyExpression(e), 0);
  }
  PluginSDK::Expression* e = nullptr;
  EXPECT_EQ(host.plugin().createExpression(L"customscaninfo", &e), -10008);
}

// ------------------------------------------------------------ CustomScanInfo

TEST_F(MifOperandsTest, InfoReturnsTheFieldOfTheRow) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                   {L"class", L"Disks"},
                                                   {L"code", L"sda"},
                                                   {L"field", L"Size"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.scalar, L"100");
}

TEST_F(MifOperandsTest, InfoDefaultValueFillsABlankItem) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                   {L"class", L"Disks"},
                                                   {L"code", L"sdb"},
                                                   {L"field", L"Size"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.scalar, L"0");
}

TEST_F(MifOperandsTest, InfoEmptyFieldValueIsSuccessWithAnEmptyResult) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                   {L"class", L"Disks"},
                                                   {L"code", L"sdc"},
                                                   {L"field", L"Size"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.scalar, L"");
}

TEST_F(MifOperandsTest, InfoOnAScalarClass) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"command", L"count.sh " + agents},
                                                   {L"class", L"Agents"},
                                                   {L"code", L"Agent"},
                                                   {L"field", L"Version"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.scalar, L"2.1");
}

TEST_F(MifOperandsTest, InfoWithCommandAndFieldUnsetIsUnspecifiedCommandAndRunsNothing) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"class", L"Disks"}, {L"code", L"sda"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND);
  EXPECT_EQ(e.scalar, L"");
  EXPECT_EQ(runs(disks), 0);
}

TEST_F(MifOperandsTest, InfoReportsTheFirstMissingPropertyInOrder) {
  struct Case {
    Properties props;
    TErrorCode code;
  };
  std::wstring cmd = L"count.sh " + disks;
  std::vector<Case> cases = {
      {{}, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND},
      {{{L"command", cmd}}, CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS},
      {{{L"command", cmd}, {L"class", L"Disks"}}, CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE},
      {{{L"command", cmd}, {L"class", L"Disks"}, {L"code", L"sda"}},
       CUSTOM_SCAN_ERROR_UNSPECIFIED_FIELD},
      {{{L"field", L"Size"}, {L"code", L"sda"}, {L"class", L"Disks"}},
       CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND},
  };
  for (const Case& c : cases) {
    Evaluation e = host.evaluate(L"CustomScanInfo", c.props);
    EXPECT_EQ(e.code, c.code) << "properties: " << c.props.size();
    EXPECT_EQ(e.scalar, L"");
  }
  EXPECT_EQ(runs(disks), 0);
}

TEST_F(MifOperandsTest, InfoTwoOperandsOnTheSameRequestAskingDifferentFieldsRunOnce) {
  Properties base = {{L"command", L"count.sh " + disks}, {L"class", L"Disks"}, {L"code", L"sda"}};
  Properties a = base;
  a.push_back({L"field", L"Size"});
  Properties b = base;
  b.push_back({L"field", L"Device"});
  EXPECT_EQ(host.evaluate(L"CustomScanInfo", a).scalar, L"100");
  EXPECT_EQ(host.evaluate(L"CustomScanInfo", b).scalar, L"sda");
  EXPECT_EQ(runs(disks), 1);
}

TEST_F(MifOperandsTest, InfoUnknownRowOrFieldOrCaseIsAnError) {
  Properties base = {{L"command", L"count.sh " + disks}, {L"class", L"Disks"}};
  struct Case {
    std::wstring code, field;
    TErrorCode rc;
  };
  std::vector<Case> cases = {
      {L"sdz", L"Size", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND},
      {L"SDA", L"Size", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND},
      {L" sda", L"Size", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND},
      {L"sda", L"size", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND},
      {L"sda", L"2", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND},
  };
  for (const Case& c : cases) {
    Properties p = base;
    p.push_back({L"code", c.code});
    p.push_back({L"field", c.field});
    Evaluation e = host.evaluate(L"CustomScanInfo", p);
    EXPECT_EQ(e.code, c.rc) << cstest::narrow(c.code) << "/" << cstest::narrow(c.field);
    EXPECT_EQ(e.scalar, L"");
  }
  EXPECT_EQ(runs(disks), 1);
}

TEST_F(MifOperandsTest, InfoAskedTwiceGivesTheSameOutcome) {
  auto ok = host.evaluateTwice(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                   {L"class", L"Disks"},
                                                   {L"code", L"sda"},
                                                   {L"field", L"Size"}});
  EXPECT_EQ(ok.first.code, ok.second.code);
  EXPECT_EQ(ok.first.scalar, ok.second.scalar);
  auto bad = host.evaluateTwice(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                    {L"class", L"Disks"},
                                                    {L"code", L"nope"},
                                                    {L"field", L"Size"}});
  EXPECT_EQ(bad.first.code, CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND);
  EXPECT_EQ(bad.second.code, bad.first.code);
  EXPECT_EQ(bad.second.scalar, L"");
}

TEST_F(MifOperandsTest, InfoLimitCharsIsIgnored) {
  Evaluation e = host.evaluate(L"CustomScanInfo", {{L"command", L"count.sh " + disks},
                                                   {L"class", L"Disks"},
                                                   {L"code", L"sda"},
                                                   {L"field", L"Device"},
                                                   {L"limitChars", L"1"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.scalar, L"sda");
}

TEST_F(MifOperandsTest, InfoWritesNoTraceRecords) {
  cstest::TraceCapture trace;
  host.evaluate(L"CustomScanInfo", {{L"class", L"Disks"}});
  EXPECT_TRUE(trace.records().empty());
}

// ------------------------------------------------------------ CustomScanExists

TEST_F(MifOperandsTest, ExistsAnswersTrueForAnExistingKeyAndFalseForAnAbsentOne) {
  Properties base = {{L"command", L"count.sh " + disks}, {L"class", L"Disks"}};
  Properties yes = base;
  yes.push_back({L"code", L"sda"});
  Properties no = base;
  no.push_back({L"code", L"sdz"});
  Evaluation a = host.evaluate(L"CustomScanExists", yes);
  Evaluation b = host.evaluate(L"CustomScanExists", no);
  EXPECT_EQ(a.code, 0);
  EXPECT_EQ(a.scalar, PLUGIN_RESULT_TRUE);
  EXPECT_EQ(b.code, 0);
  EXPECT_EQ(b.scalar, PLUGIN_RESULT_FALSE);
}

TEST_F(MifOperandsTest, ExistsWithClassUnsetIsUnspecifiedClassAndEmpty) {
  Evaluation e =
      host.evaluate(L"CustomScanExists", {{L"command", L"count.sh " + disks}, {L"code", L"sda"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS);
  EXPECT_EQ(e.scalar, L"");
}

TEST_F(MifOperandsTest, ExistsWithCodeUnsetIsUnspecifiedCode) {
  Evaluation e = host.evaluate(L"CustomScanExists",
                               {{L"command", L"count.sh " + disks}, {L"class", L"Disks"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE);
}

TEST_F(MifOperandsTest, ExistsOnAMifThatFailedToParseIsPreviouslyFailedAndEmptyTheSecondTime) {
  Properties p = {{L"command", L"count.sh " + broken}, {L"class", L"Disks"}, {L"code", L"sda"}};
  Evaluation first = host.evaluate(L"CustomScanExists", p);
  Evaluation second = host.evaluate(L"CustomScanExists", p);
  EXPECT_EQ(first.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(first.scalar, L"");
  EXPECT_EQ(second.code, CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED);
  EXPECT_EQ(second.scalar, L"");
  EXPECT_EQ(runs(broken), 1);
}

TEST_F(MifOperandsTest, ExistsOnAMissingClassIsAFailureNotFalse) {
  Evaluation e =
      host.evaluate(L"CustomScanExists",
                    {{L"command", L"count.sh " + disks}, {L"class", L"Nope"}, {L"code", L"sda"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
  EXPECT_EQ(e.scalar, L"");
}

// ------------------------------------------------------------ CustomScanList

TEST_F(MifOperandsTest, ListReturnsTheKeysInKeyOrder) {
  Evaluation e =
      host.evaluate(L"CustomScanList", {{L"command", L"count.sh " + disks}, {L"class", L"Disks"}});
  EXPECT_EQ(e.code, 0);
  std::vector<std::wstring> expected = {L"sda", L"sdb", L"sdc"};
  EXPECT_EQ(e.vector, expected);
}

TEST_F(MifOperandsTest, ListOfAScalarClassIsItsOneKey) {
  Evaluation e = host.evaluate(L"CustomScanList",
                               {{L"command", L"count.sh " + agents}, {L"class", L"Agents"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.vector, std::vector<std::wstring>{L"Agent"});
}

TEST_F(MifOperandsTest, ListOfATableWithoutRowsIsEmpty) {
  Evaluation e =
      host.evaluate(L"CustomScanList", {{L"command", L"count.sh " + empty}, {L"class", L"Empty"}});
  EXPECT_EQ(e.code, 0);
  EXPECT_TRUE(e.vector.empty());
}

TEST_F(MifOperandsTest, ListWithCommandUnsetIsUnspecifiedCommandAndEmptiesTheList) {
  // The harness hands the operand a list that already holds an entry.
  Evaluation e = host.evaluate(L"CustomScanList", {{L"class", L"Disks"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND);
  EXPECT_TRUE(e.vector.empty());
}

TEST_F(MifOperandsTest, ListFailureLeavesTheListEmpty) {
  Evaluation e =
      host.evaluate(L"CustomScanList", {{L"command", L"count.sh " + broken}, {L"class", L"Disks"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_TRUE(e.vector.empty());
}

TEST_F(MifOperandsTest, ListWithOutputFile) {
  cstest::writeScript(dir.file("writer.sh"), "cp \"$1\" \"$2\"\necho 'ignored output'");
  std::wstring out = w(dir.file("written.mif"));
  Evaluation e = host.evaluate(
      L"CustomScanList",
      {{L"command", L"writer.sh " + disks + L" " + out}, {L"class", L"Disks"}, {L"output", out}});
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.vector.size(), 3u);
}

TEST_F(MifOperandsTest, AllThreeOperandsShareOneRunOfTheScanner) {
  std::wstring cmd = L"count.sh " + disks;
  host.evaluate(L"CustomScanList", {{L"command", cmd}, {L"class", L"Disks"}});
  host.evaluate(L"CustomScanExists", {{L"command", cmd}, {L"class", L"Disks"}, {L"code", L"sda"}});
  host.evaluate(L"CustomScanInfo",
                {{L"command", cmd}, {L"class", L"Disks"}, {L"code", L"sda"}, {L"field", L"Size"}});
  EXPECT_EQ(runs(disks), 1);
}

}  // namespace
