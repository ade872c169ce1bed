#include "base/Runtime.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "base/HostFaults.h"
#include "base/ProcessDiagnostics.h"
#include "base/ProcessExtras.h"
#include "base/StringExtras.h"
#include "base/WideText.h"
#include "config/HostSettings.h"
#include "trace/Trace.h"

namespace {

// Closes a descriptor when it goes out of scope.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : m_Fd(fd) {}
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }
  int get() const { return m_Fd; }
  int release() {
    int fd = m_Fd;
    m_Fd = -1;
    return fd;
  }
  void reset(int fd = -1) {
    if (m_Fd >= 0) ::close(m_Fd);
    m_Fd = fd;
  }

 private:
  int m_Fd;
};

// The read buffer of an output stream: 64 KiB, one read() each. One spare
// is kept from one process to the next, because a fresh block per child
// costs an allocation and, when it is freed, a sweep of the allocator's
// small free blocks. Processes alive at the same time (on any thread) that
// find no spare allocate their own; the spare is freed at exit.
constexpr std::size_t kReadBufferSize = std::size_t{64} * 1024;
std::atomic<unsigned char*> g_SpareReadBuffer{nullptr};

struct SpareReadBufferRelease {
  SpareReadBufferRelease() = default;
  SpareReadBufferRelease(const SpareReadBufferRelease&) = delete;
  SpareReadBufferRelease& operator=(const SpareReadBufferRelease&) = delete;
  ~SpareReadBufferRelease() { delete[] g_SpareReadBuffer.exchange(nullptr); }
} g_SpareReadBufferRelease;

// The spare buffer, or a new one (std::bad_alloc when there is none).
unsigned char* takeReadBuffer() {
  unsigned char* buffer = g_SpareReadBuffer.exchange(nullptr);
  return buffer != nullptr ? buffer : new unsigned char[kReadBufferSize];
}

// Keeps buffer as the spare, freeing the one it replaces.
void returnReadBuffer(unsigned char* buffer) { delete[] g_SpareReadBuffer.exchange(buffer); }

using Clock = std::chrono::steady_clock;

// ---------------------------------------------------------------- reports

// The report of the last creation each thread asked for.
thread_local std::shared_ptr<ProcessReport> t_LastReport;

constexpr char kSourceFile[] = "src/host/base/Runtime";
constexpr char kExecLabel[] = "Runtime::exec";
constexpr char kWatchLabel[] = "Process::timeLimit";

Tracer* runnerTracer() { return Tracer::getInstance(ProcessDiagnostics::kTraceComponent); }

// Marks the report as a failed creation and traces why.
void failCreation(ProcessReport& report, int error, std::string reason) {
  report.created = false;
  report.creationError = error;
  report.creationFailure = std::move(reason);
  Trace(runnerTracer(), kExecLabel, Trace::Error)
      << Trace::pos(kSourceFile, __LINE__) << "Unable to start " << report.program.c_str() << ": "
      << report.creationFailure.c_str() << Trace::End;
}

// "1 s", "0.5 s", "90 s".
std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", seconds);
  return text;
}

// ---------------------------------------------------------------- groups

// The process groups of children started with a time limit and not yet
// reaped, for ProcessDiagnostics::signalActiveProcessGroups (a signal
// handler): a fixed table of lock-free slots, 0 when free. A child that finds
// no free slot is still limited in time; only a host's handler misses it.
constexpr int kGroupSlots = 64;
std::atomic<pid_t> g_ActiveGroups[kGroupSlots];

void registerGroup(pid_t group) {
  for (auto& slot : g_ActiveGroups) {
    pid_t expected = 0;
    if (slot.compare_exchange_strong(expected, group)) return;
  }
}

void unregisterGroup(pid_t group) {
  for (auto& slot : g_ActiveGroups) {
    pid_t expected = group;
    if (slot.compare_exchange_strong(expected, 0)) return;
  }
}

// ---------------------------------------------------------------- the watch

