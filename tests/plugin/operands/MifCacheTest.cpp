#include "operands/MifCache.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "CustomScanConstants.h"
#include "MifSamples.h"
#include "PluginHarness.h"
#include "TestSupport.h"
#include "common/MemoryBuffer.h"
#include "mifParser/MifTable.h"
#include "sdk/Configuration.h"

using CustomScanPlugin::MemoryBuffer;
using CustomScanPlugin::MifCache;
using CustomScanPlugin::MifTable;

namespace {

// A scanner directory with a scanner that counts its runs: "count.sh FILE"
// appends a line to FILE.runs and prints FILE.
class MifCacheTest : public ::testing::Test {
 protected:
  MifCacheTest() : scannerDir(dir.path()) {
    cstest::writeScript(dir.file("count.sh"), "echo run >> \"$1.runs\"\ncat \"$1\"");
    cstest::writeScript(dir.file("fail.sh"), "echo run >> \"$1.runs\"\necho partial\nexit 3");
    cstest::writeScript(dir.file("quiet.sh"), "echo run >> \"$1.runs\"\necho 'not the MIF'");
    MifCache::cleanup();
  }
  ~MifCacheTest() override {
    MifCache::cleanup();
    PluginSDK::Configuration::cleanup(CUSTOM_SCAN_PLUGIN_NAME);
  }

  std::string mif(const std::string& name, const std::string& text) {
    std::string path = dir.file(name);
    cstest::writeFile(path, text);
    return path;
  }
  int runs(const std::string& path) {
    if (!cstest::fileExists(path + ".runs")) return 0;
    std::string log = cstest::readFile(path + ".runs");
    int n = 0;
    for (char c : log) n += c == '\n';
    return n;
  }
  static String s(const std::string& text) { return String(text.c_str()); }
  TErrorCode table(const std::string& command, const std::string& className, MifTable*& t,
                   const std::string& output = "") {
    return MifCache::getCache()->getMifTable(s(command), s(output), s(className), t);
  }

  cstest::TempDir dir;
  cstest::ScannerDirScope scannerDir;
};

TEST_F(MifCacheTest, GetCacheReturnsTheSameInstanceUntilCleanup) {
  MifCache* a = MifCache::getCache();
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(MifCache::getCache(), a);
}

TEST_F(MifCacheTest, EqualRequestsRunTheCommandOnce) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* first = nullptr;
  MifTable* second = nullptr;
  ASSERT_EQ(table("count.sh " + disks, "Disks", first), 0);
  ASSERT_EQ(table("count.sh " + disks, "Disks", second), 0);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_EQ(runs(disks), 1);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 1u);
}

TEST_F(MifCacheTest, AnotherClassRunsTheCommandAgainAndAddsAnEntry) {
  std::string both = mif("both.mif", std::string(cstest::kDisksMif) + "\n" + "");
  MifTable* t = nullptr;
  ASSERT_EQ(table("count.sh " + both, "Disks", t), 0);
  EXPECT_EQ(table("count.sh " + both, "Agents", t), CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(runs(both), 2);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 2u);
}

TEST_F(MifCacheTest, CommandComparedExactlySoAnotherSpellingRunsAgain) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  ASSERT_EQ(table("count.sh " + disks, "Disks", t), 0);
  ASSERT_EQ(table("count.sh  " + disks, "Disks", t), 0);
  ASSERT_EQ(table("count.sh " + disks, "disks", t), CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
  EXPECT_EQ(runs(disks), 3);
}

