#include "ProcessSettingsScope.h"

#include <signal.h>

#include <string>

#include "RequestDiagnostics.h"
#include "UsageError.h"
#include "base/ProcessDiagnostics.h"
#include "config/HostSettings.h"

namespace CustomScanTool {

namespace {

constexpr int kForwardedSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t g_ReceivedSignal = 0;

// Passes the signal on to the scanners' process groups; the scanner that
// runs then ends, and the tool with it. The handler was reset on entry, so a
// second signal ends the tool at once.
void forwardAndEnd(int signal) {
  g_ReceivedSignal = signal;
  ProcessDiagnostics::signalActiveProcessGroups(signal);
}

}  // namespace

ProcessSettingsScope::ProcessSettingsScope(const ToolOptions& options) {
  if (!HostSettings::setProcessTimeout(options.timeout)) {
    throw UsageError("--timeout " + std::to_string(options.timeout) +
                     ": give the time limit in seconds, from 0 (none) to 1000000000");
  }
  HostSettings::setCaptureStandardError(options.captureStandardError);
  HostSettings::setRequireSafeScanners(options.requireSafeScanners);
  HostSettings::setKeepStandardOutput(RequestDiagnostics::kKeptOutputBytes);
  if (options.timeout > 0) {
    struct sigaction action {};
    action.sa_handler = forwardAndEnd;
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int signal : kForwardedSignals) {
      struct sigaction previous {};
      // A signal the tool was started with ignored stays ignored.
      if (::sigaction(signal, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
      ::sigaction(signal, &action, nullptr);
    }
    m_Forwarding = true;
  }
}

int ProcessSettingsScope::receivedSignal() { return g_ReceivedSignal; }

ProcessSettingsScope::~ProcessSettingsScope() {
  if (m_Forwarding) {
    for (int signal : kForwardedSignals) {
      struct sigaction current {};
      if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == forwardAndEnd) {
        ::signal(signal, SIG_DFL);
      }
    }
  }
  HostSettings::setProcessTimeout(0);
  HostSettings::setCaptureStandardError(false);
  HostSettings::setRequireSafeScanners(false);
  HostSettings::setKeepStandardOutput(0);
}

}  // namespace CustomScanTool
