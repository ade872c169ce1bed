#pragma once
// The options shared by the subcommands, and what they resolve to.

#include <string>
#include <vector>

#include "NameValue.h"

namespace CustomScanTool {

struct ToolOptions {
  std::string pluginPath;                     // --plugin
  std::string scannerDir;                     // --scanner-dir
  std::vector<std::string> pluginProperties;  // --plugin-property, in order
  int traceLevel = 0;                         // --trace[=LEVEL]; 0: no trace
  bool json = false;                          // --json
  bool failOnError = false;                   // batch --fail-on-error
  double timeout = 0;                         // --timeout SECONDS; 0: no limit
  bool requireSafeScanners = false;           // --require-safe-scanners
  // Whether the scanners' standard error is captured and attached to the
  // answers (eval --json, batch) instead of passed through.
  bool captureStandardError = false;

  // --plugin-property values split at their first "="; throws UsageError.
  std::vector<NameValue> parsedPluginProperties() const;
  // --plugin, else the default plug-in (PluginLibrary::defaultPath).
  std::string resolvedPluginPath() const;
  // --scanner-dir, else $CUSTOMSCAN_SCANNER_DIR, resolved as the kernel
  // resolves it (absolute, symbolic links and "." and ".." steps followed)
  // and given a trailing separator when it was written with one. Throws
  // UsageError when neither is given or the directory does not exist, is
  // not a directory or cannot be searched.
  std::string resolvedScannerDir() const;
};

}  // namespace CustomScanTool