// What the output stream and the process share about one child when the host
// watches it: its time limit, the pipe of its standard error and the copy of
// its output. A child without a limit and without a capture is not watched;
// its stream and wait then block in read() and waitpid() as before.
class ChildWatch {
 public:
  ChildWatch(std::shared_ptr<ProcessReport> report, double timeoutSeconds, std::size_t keepOutput)
      : m_Report(std::move(report)), m_TimeoutSeconds(timeoutSeconds), m_KeepOutput(keepOutput) {
    m_Report->timeoutSeconds = timeoutSeconds;
    if (m_KeepOutput > 0) m_Report->outputKept = true;
  }
  ChildWatch(const ChildWatch&) = delete;
  ChildWatch& operator=(const ChildWatch&) = delete;
  ~ChildWatch() {
    if (m_Registered) unregisterGroup(m_Pid);
    closeStandardError();
  }

  // Takes the running child; its time limit starts now.
  void start(pid_t pid, int errorFd, bool ownGroup) noexcept {
    m_Pid = pid;
    m_ErrorFd = errorFd;
    if (errorFd >= 0) m_Report->standardErrorCaptured = true;
    if (m_TimeoutSeconds > 0) {
      m_Deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(m_TimeoutSeconds));
      m_HasDeadline = true;
    }
    if (ownGroup) {
      m_OwnGroup = true;
      registerGroup(pid);
      m_Registered = true;
    }
  }

  // Whether the stream and the wait must watch the clock or a second pipe.
  bool watched() const { return m_HasDeadline || m_ErrorFd >= 0; }
  bool killed() const { return m_Stage == kKilled; }
  int errorFd() const { return m_ErrorFd; }

  // Milliseconds until the next deadline, rounded up, for poll(); -1 when
  // there is none.
  int pollTimeout() const {
    if (!m_HasDeadline) return -1;
    auto left = m_Deadline - Clock::now();
    if (left <= Clock::duration::zero()) return 0;
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    constexpr decltype(ms) kDay = decltype(ms){24} * 60 * 60 * 1000;
    return static_cast<int>(std::min(ms, kDay));
  }

  // Acts on a deadline that has passed: first SIGTERM (and SIGCONT, for a
  // stopped child) to the child's process group and a grace period, then
  // SIGKILL. Does nothing before the deadline.
  void checkDeadline() {
    if (!m_HasDeadline || m_Reaped || Clock::now() < m_Deadline) return;
    if (m_Stage == kRunning) {
      signalChild(SIGTERM);
      signalChild(SIGCONT);
      m_Stage = kTerminated;
      m_Report->timedOut = true;
      m_Deadline = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(
                       std::chrono::duration<double>(HostSettings::kProcessTimeoutGraceSeconds));
      Trace(runnerTracer(), kWatchLabel, Trace::Error)
          << Trace::pos(kSourceFile, __LINE__) << "The process " << static_cast<int>(m_Pid) << " ("
          << m_Report->program.c_str() << ") ran past the time limit of "
          << secondsText(m_TimeoutSeconds).c_str() << "; SIGTERM sent to its process group"
          << Trace::End;
      return;
    }
    if (m_Stage == kTerminated) {
      signalChild(SIGKILL);
      m_Stage = kKilled;
      m_HasDeadline = false;
      m_Report->killed = true;
      Trace(runnerTracer(), kWatchLabel, Trace::Warning)
          << Trace::pos(kSourceFile, __LINE__) << "The process " << static_cast<int>(m_Pid)
          << " did not end within "
          << secondsText(HostSettings::kProcessTimeoutGraceSeconds).c_str()
          << " of SIGTERM; SIGKILL sent to its process group" << Trace::End;
    }
  }

  // One read() of the standard error pipe into the kept tail; closes the
  // pipe at its end.
  void readStandardError() {
    if (m_ErrorFd < 0) return;
    char buffer[4096];
    ssize_t n = ::read(m_ErrorFd, buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (n <= 0) {
      closeStandardError();
      return;
    }
    keepStandardError(buffer, static_cast<std::size_t>(n));
  }

  // Reads what the standard error pipe holds now, without waiting, then
  // closes it: the child has ended, and whoever still holds the pipe (a
  // descendant) is not waited for. Bounded, should one write without end.
  void drainStandardError() {
    if (m_ErrorFd < 0) return;
    ::fcntl(m_ErrorFd, F_SETFL, ::fcntl(m_ErrorFd, F_GETFL) | O_NONBLOCK);
    char buffer[4096];
    for (std::size_t total = 0; total < kMaxDrain;) {
      ssize_t n = ::read(m_ErrorFd, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      keepStandardError(buffer, static_cast<std::size_t>(n));
      total += static_cast<std::size_t>(n);
    }
    closeStandardError();
  }

  // Copies output bytes into the report, up to the kept size.
  void keepOutput(const unsigned char* data, std::size_t n) {
    if (m_KeepOutput == 0) return;
    std::string& kept = m_Report->output;
    const std::size_t room = m_KeepOutput - std::min(m_KeepOutput, kept.size());
    if (n > room) m_OutputCut = true;
    kept.append(reinterpret_cast<const char*>(data), std::min(n, room));
  }
  // The stream has reached its true end (not an early one).
  void outputEnded() { m_OutputEnded = true; }

  // Sends the final facts to the report once the child is reaped.
  void finish(int rawStatus, bool haveStatus) {
    m_Reaped = true;
    if (m_Registered) {
      unregisterGroup(m_Pid);
      m_Registered = false;
    }
    drainStandardError();
    ProcessReport& report = *m_Report;
    report.ended = true;
    if (!haveStatus) {
      report.statusUnknown = true;
    } else if (WIFEXITED(rawStatus)) {
      report.exitStatus = WEXITSTATUS(rawStatus);
    } else if (WIFSIGNALED(rawStatus)) {
      report.signal = WTERMSIG(rawStatus);
    }
    report.standardErrorTail = tail();
    report.standardErrorBytes = m_ErrorBytes;
    report.outputComplete = report.outputKept && m_OutputEnded && !m_OutputCut;
  }

 private:
  enum Stage { kRunning, kTerminated, kKilled };
  static constexpr std::size_t kMaxDrain = std::size_t{1} << 20;

  void signalChild(int signal) {
    if (m_Reaped || m_Pid <= 0) return;
    // The child itself too, should it have left its group.
    if (m_OwnGroup) ::kill(-m_Pid, signal);
    ::kill(m_Pid, signal);
  }

  void closeStandardError() {
    if (m_ErrorFd >= 0) ::close(m_ErrorFd);
    m_ErrorFd = -1;
  }

  // Keeps at most twice the tail's bytes, cut back to the tail's size.
  void keepStandardError(const char* data, std::size_t n) {
    m_ErrorBytes += n;
    m_ErrorText.append(data, n);
    const std::size_t limit = ProcessDiagnostics::kStandardErrorTailBytes;
    if (m_ErrorText.size() > 2 * limit) {
      m_ErrorText.erase(0, m_ErrorText.size() - limit);
      m_ErrorTextCut = true;
    }
  }

  // The last lines of standard error: at most kStandardErrorTailBytes bytes
  // and kStandardErrorTailLines lines, without the final line feed. A line
  // cut by the byte bound is dropped unless it is the only one.
  std::string tail() const {
    std::string text = m_ErrorText;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    bool cut = m_ErrorTextCut;
    if (text.size() > ProcessDiagnostics::kStandardErrorTailBytes) {
      text.erase(0, text.size() - ProcessDiagnostics::kStandardErrorTailBytes);
      cut = true;
    }
    if (cut) {
      std::size_t newline = text.find('\n');
      if (newline != std::string::npos) text.erase(0, newline + 1);
    }
    std::size_t lines = 0;
    for (std::size_t at = text.size(); at > 0; --at) {
      if (text[at - 1] == '\n' && ++lines == ProcessDiagnostics::kStandardErrorTailLines) {
        text.erase(0, at);
        break;
      }
    }
    return text;
  }

  std::shared_ptr<ProcessReport> m_Report;
  double m_TimeoutSeconds;
  std::size_t m_KeepOutput;
  pid_t m_Pid = 0;
  bool m_OwnGroup = false;
  bool m_Registered = false;
  bool m_Reaped = false;
  bool m_HasDeadline = false;
  Clock::time_point m_Deadline{};
  Stage m_Stage = kRunning;
  int m_ErrorFd = -1;
  std::string m_ErrorText;
  bool m_ErrorTextCut = false;
  std::size_t m_ErrorBytes = 0;
  bool m_OutputCut = false;
  bool m_OutputEnded = false;
};

class PipeInputStream : public ProcessInputStream {
 public:
  // Reads fd, which the stream then owns. With endAfter >= 0 the stream
  // reports its end after that many bytes (the HostFaults seam). watch is
  // the child's, owned by its process.
  PipeInputStream(int fd, long endAfter, ChildWatch& watch)
      : m_Fd(fd), m_Buffer(takeReadBuffer()), m_Remaining(endAfter), m_Watch(watch) {}
  ~PipeInputStream() override { returnReadBuffer(m_Buffer); }
  void close() { m_Fd.reset(); }
  void attach(int fd) { m_Fd.reset(fd); }

 protected:
  int refill() override {
    if (m_Remaining == 0) {
      // An early end closes the pipe, so that a child still writing is not
      // left blocked on a full pipe while the caller waits for it.
      m_Fd.reset();
      return -1;
    }
    if (!fill()) return -1;
    if (m_Remaining > 0) {
      // Hand out no more than the bytes left before the early end.
      if (m_End - m_Next > m_Remaining) m_End = m_Next + m_Remaining;
      m_Remaining -= m_End - m_Next;
    }
    m_Watch.keepOutput(m_Next, static_cast<std::size_t>(m_End - m_Next));
    return *m_Next++;
  }

 private:
  bool fill() {
    if (m_Fd.get() < 0) return false;
    if (m_Watch.watched()) return fillWatched();
    for (;;) {
      ssize_t n = ::read(m_Fd.get(), m_Buffer, kReadBufferSize);
      if (n > 0) {
        m_Next = m_Buffer;
        m_End = m_Buffer + n;
        return true;
      }
      if (n < 0 && errno == EINTR) continue;
      // End of the stream, or an error that ends it.
      endOfStream(n == 0);
      return false;
    }
  }

  // The read of a watched child: poll() on the output and the standard error
  // pipe, never past the time limit; standard error is kept as it comes, so
  // that a child writing much there is never blocked on it.
  bool fillWatched() {
    for (;;) {
      if (m_Watch.killed()) {
        // The group was killed: whatever still holds the pipe is not waited for.
        m_Fd.reset();
        return false;
      }
      pollfd fds[2] = {{m_Fd.get(), POLLIN, 0}, {m_Watch.errorFd(), POLLIN, 0}};
      const nfds_t count = m_Watch.errorFd() >= 0 ? 2 : 1;
      int ready = ::poll(fds, count, m_Watch.pollTimeout());
      if (ready < 0) {
        if (errno == EINTR) continue;
        endOfStream(false);
        return false;
      }
      if (ready == 0) {
        m_Watch.checkDeadline();
        continue;
      }
      if (count == 2 && fds[1].revents != 0) m_Watch.readStandardError();
      if (fds[0].revents == 0) continue;
      ssize_t n = ::read(m_Fd.get(), m_Buffer, kReadBufferSize);
      if (n > 0) {
        m_Next = m_Buffer;
        m_End = m_Buffer + n;
        return true;
      }
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      endOfStream(n == 0);
      return false;
    }
  }

  void endOfStream(bool trueEnd) {
    if (trueEnd) m_Watch.outputEnded();
    m_Fd.reset();
  }

  UniqueFd m_Fd;
  unsigned char* m_Buffer;
  long m_Remaining;
  ChildWatch& m_Watch;
};

class ChildProcess : public Process {
 public:
  // Everything that can fail to allocate happens here, before the child
  // exists; start() cannot fail.
  ChildProcess(bool withStream, long streamEndAfter, std::shared_ptr<ProcessReport> report,
               double timeoutSeconds, std::size_t keepOutput)
      : m_Watch(std::move(report), timeoutSeconds, keepOutput) {
    if (withStream) m_Stream = std::make_unique<PipeInputStream>(-1, streamEndAfter, m_Watch);
  }
  ~ChildProcess() override {
    if (m_Stream) m_Stream->close();
    if (m_Pid > 0 && !m_Waited) waitFor();
  }
  // Takes the running child, the read end of its output pipe (-1 when the
  // process has no stream) and of its standard error pipe (-1 when not
  // captured).
  void start(pid_t pid, int outFd, int errorFd, bool ownGroup) noexcept {
    m_Pid = pid;
    if (m_Stream) {
      m_Stream->attach(outFd);
    } else if (outFd >= 0) {
      ::close(outFd);
    }
    m_Watch.start(pid, errorFd, ownGroup);
  }
  ProcessInputStream* getInputStream() override { return m_Stream.get(); }
  int waitFor() override {
    if (m_Waited) return m_Status;
    m_Waited = true;
    int status = 0;
    const bool haveStatus = m_Watch.watched() ? waitWatched(status) : waitBlocking(status);
    m_Watch.finish(status, haveStatus);
    // -1 when no status could be had (for example SIGCHLD ignored by the host).
    m_Status = -1;
    if (haveStatus && WIFEXITED(status)) {
      m_Status = WEXITSTATUS(status);
    } else if (haveStatus && WIFSIGNALED(status)) {
      m_Status = 128 + WTERMSIG(status);
    }
    return m_Status;
  }
  int pid() const { return static_cast<int>(m_Pid); }

 private:
  bool waitBlocking(int& status) {
    for (;;) {
      pid_t r = ::waitpid(m_Pid, &status, 0);
      if (r == m_Pid) return true;
      if (r < 0 && errno == EINTR) continue;
      return false;
    }
  }

  // Waits for a watched child: keeps reading its standard error and acts on
  // its time limit while it runs. The child's end is seen through a pidfd;
  // where there is none (an older kernel, valgrind), waitpid is asked after
  // 1 ms, then after twice as long each time, up to every 20 ms.
  bool waitWatched(int& status) {
    UniqueFd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, m_Pid, 0)));
    int pause = 1;
    for (;;) {
      pid_t r = ::waitpid(m_Pid, &status, WNOHANG);
      if (r == m_Pid) return true;
      if (r < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      if (!m_Watch.watched() || (m_Watch.killed() && m_Watch.errorFd() < 0)) {
        return waitBlocking(status);
      }
      pollfd fds[2];
      nfds_t count = 0;
      if (pidFd.get() >= 0) fds[count++] = pollfd{pidFd.get(), POLLIN, 0};
      const nfds_t errorIndex = count;
      if (m_Watch.errorFd() >= 0) fds[count++] = pollfd{m_Watch.errorFd(), POLLIN, 0};
      int timeout = m_Watch.pollTimeout();
      if (pidFd.get() < 0) {
        if (timeout < 0 || timeout > pause) timeout = pause;
        pause = std::min(2 * pause, 20);
      }
      int ready = ::poll(fds, count, timeout);
      if (ready < 0 && errno != EINTR) return waitBlocking(status);
      if (ready <= 0) {
        m_Watch.checkDeadline();
        continue;
      }
      if (errorIndex < count && fds[errorIndex].revents != 0) m_Watch.readStandardError();
    }
  }

  pid_t m_Pid = 0;
  ChildWatch m_Watch;
  std::unique_ptr<PipeInputStream> m_Stream;
  bool m_Waited = false;
  int m_Status = -1;
};

