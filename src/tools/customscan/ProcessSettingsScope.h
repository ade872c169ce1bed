#pragma once
// How the host's process runner treats the scanners that eval and batch run:
// their time limit (--timeout), where their standard error goes (captured
// for --json and batch, the tool's own otherwise), whether only safe
// scanners may start (--require-safe-scanners), and a copy of their output
// for the tool's hints. Set while the object lives, then back to the host's
// defaults. With a time limit, scanners run in process groups of their own,
// out of reach of the terminal's Ctrl-C; the tool then passes SIGINT, SIGTERM
// and SIGHUP on to them, answers the request they were running, and exits
// with 128 + the signal's number once everything is released (a second
// signal ends it at once).

#include "ToolOptions.h"

namespace CustomScanTool {

class ProcessSettingsScope {
 public:
  // Throws UsageError for a time limit the host does not take.
  explicit ProcessSettingsScope(const ToolOptions& options);
  ProcessSettingsScope(const ProcessSettingsScope&) = delete;
  ProcessSettingsScope& operator=(const ProcessSettingsScope&) = delete;
  ~ProcessSettingsScope();

  // The signal passed on to the scanners, or 0.
  static int receivedSignal();

 private:
  bool m_Forwarding = false;
};

}  // namespace CustomScanTool
