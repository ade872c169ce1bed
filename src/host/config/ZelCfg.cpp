#include "config/ZelCfg.h"

namespace {
String& scannerDir() {
  static String directory;
  return directory;
}
}  // namespace

String ZelCfg::getCustomScannerDir() { return scannerDir(); }

void ZelCfg::setCustomScannerDir(const String& directory) { scannerDir() = directory; }
