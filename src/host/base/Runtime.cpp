#include "base/Runtime.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include "base/HostFaults.h"
#include "base/ProcessExtras.h"
#include "base/StringExtras.h"
#include "base/WideText.h"

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

class PipeInputStream : public ProcessInputStream {
 public:
  // Reads fd, which the stream then owns. With endAfter >= 0 the stream
  // reports its end after that many bytes (the HostFaults seam).
  PipeInputStream(int fd, long endAfter)
      : m_Fd(fd), m_Buffer(takeReadBuffer()), m_Remaining(endAfter) {}
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
    return *m_Next++;
  }

 private:
  bool fill() {
    if (m_Fd.get() < 0) return false;
    for (;;) {
      ssize_t n = ::read(m_Fd.get(), m_Buffer, kReadBufferSize);
      if (n > 0) {
        m_Next = m_Buffer;
        m_End = m_Buffer + n;
        return true;
      }
      if (n < 0 && errno == EINTR) continue;
      // End of the stream, or an error that ends it.
      m_Fd.reset();
      return false;
    }
  }

  UniqueFd m_Fd;
  unsigned char* m_Buffer;
  long m_Remaining;
};

class ChildProcess : public Process {
 public:
  // Everything that can fail to allocate happens here, before the child
  // exists; start() cannot fail.
  ChildProcess(bool withStream, long streamEndAfter) {
    if (withStream) m_Stream = std::make_unique<PipeInputStream>(-1, streamEndAfter);
  }
  ~ChildProcess() override {
    if (m_Stream) m_Stream->close();
    if (m_Pid > 0 && !m_Waited) waitFor();
  }
  // Takes the running child and the read end of its output pipe (-1 when
  // the process has no stream).
  void start(pid_t pid, int outFd) noexcept {
    m_Pid = pid;
    if (m_Stream) {
      m_Stream->attach(outFd);
    } else if (outFd >= 0) {
      ::close(outFd);
    }
  }
  ProcessInputStream* getInputStream() override { return m_Stream.get(); }
  int waitFor() override {
    if (m_Waited) return m_Status;
    m_Waited = true;
    int status = 0;
    for (;;) {
      pid_t r = ::waitpid(m_Pid, &status, 0);
      if (r == m_Pid) break;
      if (r < 0 && errno == EINTR) continue;
      // No status to be had (for example SIGCHLD ignored by the host).
      m_Status = -1;
      return m_Status;
    }
    if (WIFEXITED(status)) {
      m_Status = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
      m_Status = 128 + WTERMSIG(status);
    } else {
      m_Status = -1;
    }
    return m_Status;
  }
  int pid() const { return static_cast<int>(m_Pid); }

 private:
  pid_t m_Pid = 0;
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
// can be caught or ignored at its default action. Made once; posix_spawn
// only reads them, from any thread.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    sigset_t empty;
    sigset_t defaults;
    sigemptyset(&empty);
    sigemptyset(&defaults);
    for (int sig = 1; sig < NSIG; ++sig) {
      if (sig != SIGKILL && sig != SIGSTOP) sigaddset(&defaults, sig);
    }
    if (posix_spawnattr_init(&m_Attr) != 0) return;
    m_Ready =
        posix_spawnattr_setsigmask(&m_Attr, &empty) == 0 &&
        posix_spawnattr_setsigdefault(&m_Attr, &defaults) == 0 &&
        posix_spawnattr_setflags(&m_Attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
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
// output onto the pipe's write end, everything from 3 up closed. Only the
// write end's number varies, and pipe2 hands out the lowest free numbers, so
// a thread keeps its last actions and makes them anew only for another
// number (each action costs the C library a resource-limit call).
class SpawnActions {
 public:
  SpawnActions() = default;
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { reset(); }
  // Null when they could not be made.
  const posix_spawn_file_actions_t* forOutput(int writeEnd) {
    if (writeEnd == m_WriteEnd) return &m_Actions;
    reset();
    if (posix_spawn_file_actions_init(&m_Actions) != 0) return nullptr;
    if (posix_spawn_file_actions_addopen(&m_Actions, 0, "/dev/null", O_RDONLY, 0) != 0 ||
        posix_spawn_file_actions_adddup2(&m_Actions, writeEnd, 1) != 0 ||
        posix_spawn_file_actions_addclosefrom_np(&m_Actions, 3) != 0) {
      posix_spawn_file_actions_destroy(&m_Actions);
      return nullptr;
    }
    m_WriteEnd = writeEnd;
    return &m_Actions;
  }

 private:
  void reset() {
    if (m_WriteEnd >= 0) posix_spawn_file_actions_destroy(&m_Actions);
    m_WriteEnd = -1;
  }
  posix_spawn_file_actions_t m_Actions;
  int m_WriteEnd = -1;
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
  if (processCreationShouldFail()) return nullptr;
  // Exceptions never leave the host's process creation: allocation failures
  // all happen before the child is started and simply give no process.
  try {
    return spawn(commandLine, environment, count);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Process* Runtime::spawn(const String& commandLine, const String* const* environment, int count) {
  // The argument vector points into the narrowed line, cut in place.
  std::string line = commandLine.toNarrow();
  std::vector<char*> argv;
  argv.reserve(8);
  cutWords(line, [&](std::size_t start, std::size_t) { argv.push_back(line.data() + start); });
  if (argv.empty() || argv[0][0] == '\0') return nullptr;
  argv.push_back(nullptr);

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
  auto process = std::make_unique<ChildProcess>(withStream, faults.streamEndAfterBytes);

  // Without a stream (a test fault) the child still runs normally and
  // writes to /dev/null.
  int fds[2] = {-1, -1};
  if (withStream) {
    if (::pipe2(fds, O_CLOEXEC) != 0) return nullptr;
  } else {
    fds[1] = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (fds[1] < 0) return nullptr;
  }
  UniqueFd readEnd(fds[0]);
  UniqueFd writeEnd(fds[1]);

  // Descriptors 0 to 2 are set up here; everything above is closed. The pipe
  // ends are close-on-exec, and dup2 onto 1 clears that flag for the child.
  // (posix_spawn itself leaves the C library's two reserved signals, 32 and
  // 33, ignored in the child; every signal a program can use starts at its
  // default.)
  static const SpawnAttributes attributes;
  const posix_spawnattr_t* attr = attributes.get();
  const posix_spawn_file_actions_t* actions = t_SpawnActions.forOutput(writeEnd.get());
  if (attr == nullptr || actions == nullptr) return nullptr;

  // posix_spawn reports a program that cannot be executed (missing, not
  // executable, not a program) and reaps the failed child itself.
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], actions, attr, argv.data(), envp.data()) != 0) {
    return nullptr;
  }
  writeEnd.reset();
  process->start(pid, readEnd.release());
  return process.release();
}
