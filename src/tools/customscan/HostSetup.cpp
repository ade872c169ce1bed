#include "HostSetup.h"

#include <string>

#include "config/HostSettings.h"
#include "config/ZelCfg.h"

namespace CustomScanTool {

namespace {
// Resolves both paths (in this order, so usage errors come as before) and
// sets the scanner directory; returns the plug-in's path.
std::string prepareHost(const ToolOptions& options) {
  const std::string scannerDir = options.resolvedScannerDir();
  std::string pluginPath = options.resolvedPluginPath();
  HostSettings::setCustomScannerDir(String(scannerDir.c_str()));
  return pluginPath;
}
}  // namespace

HostSetup::HostSetup(const ToolOptions& options)
    : m_Sink(options.traceLevel),
      m_TraceScope(options.traceLevel > 0 ? &m_Sink : nullptr),
      m_Library(prepareHost(options)),
      m_ProcessSettings(options) {}

}  // namespace CustomScanTool