bool processCreationShouldFail() {
  HostFaults& faults = HostFaults::instance();
  if (faults.failProcessCreationAt < 0) return false;
  return --faults.failProcessCreationAt == 0;
}

// The attributes of every child: an empty signal mask, and every signal that
// can be caught or ignored at its default action; for a child with a time
// limit, a process group of its own. Made once; posix_spawn only reads them,
// from any thread.
class SpawnAttributes {
 public:
  explicit SpawnAttributes(bool ownGroup) {
    sigset_t empty;
    sigset_t defaults;
    sigemptyset(&empty);
    sigemptyset(&defaults);
    for (int sig = 1; sig < NSIG; ++sig) {
      if (sig != SIGKILL && sig != SIGSTOP) sigaddset(&defaults, sig);
    }
    if (posix_spawnattr_init(&m_Attr) != 0) return;
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (ownGroup) flags |= POSIX_SPAWN_SETPGROUP;
    m_Ready = posix_spawnattr_setsigmask(&m_Attr, &empty) == 0 &&
              posix_spawnattr_setsigdefault(&m_Attr, &defaults) == 0 &&
              (!ownGroup || posix_spawnattr_setpgroup(&m_Attr, 0) == 0) &&
              posix_spawnattr_setflags(&m_Attr, flags) == 0;
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { posix_spawnattr_destroy(&m_Attr); }
  // Null when they could not be made.
  const posix_spawnattr_t* get() const { return m_Ready ? &m_Attr : nullptr; }

 private:
  posix_spawnattr_t m_Attr;
  bool m_Ready = false;
};

// The descriptor set-up of a child: standard input from /dev/null, standard
// output onto the pipe's write end, standard error onto its own pipe when the
// host captures it, everything from 3 up closed. Only the write ends' numbers
// vary, and pipe2 hands out the lowest free numbers, so a thread keeps its
// last actions and makes them anew only for other numbers (each action costs
// the C library a resource-limit call).
class SpawnActions {
 public:
  SpawnActions() = default;
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { reset(); }
  // errorEnd is -1 when standard error stays the host's. Null when they
  // could not be made.
  const posix_spawn_file_actions_t* forOutput(int writeEnd, int errorEnd) {
    if (m_Made && writeEnd == m_WriteEnd && errorEnd == m_ErrorEnd) return &m_Actions;
    reset();
    if (posix_spawn_file_actions_init(&m_Actions) != 0) return nullptr;
    if (posix_spawn_file_actions_addopen(&m_Actions, 0, "/dev/null", O_RDONLY, 0) != 0 ||
        posix_spawn_file_actions_adddup2(&m_Actions, writeEnd, 1) != 0 ||
        (errorEnd >= 0 && posix_spawn_file_actions_adddup2(&m_Actions, errorEnd, 2) != 0) ||
        posix_spawn_file_actions_addclosefrom_np(&m_Actions, 3) != 0) {
      posix_spawn_file_actions_destroy(&m_Actions);
      return nullptr;
    }
    m_Made = true;
    m_WriteEnd = writeEnd;
    m_ErrorEnd = errorEnd;
    return &m_Actions;
  }

