// Faults injected through the host stand-in's seam (base/HostFaults.h) into
// MIF requests: process creation failing, no output stream, a stream that
// ends early, an output file that cannot be read, and an allocation failing
// at every point of a whole request in turn. Every outcome is a code or
// success; nothing crashes or leaks (the sanitizer pass checks), no child or
// descriptor is left behind, and a fault is never remembered as a broken
// scanner (only a text that does not make sense is).

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "AllocationCountdown.h"
#include "CustomScanConstants.h"
#include "MifSamples.h"
#include "PluginHarness.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"
#include "sdk/PluginTypes.h"

using cstest::allocationCountdown;
using cstest::CountdownReport;
using cstest::describe;
using cstest::Evaluation;
using cstest::expectOutcomesAmong;
using cstest::PluginHarness;
using cstest::Properties;

namespace {

const char kAccentedComment[] =
    "// Laufwerksgr\xC3\xB6\xC3\x9F"
    "e\n";

class MifFaultInjectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HostFaults::reset();
    // A line beyond ASCII is decoded into the parser's line buffer, one
    // more allocation to fail (an ASCII line is read as its bytes).
    const std::string mif = std::string(kAccentedComment) + cstest::kDisksMif;
    m_Sandbox.installScript("disks", std::string("cat <<'MIF'\n") + mif + "MIF");
    m_Sandbox.installScript("noop", "exit 0");
    // Comment lines before the MIF text make the file span several growths
    // of the read buffer, and any loss of its end a loss of the table.
    std::string padded;
    for (int i = 0; i < 600; ++i) padded += "// padding line " + std::to_string(i) + "\n";
    cstest::writeFile(m_Sandbox.root() + "/disks.mif", padded + mif);
  }
  void TearDown() override {
    HostFaults::reset();
    EXPECT_FALSE(m_Sandbox.canaryRan());
    m_Hygiene.verify();
  }

  static Properties info(const std::wstring& command, const std::wstring& output = L"") {
    Properties p = {
        {L"command", command}, {L"class", L"Disks"}, {L"code", L"sdb"}, {L"field", L"Size"}};
    if (!output.empty()) p.emplace_back(L"output", output);
    return p;
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
};

// ---------------------------------------------------------------- process creation

TEST_F(MifFaultInjectionTest, ProcessCreationFailureOfAScannerIsRetriedNotRemembered) {
  PluginHarness host;
  HostFaults::instance().failProcessCreationAt = 1;
  EXPECT_EQ(host.evaluateOnce(L"CustomScanInfo", info(L"disks")).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  Evaluation again = host.evaluateOnce(L"CustomScanInfo", info(L"disks"));
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.scalar, L"0");
}

// ---------------------------------------------------------------- output stream

TEST_F(MifFaultInjectionTest, MissingOutputStreamOfAScannerIsRetriedNotRemembered) {
  // The scanner writes its MIF to a file and nothing to its output.
  PluginHarness host;
  const std::string file = m_Sandbox.root() + "/disks.mif";
  HostFaults::instance().noOutputStream = true;
  EXPECT_EQ(
      host.evaluateOnce(L"CustomScanInfo", info(L"noop", std::wstring(file.begin(), file.end())))
          .code,
      CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  HostFaults::instance().noOutputStream = false;
  Evaluation again =
      host.evaluateOnce(L"CustomScanInfo", info(L"noop", std::wstring(file.begin(), file.end())));
  EXPECT_EQ(again.code, 0);
  EXPECT_EQ(again.scalar, L"0");
}

TEST_F(MifFaultInjectionTest, StreamEndingMidwayThroughMifIsAParseFailureOrTheTable) {
  PluginHarness host;
  const std::string text = cstest::kDisksMif;
  std::set<TErrorCode> seen;
  for (std::size_t cut = 0; cut <= text.size(); cut += 7) {
    HostFaults::instance().streamEndAfterBytes = static_cast<long>(cut);
    Properties p = info(L"disks");
    p[0].second = L"disks " + std::to_wstring(cut);  // a distinct request each time
    Evaluation e = host.evaluateOnce(L"CustomScanInfo", p);
    seen.insert(e.code);
    EXPECT_TRUE(e.code == CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF || e.code == 0 ||
                e.code == CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED)
        << "cut at " << cut << ": " << e.code;
  }
  EXPECT_TRUE(seen.count(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF));
}

// ---------------------------------------------------------------- output file

TEST_F(MifFaultInjectionTest, OutputFileThatFailsOnReadIsItsCodeAndRetried) {
  // A directory opens for reading, and then every read of it fails.
  PluginHarness host;
  const std::wstring directory(m_Sandbox.root().begin(), m_Sandbox.root().end());
  EXPECT_EQ(host.evaluateOnce(L"CustomScanInfo", info(L"noop", directory)).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(host.evaluateOnce(L"CustomScanInfo", info(L"noop", directory)).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
}

// ---------------------------------------------------------------- allocation

TEST_F(MifFaultInjectionTest, AllocationCountdownOverAMifRequestFromStandardOutput) {
  Evaluation good;
  good.scalar = L"0";
  CountdownReport report = allocationCountdown(L"CustomScanInfo", info(L"disks"), good);
  std::printf("CustomScanInfo from standard output: %s\n", describe(report).c_str());
  RecordProperty("allocation_points", static_cast<int>(report.points));
  EXPECT_GT(report.points, 0);
  expectOutcomesAmong(report, {0, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT,
                               PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY});
}

TEST_F(MifFaultInjectionTest, AllocationCountdownOverAMifRequestFromAnOutputFile) {
  Evaluation good;
  good.scalar = L"0";
  const std::string file = m_Sandbox.root() + "/disks.mif";
  CountdownReport report = allocationCountdown(
      L"CustomScanInfo", info(L"noop", std::wstring(file.begin(), file.end())), good);
  std::printf("CustomScanInfo from an output file: %s\n", describe(report).c_str());
  RecordProperty("allocation_points", static_cast<int>(report.points));
  // The command's output and the file's bytes each come from the host allocator.
  EXPECT_GT(report.points, 1);
  expectOutcomesAmong(report, {0, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT,
                               CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE,
                               PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY});
}

}  // namespace
