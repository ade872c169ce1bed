#pragma once
// What the host's process runner found out about the children it started:
// why a creation failed (the system error and, for a script, what in it is
// wrong), how a child ended (exit status, signal, the time limit), and, when
// the host settings ask for them, the last lines of its standard error and a
// copy of its output. Each thread sees the processes it asked for. The same
// facts go to the trace, under the runner's own component.

#include <cstddef>
#include <memory>
#include <string>

struct ProcessReport {
  std::string commandLine;  // as given to Runtime::exec, narrow
  std::string program;      // the program path tried (the line's first word)

  // Creation. A failed creation has created false and a one-line reason
  // ("permission denied: /x/a.sh is not executable (chmod +x /x/a.sh)");
  // creationError is the system error behind it (0 when there is none, as
  // for a refusal or an empty command line).
  bool created = false;
  int creationError = 0;
  std::string creationFailure;

  // The end, once the child has been waited for.
  bool ended = false;
  int exitStatus = -1;         // the status it exited with; -1 if it did not exit
  int signal = 0;              // the signal that ended it; 0 if none
  bool statusUnknown = false;  // no status could be had (SIGCHLD ignored)
  // Ended by the host's time limit (HostSettings::setProcessTimeout).
  bool timedOut = false;
  double timeoutSeconds = 0;
  bool killed = false;  // SIGTERM did not end it within the grace: SIGKILL

  // Standard error, when captured (HostSettings::setCaptureStandardError):
  // its last lines, at most kStandardErrorTailLines lines and
  // kStandardErrorTailBytes bytes, without the final line feed; and how many
  // bytes it wrote in all.
  bool standardErrorCaptured = false;
  std::string standardErrorTail;
  std::size_t standardErrorBytes = 0;

  // Standard output as read from the pipe, when kept
  // (HostSettings::setKeepStandardOutput); complete when the limit was not
  // reached and the stream was read to its end.
  bool outputKept = false;
  bool outputComplete = false;
  std::string output;
};

class ProcessDiagnostics {
 public:
  // The trace component of the host's process runner (the plug-in's is 5).
  static constexpr int kTraceComponent = 1;
  static constexpr std::size_t kStandardErrorTailLines = 20;
  static constexpr std::size_t kStandardErrorTailBytes = 4096;

  // The report of the last process creation this thread asked for since
  // clear(), or null. A running child's report is completed when it is
  // waited for (on whichever thread that happens).
  static std::shared_ptr<const ProcessReport> last();
  // The reason of the last creation this thread asked for if it failed, else
  // an empty string.
  static std::string lastCreationFailure();
  // Forgets this thread's last report.
  static void clear();

  // Why program could not be started when posix_spawn gave error: one line
  // that names the program, the system's reason and, where the file tells
  // more, what is wrong with it (no #! line, a #! line ending in a carriage
  // return, an interpreter that does not exist, no execute permission).
  static std::string explainCreationFailure(const std::string& program, int error);
  // Why the program must not run under HostSettings::setRequireSafeScanners:
  // "refused: PATH is PROBLEM; fix: COMMAND" for the first file or directory
  // on its way that checkProgramSafety (base/ScannerSafety.h) finds writable
  // by group or others or owned by another user than root and the caller, or
  // cannot look at. An empty string when nothing is wrong, or when the
  // program does not exist (its creation then fails for that reason).
  static std::string unsafeProgramReason(const std::string& program);
  // "SIGTERM", or "signal 40" for one without a name.
  static std::string signalName(int signal);

  // Sends signal to the process group of every child started with a time
  // limit that has not been waited for yet. Async-signal-safe: for a host's
  // own handler of SIGINT or SIGTERM, so that its children do not outlive it.
  static void signalActiveProcessGroups(int signal) noexcept;
};
