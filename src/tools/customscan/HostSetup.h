#pragma once
// What eval and batch set up before the plug-in runs, as a host agent would:
// the scanner directory in the host configuration, the --trace sink, the
// loaded plug-in library and the host's process settings. Everything is
// undone when the object goes away, the library last.

#include "PluginLibrary.h"
#include "ProcessSettingsScope.h"
#include "StderrTraceSink.h"
#include "ToolOptions.h"

namespace CustomScanTool {

class HostSetup {
 public:
  // Throws UsageError for a missing scanner directory or a plug-in that
  // cannot be loaded.
  explicit HostSetup(const ToolOptions& options);
  HostSetup(const HostSetup&) = delete;
  HostSetup& operator=(const HostSetup&) = delete;

  PluginLibrary& library() { return m_Library; }

 private:
  StderrTraceSink m_Sink;
  TraceSinkScope m_TraceScope;
  PluginLibrary m_Library;
  ProcessSettingsScope m_ProcessSettings;
};

}  // namespace CustomScanTool
