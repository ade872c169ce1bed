#include "config/ZelCfg.h"

#include "config/HostSettings.h"

namespace {
String& scannerDir() {
  static String directory;
  return directory;
}
}  // namespace

String ZelCfg::getCustomScannerDir() { return scannerDir(); }

void HostSettings::setCustomScannerDir(const String& directory) { scannerDir() = directory; }
