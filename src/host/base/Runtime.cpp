#include "base/Runtime.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "base/HostFaults.h"

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

class PipeInputStream : public ProcessInputStream {
 public:
  explicit PipeInputStream(int fd) : m_Fd(fd) {
    long limit = HostFaults::instance().streamEndAfterBytes;
    m_Remaining = limit;
  }
  void close() { m_Fd.reset(); }

 protected:
  // Called when the bytes handed out inline are spent: refills the buffer
  // once it is read to its end, and opens the next window of it.
  int refill() override {
    if (m_Next == m_BufferEnd && !fill()) return -1;
    if (m_Remaining == 0) {
      // The early end of the fault seam: the bytes left stay unread.
      m_End = m_Next;
      return -1;
    }
    m_End = m_BufferEnd;
    if (m_Remaining > 0) {
      if (m_End - m_Next > m_Remaining) m_End = m_Next + m_Remaining;
      m_Remaining -= m_End - m_Next;
    }
    return *m_Next++;
  }

 private:
  bool fill() {
    if (m_Fd.get() < 0) return false;
    for (;;) {
      ssize_t n = ::read(m_Fd.get(), m_Buffer, sizeof m_Buffer);
      if (n > 0) {
        m_Next = m_Buffer;
        m_BufferEnd = m_Buffer + n;
        return true;
      }
      if (n < 0 && errno == EINTR) continue;
      // End of the stream, or an error that ends it.
      m_Fd.reset();
      return false;
    }
  }

  UniqueFd m_Fd;
  unsigned char m_Buffer[64 * 1024];
  const unsigned char* m_BufferEnd = nullptr;  // end of the bytes read into m_Buffer
  long m_Remaining;
};

class ChildProcess : public Process {
 public:
  ChildProcess(pid_t pid, int outFd, bool withStream) : m_Pid(pid) {
    if (withStream) {
      m_Stream = std::make_unique<PipeInputStream>(outFd);
    } else {
      ::close(outFd);
    }
  }
  ~ChildProcess() override {
    if (m_Stream) m_Stream->close();
    if (!m_Waited) waitFor();
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
  int pid() const override { return static_cast<int>(m_Pid); }

 private:
  pid_t m_Pid;
  std::unique_ptr<PipeInputStream> m_Stream;
  bool m_Waited = false;
  int m_Status = -1;
};

bool processCreationShouldFail() {
  HostFaults& faults = HostFaults::instance();
  if (faults.failProcessCreationAt < 0) return false;
  return --faults.failProcessCreationAt == 0;
}

// Frees posix_spawn attributes and file actions on every path.
struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  bool actionsReady = false;
  bool attrReady = false;
  ~SpawnSetup() {
    if (actionsReady) posix_spawn_file_actions_destroy(&actions);
    if (attrReady) posix_spawnattr_destroy(&attr);
  }
};

}  // namespace

Runtime* Runtime::getRuntime() {
  static Runtime runtime;
  return &runtime;
}

std::vector<std::string> Runtime::splitCommandLine(const String& commandLine) {
  std::string line = commandLine.toNarrow();
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      inWord = true;
    } else if (c == ' ' && !quoted) {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

Process* Runtime::exec(const String& commandLine, const String* const* environment, int count) {
  if (processCreationShouldFail()) return nullptr;
  std::vector<std::string> words = splitCommandLine(commandLine);
  if (words.empty() || words[0].empty()) return nullptr;

  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);

  std::vector<std::string> envStrings;
  envStrings.reserve(count > 0 ? static_cast<std::size_t>(count) : 0);
  for (int k = 0; k < count; ++k) {
    if (environment[k] != nullptr) envStrings.push_back(environment[k]->toNarrow());
  }
  std::vector<char*> envp;
  envp.reserve(envStrings.size() + 1);
  for (auto& e : envStrings) envp.push_back(e.data());
  envp.push_back(nullptr);

  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return nullptr;
  UniqueFd readEnd(fds[0]);
  UniqueFd writeEnd(fds[1]);

  SpawnSetup setup;
  if (posix_spawn_file_actions_init(&setup.actions) != 0) return nullptr;
  setup.actionsReady = true;
  if (posix_spawnattr_init(&setup.attr) != 0) return nullptr;
  setup.attrReady = true;

  // Descriptors 0 to 2 are set up here; everything above is closed. The pipe
  // ends are close-on-exec, and dup2 onto 1 clears that flag for the child.
  if (posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0) != 0 ||
      posix_spawn_file_actions_adddup2(&setup.actions, writeEnd.get(), 1) != 0 ||
      posix_spawn_file_actions_addclosefrom_np(&setup.actions, 3) != 0) {
    return nullptr;
  }

  sigset_t empty;
  sigemptyset(&empty);
  sigset_t defaults;
  sigemptyset(&defaults);
  for (int sig = 1; sig < NSIG; ++sig) {
    if (sig != SIGKILL && sig != SIGSTOP) sigaddset(&defaults, sig);
  }
  if (posix_spawnattr_setsigmask(&setup.attr, &empty) != 0 ||
      posix_spawnattr_setsigdefault(&setup.attr, &defaults) != 0 ||
      posix_spawnattr_setflags(&setup.attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) != 0) {
    return nullptr;
  }

  pid_t pid = 0;
  int rc = posix_spawn(&pid, argv[0], &setup.actions, &setup.attr, argv.data(), envp.data());
  if (rc != 0) return nullptr;
  writeEnd.reset();
  bool withStream = !HostFaults::instance().noOutputStream;
  auto* process = new (std::nothrow) ChildProcess(pid, readEnd.get(), withStream);
  if (process == nullptr) {
    readEnd.reset();
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return nullptr;
  }
  readEnd.release();
  return process;
}
