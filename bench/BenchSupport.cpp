#include "BenchSupport.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace csbench {

namespace {

constexpr std::size_t kBlock = 64 * 1024;

bool exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// The attributes of a child set up as the host does it.
struct HostAttributes {
  HostAttributes() {
    sigset_t empty;
    sigset_t defaults;
    sigemptyset(&empty);
    sigemptyset(&defaults);
    for (int sig = 1; sig < NSIG; ++sig) {
      if (sig != SIGKILL && sig != SIGSTOP) sigaddset(&defaults, sig);
    }
    posix_spawnattr_init(&attr);
    posix_spawnattr_setsigmask(&attr, &empty);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  posix_spawnattr_t attr;
};

// Spawns argv with standard output on a new pipe; returns the read end.
int spawnWithPipe(const std::vector<std::string>& args, pid_t& pid,
                  ChildSetup setup = ChildSetup::Bare) {
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const posix_spawnattr_t* attr = nullptr;
  if (setup == ChildSetup::Host) {
    static const HostAttributes host;
    attr = &host.attr;
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  if (setup == ChildSetup::Host) posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  int rc = posix_spawn(&pid, argv[0], &actions, attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  if (rc != 0) {
    ::close(fds[0]);
    return -1;
  }
  return fds[0];
}

int reap(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

long long readPipe(int fd, ReadMode mode, ByteBuffer* keep) {
  long long total = 0;
  ByteBuffer local;
  ByteBuffer& buffer = keep != nullptr ? *keep : local;
  if (mode == ReadMode::Discard) {
    static char block[kBlock];
    for (;;) {
      ssize_t n = ::read(fd, block, sizeof block);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      total += n;
    }
    return total;
  }
  if (mode == ReadMode::BlocksGrowing) {
    for (;;) {
      buffer.reserveFree(kBlock);
      ssize_t n = ::read(fd, buffer.data + buffer.size, kBlock);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      buffer.size += static_cast<std::size_t>(n);
    }
    return static_cast<long long>(buffer.size);
  }
  for (;;) {
    char c;
    ssize_t n = ::read(fd, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    buffer.reserveFree(1);
    buffer.data[buffer.size++] = c;
  }
  return static_cast<long long>(buffer.size);
}

}  // namespace

ByteBuffer::~ByteBuffer() { std::free(data); }

void ByteBuffer::reserveFree(std::size_t n) {
  if (capacity - size >= n) return;
  std::size_t wanted = capacity == 0 ? kBlock : capacity;
  while (wanted - size < n) wanted *= 2;
  data = static_cast<char*>(std::realloc(data, wanted));
  if (data == nullptr) std::abort();
  capacity = wanted;
}

std::string childPath() { return CUSTOMSCAN_BENCH_CHILD; }

std::string dataDir() {
  const char* env = std::getenv("CUSTOMSCAN_BENCH_DATA");
  std::string dir = env != nullptr && *env != '\0' ? env : CUSTOMSCAN_BENCH_DEFAULT_DATA;
  ::mkdir(dir.c_str(), 0755);
  return dir;
}

std::string sizeLabel(std::size_t bytes) {
  if (bytes >= 1024 * 1024) return std::to_string(bytes / (1024 * 1024)) + "MB";
  return std::to_string(bytes / 1024) + "KB";
}

std::string mifFile(std::size_t bytes) {
  std::string path = dataDir() + "/volumes-" + sizeLabel(bytes) + ".mif";
  if (exists(path)) return path;
  std::vector<std::string> args = {CUSTOMSCAN_BENCH_MIFGEN, std::to_string(bytes), path + ".part"};
  pid_t pid = 0;
  int fd = spawnWithPipe(args, pid);
  if (fd < 0) std::abort();
  readPipe(fd, ReadMode::Discard, nullptr);
  ::close(fd);
  if (reap(pid) != 0 || std::rename((path + ".part").c_str(), path.c_str()) != 0) {
    std::fprintf(stderr, "could not generate %s\n", path.c_str());
    std::abort();
  }
  return path;
}

long long spawnAndRead(const std::vector<std::string>& argv, ReadMode mode, ByteBuffer* keep,
                       ChildSetup setup) {
  pid_t pid = 0;
  int fd = spawnWithPipe(argv, pid, setup);
  if (fd < 0) return -1;
  long long total = readPipe(fd, mode, keep);
  ::close(fd);
  return reap(pid) == 0 ? total : -1;
}

long long shellAndRead(const std::string& commandLine) {
  return spawnAndRead({"/bin/sh", "-c", commandLine}, ReadMode::Discard);
}

std::string readWholeFile(const std::string& path) {
  std::string content;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return content;
  struct stat st;
  if (::fstat(fd, &st) == 0) content.resize(static_cast<std::size_t>(st.st_size));
  std::size_t done = 0;
  while (done < content.size()) {
    ssize_t n = ::read(fd, &content[done], content.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  content.resize(done);
  ::close(fd);
  return content;
}

long long peakRss() {
  struct rusage usage;
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<long long>(usage.ru_maxrss) * 1024;
}

}  // namespace csbench
