#include "config/HostSettings.h"

#include <cmath>

namespace {
// Read by the process runner on whichever thread creates a process; set by
// the host before it lets the plug-in run.
struct ProcessSettings {
  double timeoutSeconds = 0;
  bool captureStandardError = false;
  std::size_t keepStandardOutput = 0;
  bool requireSafeScanners = false;
};

ProcessSettings& processSettings() {
  static ProcessSettings settings;
  return settings;
}
}  // namespace

bool HostSettings::setProcessTimeout(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0 || seconds > kMaxProcessTimeoutSeconds) return false;
  processSettings().timeoutSeconds = seconds;
  return true;
}

double HostSettings::getProcessTimeout() { return processSettings().timeoutSeconds; }

void HostSettings::setCaptureStandardError(bool capture) {
  processSettings().captureStandardError = capture;
}

bool HostSettings::getCaptureStandardError() { return processSettings().captureStandardError; }

void HostSettings::setKeepStandardOutput(std::size_t maxBytes) {
  processSettings().keepStandardOutput = maxBytes;
}

std::size_t HostSettings::getKeepStandardOutput() { return processSettings().keepStandardOutput; }

void HostSettings::setRequireSafeScanners(bool require) {
  processSettings().requireSafeScanners = require;
}

bool HostSettings::getRequireSafeScanners() { return processSettings().requireSafeScanners; }
