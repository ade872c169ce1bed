// Faults injected through the host stand-in's seam (base/HostFaults.h) into
// the command operands and the process runner: process creation failing, no
// output stream, a stream that ends early, and an allocation failing at every
// point of a whole request in turn. Every outcome is a code or success;
// nothing crashes or leaks (the sanitizer pass checks), and no child or
// descriptor is left behind. The MIF requests' share is in
// MifFaultInjectionTest.cpp.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "CustomScanPlugin.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"
#include "common/Command.h"
#include "common/MemoryBuffer.h"
#include "sdk/Expression.h"
#include "sdk/PluginTypes.h"

using CustomScanPlugin::Command;
using CustomScanPlugin::MemoryBuffer;

namespace {

typedef std::vector<std::pair<std::wstring, std::wstring>> Properties;

struct Evaluation {
  TErrorCode code = 0;
  std::wstring scalar;
  std::vector<std::wstring> vector;
};

// One operand evaluation, as a host makes it: create, set properties, ask,
// destroy.
Evaluation evaluateIn(PluginSDK::CustomScanPlugin& plugin, const std::wstring& operand,
                      const Properties& properties) {
  Evaluation e;
  PluginSDK::Expression* expression = nullptr;
  e.code = plugin.createExpression(operand.c_str(), &expression);
  if (e.code != 0) return e;
  for (const auto& p : properties) expression->setProperty(p.first.c_str(), p.second.c_str());
  if (auto* scalar = dynamic_cast<PluginSDK::ScalarExpression*>(expression)) {
    PluginSDK::String result;
    e.code = scalar->getScalarResult(result);
    e.scalar = result.wstr();
  } else if (auto* vector = dynamic_cast<PluginSDK::VectorExpression*>(expression)) {
    PluginSDK::StringVector result;
    e.code = vector->getVectorResult(result);
    for (std::size_t i = 0; i < result.size(); ++i) e.vector.push_back(result[i].wstr());
  }
  plugin.destroyExpression(expression);
  return e;
}

// The same in a plug-in lifetime of its own.
Evaluation evaluate(const std::wstring& operand, const Properties& properties) {
  PluginSDK::CustomScanPlugin plugin;
  plugin.initializePlugin();
  Evaluation e = evaluateIn(plugin, operand, properties);
  plugin.cleanupPlugin();
  return e;
}

class FaultInjectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HostFaults::reset();
    m_Sandbox.installChild("child");
  }
  void TearDown() override {
    HostFaults::reset();
    EXPECT_FALSE(m_Sandbox.canaryRan());
    m_Hygiene.verify();
  }

  TErrorCode runChild(const std::string& steps, std::string& output) {
    MemoryBuffer buffer(1024, 4096);
    TErrorCode code = Command::run(String((m_Sandbox.inDir("child") + " " + steps).c_str()), buffer);
    output.assign(reinterpret_cast<const char*>(buffer.getData()));
    return code;
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
};

