#pragma once
// The host's own side of its configuration: what an agent (or the customscan
// tool) sets and the plug-in then reads through ZelCfg, and how the host's
// process runner treats the children it starts for the plug-in. Plug-in code
// cannot include this header. Every setting has the default an agent that
// never calls the setter would expect.

#include <cstddef>

#include "base/String.h"

class HostSettings {
 public:
  // The custom scanner directory that ZelCfg::getCustomScannerDir() returns.
  static void setCustomScannerDir(const String& directory);

  // The time a child may run, in seconds, from its start until it has ended
  // (0: no limit, the default). When it passes, the host sends SIGTERM (and
  // SIGCONT) to the child's whole process group, and SIGKILL once
  // kProcessTimeoutGraceSeconds more have passed; the output stream then ends
  // and the wait returns the signal status. With a limit set, children start
  // in a process group of their own. Applies to processes created after the
  // call. Returns false, and changes nothing, for a value that is negative,
  // not finite or above kMaxProcessTimeoutSeconds.
  static bool setProcessTimeout(double seconds);
  static double getProcessTimeout();
  static constexpr double kMaxProcessTimeoutSeconds = 1e9;
  static constexpr double kProcessTimeoutGraceSeconds = 2.0;

  // Whether a child's standard error is captured by the host (read through a
  // pipe of its own, its last lines kept in ProcessDiagnostics) instead of
  // going to the host's own standard error. Off by default.
  static void setCaptureStandardError(bool capture);
  static bool getCaptureStandardError();

  // Keeps a copy of up to maxBytes of every child's standard output, as read
  // from the pipe, in ProcessDiagnostics (0: none, the default).
  static void setKeepStandardOutput(std::size_t maxBytes);
  static std::size_t getKeepStandardOutput();

  // Whether process creation refuses a program that another user could have
  // changed: the file (symbolic links resolved) or a directory on its path
  // writable by group or others (a sticky directory excepted for an entry of
  // root or the caller), or owned by a user other than the caller and root,
  // as checkProgramSafety (base/ScannerSafety.h) finds. The refusal is a
  // failed creation whose reason ProcessDiagnostics gives. Off by default.
  static void setRequireSafeScanners(bool require);
  static bool getRequireSafeScanners();
};