 private:
  void reset() {
    if (m_Made) posix_spawn_file_actions_destroy(&m_Actions);
    m_Made = false;
  }
  posix_spawn_file_actions_t m_Actions;
  bool m_Made = false;
  int m_WriteEnd = -1;
  int m_ErrorEnd = -1;
};

thread_local SpawnActions t_SpawnActions;

}  // namespace

Runtime* Runtime::getRuntime() {
  static Runtime runtime;
  return &runtime;
}

namespace {
// Cuts a narrowed command line into its words in place: blanks outside double
// quotes separate words, the quotes themselves are dropped ("" is an empty
// word), and an unclosed quote runs to the end. Each word is followed by a
// zero byte where its separating blank, or the end, was; word(start, length)
// is called for each in order. The words never need more room than the line.
template <typename OnWord>
void cutWords(std::string& line, OnWord word) {
  const std::size_t n = line.size();
  char* text = line.data();
  std::size_t out = 0;
  std::size_t start = 0;
  bool inWord = false;
  bool quoted = false;
  for (std::size_t in = 0; in < n; ++in) {
    const char c = text[in];
    if (c == ' ' && !quoted) {
      if (inWord) {
        word(start, out - start);
        text[out++] = '\0';
        inWord = false;
      }
      continue;
    }
    if (!inWord) {
      start = out;
      inWord = true;
    }
    if (c == '"') {
      quoted = !quoted;
    } else {
      text[out++] = c;
    }
  }
  if (inWord) {
    word(start, out - start);
    // out <= n: at most the string's own terminator is written, with a zero.
    text[out] = '\0';
  }
}
}  // namespace

