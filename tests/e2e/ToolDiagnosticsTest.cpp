// Unit tests of what the customscan tool tells about a failed request: near
// names, the hints drawn from a scanner's MIF text, and the details of an
// evaluation in JSON and plain output.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Evaluation.h"
#include "JsonText.h"
#include "MifSamples.h"
#include "NearNames.h"
#include "QueryHints.h"
#include "TestSupport.h"
#include "base/ProcessDiagnostics.h"

using namespace CustomScanTool;

namespace {

using Names = std::vector<std::string>;

// ------------------------------------------------------------ near names

TEST(NearNamesTest, SameLettersInAnotherCaseComeFirst) {
  EXPECT_EQ(NearNames::find("address", {"adress", "Addr", "Address"}),
            (Names{"Address", "adress"}));
}

TEST(NearNamesTest, SlipsAreOrderedByDistanceThenByTheCandidatesOrder) {
  EXPECT_EQ(NearNames::find("tcp#22", {"tcp#80", "tcp#21", "udp#53", "tcp#2"}),
            (Names{"tcp#21", "tcp#2", "tcp#80"}));
}

TEST(NearNamesTest, NamesContainingTheAskedOneFollowTheSlips) {
  EXPECT_EQ(NearNames::find("pretty", {"PrettyName", "Name", "prety"}),
            (Names{"prety", "PrettyName"}));
}

TEST(NearNamesTest, ShortAskedNamesDoNotMatchEveryLongerName) {
  EXPECT_EQ(NearNames::find("id", {"Identifier", "Width"}), Names{});
}

TEST(NearNamesTest, FarNamesAreLeftOut) {
  EXPECT_EQ(NearNames::find("zzzz", {"Address", "Mask"}), Names{});
}

TEST(NearNamesTest, AtMostMaxNames) {
  EXPECT_EQ(NearNames::find("ab", {"aa", "bb", "ac", "ad", "ae", "af", "ag"}, 3),
            (Names{"aa", "bb", "ac"}));
}

TEST(NearNamesTest, TheAskedNameAndRepeatsAreNotListed) {
  EXPECT_EQ(NearNames::find("Name", {"Name", "name", "name", "Nam"}), (Names{"name", "Nam"}));
}

TEST(NearNamesTest, NoCandidatesGiveNoNames) { EXPECT_EQ(NearNames::find("x", {}), Names{}); }

TEST(NearNamesTest, VeryLongNamesAreMatchedByCaseAndContainmentOnly) {
  const std::string longName(1000, 'a');
  std::string slipped = longName;
  slipped[500] = 'b';
  EXPECT_EQ(NearNames::find(longName, {slipped, "A" + longName.substr(1), longName + "x"}),
            (Names{"A" + longName.substr(1), longName + "x"}));
}

TEST(NearNamesTest, DistanceCountsInsertionsDeletionsSubstitutionsAndSwaps) {
  struct Row {
    const char* a;
    const char* b;
    std::size_t distance;
  };
  const Row rows[] = {{"", "", 0},        {"", "abc", 3},           {"abc", "", 3},
                      {"ab", "ba", 1},    {"kitten", "sitting", 3}, {"address", "adress", 1},
                      {"Name", "name", 1}};
  for (const Row& row : rows) {
    EXPECT_EQ(NearNames::distance(row.a, row.b), row.distance) << row.a << " / " << row.b;
  }
}

// ------------------------------------------------------------ MIF hints

class QueryHintsTest : public ::testing::Test {
 protected:
  // The template class of the shared samples, and a scalar class beside it.
  std::string text =
      std::string(cstest::kDisksMif)
          .insert(std::string(cstest::kDisksMif).rfind("end component"), cstest::kAgentsMif);
};

TEST_F(QueryHintsTest, UnknownClassListsTheClassesNearOnesFirst) {
  QueryHint hint = QueryHints::explain(-14101, text, "disks", "", "");
  EXPECT_EQ(hint.nearNames, Names{"Disks"});
  EXPECT_EQ(hint.reason,
            "no group of class \"disks\" in the scanner's MIF text; near: \"Disks\"; its classes: "
            "\"Disks\", \"Agents\"");
}

TEST_F(QueryHintsTest, UnknownClassInATextWithoutClassesSaysSo) {
  QueryHint hint = QueryHints::explain(-14101, "start component\nend component\n", "Disks", "", "");
  EXPECT_EQ(hint.reason,
            "no group of class \"Disks\" in the scanner's MIF text; it defines no class");
}

TEST_F(QueryHintsTest, UnknownFieldNamesTheNearFieldsAndAllOfThem) {
  QueryHint hint = QueryHints::explain(-14112, text, "Disks", "sda", "size");
  EXPECT_EQ(hint.nearNames, Names{"Size"});
  EXPECT_EQ(hint.reason,
            "no field \"size\" in class \"Disks\"; near: \"Size\"; its fields (attribute names, "
            "matched exactly): "
            "\"Device\", \"Size\"");
}

TEST_F(QueryHintsTest, MissingRowNamesTheKeyAskedForAndTheNearKeys) {
  QueryHint hint = QueryHints::explain(-14113, text, "Disks", "sdd", "Size");
  EXPECT_EQ(hint.nearNames, (Names{"sda", "sdb", "sdc"}));
  EXPECT_EQ(hint.reason,
            "no row with key \"sdd\" in class \"Disks\" (3 rows, keyed by Device); near: \"sda\", "
            "\"sdb\", \"sdc\"");
}

TEST_F(QueryHintsTest, MissingRowWithNoNearKeyListsSomeKeys) {
  QueryHint hint = QueryHints::explain(-14113, text, "Agents", "SomethingElse", "Name");
  EXPECT_EQ(hint.nearNames, Names{});
  EXPECT_EQ(hint.reason,
            "no row with key \"SomethingElse\" in class \"Agents\" (1 row, keyed by Name); its "
            "keys include \"Agent\"");
}

TEST_F(QueryHintsTest, EmptyTableSaysItHasNoRows) {
  QueryHint hint = QueryHints::explain(-14113, cstest::kEmptyTableMif, "Empty", "x", "K");
  EXPECT_EQ(hint.reason, "no row with key \"x\" in class \"Empty\" (0 rows, keyed by K)");
}

TEST_F(QueryHintsTest, OtherCodesAndUnparsableTextsGiveNoHint) {
  EXPECT_EQ(QueryHints::explain(-14100, text, "Disks", "sda", "Size").reason, "");
  EXPECT_EQ(QueryHints::explain(-14202, text, "Disks", "sda", "Size").reason, "");
  EXPECT_EQ(QueryHints::explain(-14112, cstest::kBrokenMif, "Disks", "sda", "Size").reason, "");
  // A class whose group cannot be read gives nothing to list either.
  EXPECT_EQ(QueryHints::explain(-14112, text, "Nope", "sda", "Size").reason, "");
}

TEST_F(QueryHintsTest, HintsWriteNoTraceRecord) {
  cstest::TraceCapture trace(Trace::Detail);
  QueryHints::explain(-14101, text, "Nope", "", "");
  QueryHints::explain(-14112, cstest::kBrokenMif, "Disks", "", "x");
  EXPECT_TRUE(trace.records().empty());
}

TEST_F(QueryHintsTest, TextsAreTakenAsThePluginTakesThem) {
  EXPECT_EQ(QueryHints::fromStandardOutput(std::string("a\r\nb\0c\r", 7)), "a\nbc");
  EXPECT_EQ(QueryHints::fromOutputFile(std::string("a\r\nb\0c", 6)), "a\r\nb");
}

// ------------------------------------------------------------ evaluation details

std::shared_ptr<ProcessReport> endedProcess(int exitStatus, int signal = 0) {
  auto report = std::make_shared<ProcessReport>();
  report->program = "/s/scan.sh";
  report->created = true;
  report->ended = true;
  report->exitStatus = exitStatus;
  report->signal = signal;
  return report;
}

TEST(EvaluationDetailsTest, FailureMembersFollowTheErrorInAFixedOrder) {
  Evaluation e;
  e.operand = "CustomScanInfo";
  e.code = -14112;
  e.reason = "no field";
  e.nearNames = {"Address"};
  e.records = {"one", "two"};
  e.process = endedProcess(0);
  const auto json = e.toJson();
  std::vector<std::string> keys;
  for (auto it = json.begin(); it != json.end(); ++it) keys.push_back(it.key());
  EXPECT_EQ(keys, (Names{"operand", "code", "result", "error", "message", "reason", "nearNames",
                         "records", "process"}));
  EXPECT_EQ(JsonText::dump(json["process"]), R"({"program":"/s/scan.sh","exitStatus":0})");
}

TEST(EvaluationDetailsTest, ProcessTellsCreationFailureSignalAndTimeLimit) {
  Evaluation e;
  e.code = -14200;
  auto failed = std::make_shared<ProcessReport>();
  failed->program = "/s/a.sh";
  failed->creationError = 13;
  e.process = failed;
  EXPECT_EQ(JsonText::dump(e.toJson()["process"]),
            R"({"program":"/s/a.sh","created":false,"errno":13})");

  e.code = -14202;
  auto timedOut = endedProcess(-1, 9);
  timedOut->timedOut = true;
  timedOut->timeoutSeconds = 1.5;
  timedOut->killed = true;
  e.process = timedOut;
  EXPECT_EQ(
      JsonText::dump(e.toJson()["process"]),
      R"({"program":"/s/scan.sh","signal":9,"signalName":"SIGKILL","timedOut":true,"timeout":1.5,"killed":true})");
}

TEST(EvaluationDetailsTest, SuccessCarriesCapturedStandardErrorButNoProcess) {
  Evaluation e;
  e.operand = "RunCommand";
  auto report = endedProcess(0);
  report->standardErrorCaptured = true;
  report->standardErrorTail = "warn 1\nwarn 2";
  report->standardErrorBytes = 14;
  e.process = report;
  EXPECT_EQ(JsonText::dump(e.toJson()),
            R"({"operand":"RunCommand","code":0,"result":"","stderr":["warn 1","warn 2"]})");
  report->standardErrorBytes = 5000;
  EXPECT_TRUE(e.toJson()["stderrTruncated"].get<bool>());
}

TEST(EvaluationDetailsTest, StandardErrorThatSaidNothingIsLeftOut) {
  Evaluation e;
  auto report = endedProcess(0);
  report->standardErrorCaptured = true;
  e.process = report;
  EXPECT_FALSE(e.toJson().contains("stderr"));
  report->standardErrorBytes = 1;  // a lone line feed: one empty line
  EXPECT_EQ(JsonText::dump(e.toJson()["stderr"]), R"([""])");
}

TEST(EvaluationDetailsTest, PlainDetailsAreOneLineEachWithControlCharactersShown) {
  Evaluation e;
  e.code = -14202;
  e.reason = "the scanner exited with status 3";
  e.records = {"Command /s/x\nterminated with error 3", e.reason};
  auto report = endedProcess(3);
  report->standardErrorCaptured = true;
  report->standardErrorTail = "bad\r\x1b[31mred\tok";
  report->standardErrorBytes = 20;
  e.process = report;
  EXPECT_EQ(e.detailLines(),
            (Names{"reason: the scanner exited with status 3",
                   "plug-in: Command /s/x\\nterminated with error 3",
                   "standard error of /s/scan.sh (last lines):", "| bad\\r\\x1B[31mred\\tok"}));
}

TEST(EvaluationDetailsTest, ManyRecordsAreSummedUp) {
  Evaluation e;
  e.code = -14100;
  for (int i = 0; i < 30; ++i) e.records.push_back("record " + std::to_string(i));
  Names lines = e.detailLines();
  ASSERT_EQ(lines.size(), 21u);
  EXPECT_EQ(lines[19], "plug-in: record 19");
  EXPECT_EQ(lines[20], "plug-in: ... and 10 more records");
}

}  // namespace
