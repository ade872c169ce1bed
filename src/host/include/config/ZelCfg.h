#pragma once
// The host configuration library: settings the host agent was given.

#include "base/String.h"

class ZelCfg {
 public:
  // The custom scanner directory exactly as the host set it (empty if unset).
  static String getCustomScannerDir();
};