TEST_F(MifCacheTest, ParseFailureRunsOnceThenAnswersPreviouslyFailed) {
  std::string broken = mif("broken.mif", cstest::kBrokenMif);
  MifTable* t = reinterpret_cast<MifTable*>(0x1);
  EXPECT_EQ(table("count.sh " + broken, "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(t, nullptr);
  t = reinterpret_cast<MifTable*>(0x1);
  EXPECT_EQ(table("count.sh " + broken, "Disks", t),
            CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(runs(broken), 1);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 1u);
}

TEST_F(MifCacheTest, BuildFailureIsRememberedLikeAParseFailure) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  EXPECT_EQ(table("count.sh " + disks, "Nothing", t), CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
  EXPECT_EQ(table("count.sh " + disks, "Nothing", t),
            CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED);
  EXPECT_EQ(runs(disks), 1);
}

TEST_F(MifCacheTest, FailureToRunIsRetriedEveryTimeAndNotRemembered) {
  std::string marker = dir.file("fail");
  MifTable* t = nullptr;
  EXPECT_EQ(table("fail.sh " + marker, "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(table("fail.sh " + marker, "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(runs(marker), 2);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 0u);
}

TEST_F(MifCacheTest, RefusedCommandIsAnsweredEveryTimeAndNotRemembered) {
  MifTable* t = nullptr;
  EXPECT_EQ(table("../count.sh", "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_EQ(table("../count.sh", "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_EQ(table("", "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT);
  EXPECT_EQ(table("missing.sh", "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 0u);
}

TEST_F(MifCacheTest, GetCommandUsesTheCacheLabelAndSource) {
  cstest::TraceCapture trace;
  String resolved(L"untouched");
  EXPECT_EQ(MifCache::getCache()->getCommand(String(L""), resolved),
            CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT);
  EXPECT_EQ(resolved.compareTo(L"untouched"), 0);
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].label, "MifCache::getCommand(const String&,String&)");
  EXPECT_EQ(trace.records()[0].file, "../../../../src/plugins/CustomScanPlugin/operands/MifCache");
  EXPECT_EQ(trace.records()[0].level, 1);
  EXPECT_EQ(cstest::narrow(trace.records()[0].text), "Empty command specified");
}

TEST_F(MifCacheTest, MissingOutputFileIsRetriedAndTheCommandRunsEachTime) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  std::string missing = dir.file("no-such-output");
  EXPECT_EQ(table("count.sh " + disks, "Disks", t, missing),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(table("count.sh " + disks, "Disks", t, missing),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(runs(disks), 2);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 0u);
}

TEST_F(MifCacheTest, OutputFileReplacesTheStandardOutput) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  ASSERT_EQ(table("quiet.sh " + dir.file("q"), "Disks", t, disks), 0);
  ASSERT_NE(t, nullptr);
  std::vector<String> keys;
  t->getKeys(keys);
  EXPECT_EQ(keys.size(), 3u);
  EXPECT_EQ(runs(dir.file("q")), 1);
}

TEST_F(MifCacheTest, OutputFileIsPartOfTheRequestKey) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  std::string copy = mif("copy.mif", cstest::kDisksMif);
  MifTable* a = nullptr;
  MifTable* b = nullptr;
  ASSERT_EQ(table("quiet.sh " + dir.file("q"), "Disks", a, disks), 0);
  ASSERT_EQ(table("quiet.sh " + dir.file("q"), "Disks", b, copy), 0);
  EXPECT_NE(a, b);
  EXPECT_EQ(runs(dir.file("q")), 2);
}

TEST_F(MifCacheTest, RelativeOutputNameIsOpenedFromTheCurrentDirectory) {
  mif("relative.mif", cstest::kDisksMif);
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  MifTable* t = nullptr;
  TErrorCode rc = table("quiet.sh " + dir.file("q"), "Disks", t, "relative.mif");
  ASSERT_EQ(chdir(previous), 0);
  EXPECT_EQ(rc, 0);
}

TEST_F(MifCacheTest, OutputFileOfExactlyTheBufferSizeIsReadWholeAndTerminated) {
  std::string content(4096, 'm');
  std::string file = mif("exact.out", content);
  MemoryBuffer buffer(1024, 4096);
  ASSERT_EQ(MifCache::getCache()->getMifBuffer(s("quiet.sh " + dir.file("q")), s(file), buffer), 0);
  ASSERT_GT(buffer.getSize(), 4096u);
  EXPECT_EQ(buffer.getSize() % 4096, 0u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getData())), content);
  EXPECT_EQ(buffer.getData()[4096], 0);
}

TEST_F(MifCacheTest, OutputFileLargerThanManyStepsIsReadWhole) {
  std::string content;
  for (int i = 0; i < 5000; ++i) content += "line " + std::to_string(i) + "\n";
  std::string file = mif("large.out", content);
  MemoryBuffer buffer(1024, 4096);
  ASSERT_EQ(MifCache::getCache()->getMifBuffer(s("quiet.sh " + dir.file("q")), s(file), buffer), 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getData())), content);
}

TEST_F(MifCacheTest, EmptyOutputFileGivesAnEmptyText) {
  std::string file = mif("empty.out", "");
  MemoryBuffer buffer(1024, 4096);
  ASSERT_EQ(MifCache::getCache()->getMifBuffer(s("quiet.sh " + dir.file("q")), s(file), buffer), 0);
  EXPECT_EQ(buffer.getData()[0], 0);
  MifTable* t = nullptr;
  EXPECT_EQ(table("quiet.sh " + dir.file("q"), "Disks", t, file),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
}

TEST_F(MifCacheTest, OutputFileThatIsADirectoryCannotBeRead) {
  cstest::makeDirectory(dir.file("outdir"));
  MifTable* t = nullptr;
  EXPECT_EQ(table("quiet.sh " + dir.file("q"), "Disks", t, dir.file("outdir")),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(MifCache::getCache()->entryCount(), 0u);
}

TEST_F(MifCacheTest, UnreadableOutputFileCannotBeRead) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  std::string file = dir.file("secret.mif");
  cstest::writeFile(file, cstest::kDisksMif, 0000);
  MifTable* t = nullptr;
  EXPECT_EQ(table("quiet.sh " + dir.file("q"), "Disks", t, file),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
}

TEST_F(MifCacheTest, OutputFileTheCommandDidNotWriteIsReadAsItStands) {
  // The cache cannot tell a stale file from a fresh one: it reads what is there.
  std::string stale = mif("stale.mif", cstest::kAgentsMif);
  MifTable* t = nullptr;
  ASSERT_EQ(table("quiet.sh " + dir.file("q"), "Agents", t, stale), 0);
  String value;
  EXPECT_EQ(t->getField(String(L"Agent"), String(L"Version"), value), 0);
  EXPECT_EQ(value.compareTo(L"2.1"), 0);
}

TEST_F(MifCacheTest, CleanupTwiceIsHarmlessAndGetCacheAfterwardsIsEmpty) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  ASSERT_EQ(table("count.sh " + disks, "Disks", t), 0);
  MifCache::cleanup();
  MifCache::cleanup();
  EXPECT_EQ(MifCache::getCache()->entryCount(), 0u);
  ASSERT_EQ(table("count.sh " + disks, "Disks", t), 0);
  EXPECT_EQ(runs(disks), 2);
}

TEST_F(MifCacheTest, ScannerDirectoryIsReadWhenTheCacheIsCreated) {
  MifCache::getCache();
  cstest::TempDir other;
  cstest::ScannerDirScope otherDir(other.path());
  // The existing cache keeps the directory it was created with.
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  EXPECT_EQ(table("count.sh " + disks, "Disks", t), 0);
  MifCache::cleanup();
  EXPECT_EQ(table("count.sh " + disks, "Disks", t),
            CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST);
}

TEST_F(MifCacheTest, HugeTableOfTwoHundredThousandRowsIsBuilt) {
  std::string text =
      "start component\nstart group\nclass = Big\nkey = 1\n"
      "start attribute\nid = 1\nname = K\nend attribute\n"
      "start attribute\nid = 2\nname = V\nvalue = d\nend attribute\n"
      "end group\nstart table\nclass = Big\n";
  for (int i = 0; i < 200000; ++i)
    text += "{r" + std::to_string(i) + ", v" + std::to_string(i) + "}\n";
  text += "end table\nend component\n";
  std::string big = mif("big.mif", text);
  MifTable* t = nullptr;
  ASSERT_EQ(table("count.sh " + big, "Big", t), 0);
  EXPECT_EQ(t->getRowNumber(), 200000u);
  String value;
  EXPECT_EQ(t->getField(String(L"r199999"), String(L"V"), value), 0);
  EXPECT_EQ(value.compareTo(L"v199999"), 0);
}

TEST_F(MifCacheTest, ScannerWritingBinaryBytesFailsToParseWithoutHarm) {
  cstest::installTestChild(dir.file("child"));
  MifTable* t = nullptr;
  EXPECT_EQ(table("child bytes 100000", "Disks", t), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(table("child bytes 100000", "Disks", t),
            CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED);
}

TEST_F(MifCacheTest, NonUtf8BytesInValuesSurviveIntoTheTable) {
  std::string text =
      "start group\nclass = Bytes\nid = 1\n"
      "start attribute\nid = 1\nname = Raw\nvalue = \"caf\xe9 \xff\"\nend attribute\n"
      "end group\n";
  std::string file = mif("bytes.mif", text);
  MifTable* t = nullptr;
  ASSERT_EQ(table("count.sh " + file, "Bytes", t), 0);
  std::vector<String> keys;
  t->getKeys(keys);
  ASSERT_EQ(keys.size(), 1u);
  EXPECT_EQ(keys[0].toNarrow(), "caf\xe9 \xff");
}

TEST_F(MifCacheTest, NoZombieAndNoDescriptorLeftAfterRequests) {
  std::vector<int> before = cstest::openDescriptors();
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  MifTable* t = nullptr;
  table("count.sh " + disks, "Disks", t);
  table("fail.sh " + dir.file("f"), "Disks", t);
  table("quiet.sh " + dir.file("q"), "Disks", t, dir.file("missing"));
  EXPECT_EQ(cstest::openDescriptors(), before);
  EXPECT_FALSE(cstest::hasZombieChildren());
}

// ------------------------------------------------ through the plug-in object

TEST_F(MifCacheTest, CleanupPluginEmptiesTheCacheAndANewCycleStartsEmpty) {
  std::string disks = mif("disks.mif", cstest::kDisksMif);
  cstest::Properties props = {{L"command", L"count.sh " + std::wstring(disks.begin(), disks.end())},
                              {L"class", L"Disks"},
                              {L"code", L"sda"},
                              {L"field", L"Size"}};
  {
    cstest::PluginHarness host;
    EXPECT_EQ(host.evaluate(L"CustomScanInfo", props).scalar, L"100");
    EXPECT_EQ(host.evaluate(L"CustomScanInfo", props).scalar, L"100");
    EXPECT_EQ(runs(disks), 1);
    EXPECT_EQ(host.cleanup(), 0);
    EXPECT_EQ(host.cleanup(), 0);
  }
  cstest::PluginHarness next;
  EXPECT_EQ(next.evaluate(L"CustomScanInfo", props).scalar, L"100");
  EXPECT_EQ(runs(disks), 2);
}

}  // namespace
