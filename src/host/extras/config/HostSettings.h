#pragma once
// The host's own side of its configuration: what an agent (or the customscan
// tool) sets and the plug-in then reads through ZelCfg. Plug-in code cannot
// include this header.

#include "base/String.h"

class HostSettings {
 public:
  // The custom scanner directory that ZelCfg::getCustomScannerDir() returns.
  static void setCustomScannerDir(const String& directory);
};