std::vector<std::string> hostSplitCommandLine(const String& commandLine) {
  std::string line = commandLine.toNarrow();
  std::vector<std::string> words;
  cutWords(line,
           [&](std::size_t start, std::size_t length) { words.emplace_back(line, start, length); });
  return words;
}

int hostProcessId(const Process& process) {
  const auto* child = dynamic_cast<const ChildProcess*>(&process);
  return child != nullptr ? child->pid() : -1;
}

Process* Runtime::exec(const String& commandLine, const String* const* environment, int count) {
  // Exceptions never leave the host's process creation: allocation failures
  // all happen before the child is started and simply give no process.
  try {
    // The report is this thread's last from here on; spawn fills it in.
    t_LastReport = std::make_shared<ProcessReport>();
    t_LastReport->commandLine = commandLine.toNarrow();
    if (processCreationShouldFail()) {
      failCreation(*t_LastReport, 0, "the host's fault injection failed this creation");
      return nullptr;
    }
    return spawn(commandLine, environment, count);
  } catch (const std::bad_alloc&) {
    if (t_LastReport) {
      t_LastReport->created = false;
      t_LastReport->creationError = ENOMEM;
      t_LastReport->creationFailure = "out of memory";
    }
    return nullptr;
  }
}

Process* Runtime::spawn(const String& commandLine, const String* const* environment, int count) {
  ProcessReport& report = *t_LastReport;
  // The argument vector points into the narrowed line, cut in place.
  std::string line = commandLine.toNarrow();
  std::vector<char*> argv;
  argv.reserve(8);
  cutWords(line, [&](std::size_t start, std::size_t) { argv.push_back(line.data() + start); });
  if (argv.empty() || argv[0][0] == '\0') {
    failCreation(report, 0, "the command line names no program");
    return nullptr;
  }
  argv.push_back(nullptr);
  report.program = argv[0];

  if (HostSettings::getRequireSafeScanners()) {
    std::string refusal = ProcessDiagnostics::unsafeProgramReason(report.program);
    if (!refusal.empty()) {
      failCreation(report, 0, std::move(refusal));
      return nullptr;
    }
  }
  // The environment for the child, narrow. An entry whose String storage
  // already is its narrow text (ASCII on the heap) is passed as it is; the
  // others are converted into one block, allocated once, and pointed at
  // when it is complete. A String holding a zero character ends there, as
  // its own narrow text would.
  std::vector<char*> envp;
  std::string envText;
  if (environment != nullptr && count > 0) {
    envp.reserve(static_cast<std::size_t>(count) + 1);
    // (envp index, entry index; then, once converted, the entry's offset)
    std::vector<std::pair<std::size_t, std::size_t>> converted;
    std::size_t total = 0;
    for (int k = 0; k < count; ++k) {
      if (environment[k] == nullptr) continue;
      if (const char* text = asciiView(*environment[k])) {
        envp.push_back(const_cast<char*>(text));
        continue;
      }
      converted.emplace_back(envp.size(), static_cast<std::size_t>(k));
      envp.push_back(nullptr);
      total += static_cast<std::size_t>(environment[k]->length()) + 1;
    }
    envText.reserve(total);
    for (auto& entry : converted) {
      const String* source = environment[entry.second];
      entry.second = envText.size();
      appendNarrow(*source, envText);
      envText.push_back('\0');
    }
    for (const auto& entry : converted) envp[entry.first] = &envText[entry.second];
  }
  envp.push_back(nullptr);

  const HostFaults& faults = HostFaults::instance();
  const bool withStream = !faults.noOutputStream;
  const double timeout = HostSettings::getProcessTimeout();
  const bool ownGroup = timeout > 0;
  auto process =
      std::make_unique<ChildProcess>(withStream, faults.streamEndAfterBytes, t_LastReport, timeout,
                                     HostSettings::getKeepStandardOutput());

  // Without a stream (a test fault) the child still runs normally and
  // writes to /dev/null.
  int fds[2] = {-1, -1};
  if (withStream) {
    if (::pipe2(fds, O_CLOEXEC) != 0) {
      failCreation(report, errno,
                   "cannot make the output pipe: " + std::string(std::strerror(errno)));
      return nullptr;
    }
  } else {
    fds[1] = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (fds[1] < 0) {
      failCreation(report, errno, "cannot open /dev/null: " + std::string(std::strerror(errno)));
      return nullptr;
    }
  }
  UniqueFd readEnd(fds[0]);
  UniqueFd writeEnd(fds[1]);
  UniqueFd errorReadEnd;
  UniqueFd errorWriteEnd;
  if (HostSettings::getCaptureStandardError()) {
    int errorFds[2] = {-1, -1};
    if (::pipe2(errorFds, O_CLOEXEC) != 0) {
      failCreation(report, errno,
                   "cannot make the standard error pipe: " + std::string(std::strerror(errno)));
      return nullptr;
    }
    errorReadEnd.reset(errorFds[0]);
    errorWriteEnd.reset(errorFds[1]);
  }

  // Descriptors 0 to 2 are set up here; everything above is closed. The pipe
  // ends are close-on-exec, and dup2 onto 1 (and 2) clears that flag for the
  // child. (posix_spawn itself leaves the C library's two reserved signals,
  // 32 and 33, ignored in the child; every signal a program can use starts
  // at its default.)
  static const SpawnAttributes attributes(false);
  static const SpawnAttributes groupAttributes(true);
  const posix_spawnattr_t* attr = ownGroup ? groupAttributes.get() : attributes.get();
  const posix_spawn_file_actions_t* actions =
      t_SpawnActions.forOutput(writeEnd.get(), errorWriteEnd.get());
  if (attr == nullptr || actions == nullptr) {
    failCreation(report, 0, "cannot prepare the child's start");
    return nullptr;
  }

  // posix_spawn reports a program that cannot be executed (missing, not
  // executable, not a program) and reaps the failed child itself.
  pid_t pid = 0;
  int error = posix_spawn(&pid, argv[0], actions, attr, argv.data(), envp.data());
  if (error != 0) {
    failCreation(report, error, ProcessDiagnostics::explainCreationFailure(report.program, error));
    return nullptr;
  }
  report.created = true;
  writeEnd.reset();
  errorWriteEnd.reset();
  process->start(pid, readEnd.release(), errorReadEnd.release(), ownGroup);
  return process.release();
}

std::shared_ptr<const ProcessReport> ProcessDiagnostics::last() { return t_LastReport; }

std::string ProcessDiagnostics::lastCreationFailure() {
  if (!t_LastReport || t_LastReport->created) return std::string();
  return t_LastReport->creationFailure;
}

void ProcessDiagnostics::clear() { t_LastReport.reset(); }

void ProcessDiagnostics::signalActiveProcessGroups(int signal) noexcept {
  for (auto& slot : g_ActiveGroups) {
    pid_t group = slot.load();
    if (group > 0) ::kill(-group, signal);
  }
}