TEST_F(FaultInjectionTest, ProcessCreationFailureIsItsCodeAndStartsNothing) {
  HostFaults::instance().failProcessCreationAt = 1;
  cstest::TraceCapture trace(Trace::Error);
  std::string output;
  EXPECT_EQ(runChild("touch " + m_Sandbox.root() + "/started", output),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  EXPECT_FALSE(cstest::fileExists(m_Sandbox.root() + "/started"));
  ASSERT_EQ(trace.texts(Trace::Error).size(), 1u);
  EXPECT_EQ(trace.texts(Trace::Error)[0].rfind("Unable to create the process for command ", 0), 0u);
}

TEST_F(FaultInjectionTest, ProcessCreationFailureOfRunCommandGivesNoResult) {
  HostFaults::instance().failProcessCreationAt = 1;
  Evaluation e = evaluate(L"RunCommand", {{L"path", L"child print x"}});
  EXPECT_EQ(e.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  EXPECT_EQ(e.scalar, L"");
}

TEST_F(FaultInjectionTest, MissingOutputStreamIsItsCodeUnlessTheChildFails) {
  HostFaults::instance().noOutputStream = true;
  std::string output;
  EXPECT_EQ(runChild("exit 0", output), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_EQ(output, "");
  // A failing exit status is reported over the missing stream.
  EXPECT_EQ(runChild("exit 3", output), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
}

TEST_F(FaultInjectionTest, StreamEndingEarlyAfterTheChildIsDoneLooksLikeTheEnd) {
  // The stream interface has one sign for the end and for a failed read:
  // when the child has already written everything and exits 0, the cut
  // output is all the plug-in can see. Pinned here; docs/reliability.md
  // lists it among the risks.
  HostFaults::instance().streamEndAfterBytes = 3;
  std::string output;
  EXPECT_EQ(runChild("print abcdef", output), 0);
  EXPECT_EQ(output, "abc");
}

// ---------------------------------------------------------------- allocation

struct CountdownReport {
  long points = 0;  // allocations of the request, each made to fail once
  std::map<TErrorCode, long> outcomes;
};

// Fails the Nth host allocation of one request, for N = 1, 2, ... until the
// request runs to its end without reaching N. Each request runs in a fresh
// plug-in lifetime. After the failed request the same plug-in must answer
// the same request correctly: a fault must not be remembered as a broken
// scanner.
CountdownReport countdown(const std::wstring& operand, const Properties& properties, const Evaluation& good) {
  CountdownReport report;
  for (long n = 1;; ++n) {
    PluginSDK::CustomScanPlugin plugin;
    plugin.initializePlugin();
    HostFaults::reset();
    HostFaults::instance().failAllocationAt = n;
    Evaluation failed = evaluateIn(plugin, operand, properties);
    const bool reached = HostFaults::instance().failAllocationAt <= 0;
    HostFaults::reset();
    if (!reached) {
      EXPECT_EQ(failed.code, good.code) << "no fault injected at " << n;
      report.points = n - 1;
      plugin.cleanupPlugin();
      break;
    }
    ++report.outcomes[failed.code];
    if (failed.code != 0) {
      EXPECT_TRUE(failed.scalar.empty()) << "allocation " << n;
      EXPECT_TRUE(failed.vector.empty()) << "allocation " << n;
    } else {
      EXPECT_EQ(failed.scalar, good.scalar) << "allocation " << n;
      EXPECT_EQ(failed.vector, good.vector) << "allocation " << n;
    }
    Evaluation after = evaluateIn(plugin, operand, properties);
    EXPECT_EQ(after.code, good.code) << "after a failed allocation " << n;
    EXPECT_EQ(after.scalar, good.scalar) << "after a failed allocation " << n;
    EXPECT_EQ(after.vector, good.vector) << "after a failed allocation " << n;
    plugin.cleanupPlugin();
    if (n > 100000) {
      ADD_FAILURE() << "the countdown does not end";
      break;
    }
  }
  return report;
}

std::string describe(const CountdownReport& report) {
  std::string text = std::to_string(report.points) + " allocation points;";
  for (const auto& o : report.outcomes) text += " code " + std::to_string(o.first) + " x" + std::to_string(o.second);
  return text;
}

void expectAllowed(const CountdownReport& report, std::set<TErrorCode> allowed) {
  for (const auto& o : report.outcomes) {
    EXPECT_TRUE(allowed.count(o.first)) << "unexpected outcome " << o.first << " (" << describe(report) << ")";
  }
}

TEST_F(FaultInjectionTest, AllocationCountdownOverACommandRequest) {
  Evaluation good;
  good.vector = {L"a", L"b", L"c"};
  CountdownReport report = countdown(L"RunCommandEx", {{L"path", L"child print a\\nb\\nc\\n"}}, good);
  std::printf("RunCommandEx: %s\n", describe(report).c_str());
  EXPECT_GT(report.points, 0);
  expectAllowed(report, {0, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT, PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY});
}

TEST_F(FaultInjectionTest, AllocationCountdownOverALargeOutput) {
  // 200 KiB of output: the buffer grows many times, each growth a point.
  Evaluation good;
  good.scalar = std::wstring(200 * 1024, L'x');
  CountdownReport report = countdown(L"RunCommand", {{L"path", L"child write 204800"}}, good);
  std::printf("RunCommand of 200 KiB: %s\n", describe(report).c_str());
  EXPECT_GT(report.points, 40);
  expectAllowed(report, {0, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT, PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY});
}

}  // namespace
