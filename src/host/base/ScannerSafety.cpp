#include "base/ScannerSafety.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "base/File.h"
#include "base/String.h"

namespace {

// The kernel's limit on symbolic links followed in one lookup.
constexpr int kMaxLinks = 40;
// The kernel reads no more of a file than this to find its #! line.
constexpr std::size_t kHeadSize = 256;
constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;
constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr const char kUnableToCreate[] = "CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS";

// ------------------------------------------------------------ text helpers

std::string errorText(int error) {
  char buffer[256];
  return ::strerror_r(error, buffer, sizeof buffer);
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::string quoted(const std::string& text) { return "'" + text + "'"; }

std::string userName(uid_t uid) {
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(uid);
}

bool trustedOwner(uid_t owner) { return owner == 0 || owner == ::geteuid(); }

bool writableByOthers(const struct stat& st) { return (st.st_mode & kWritableByOthers) != 0; }

std::string joinPath(const std::string& directory, const std::string& name) {
  return directory == "/" ? "/" + name : directory + "/" + name;
}

// The parent of an absolute path without "." and ".." steps; "/" is its own.
std::string parentOf(const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return path.substr(0, slash);
}

std::string lastStep(const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string normalized(const std::string& path) {
  return File::NormalizePath(String(path.data(), path.size())).toNarrow();
}

// path taken from the current directory when relative; empty when that
// cannot be read.
std::string fromCurrentDirectory(const std::string& path) {
  if (!path.empty() && path[0] == '/') return path;
  std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
  if (!cwd) return std::string();
  return std::string(cwd.get()) + "/" + path;
}

// path made absolute and folded lexically, as the command gate sees it.
std::string absolutePath(const std::string& path) {
  const std::string absolute = fromCurrentDirectory(path);
  return absolute.empty() ? absolute : normalized(absolute);
}

std::vector<std::string> splitSteps(const std::string& path) {
  std::vector<std::string> steps;
  std::string::size_type i = 0;
  while (i < path.size()) {
    const std::string::size_type end = std::min(path.find('/', i), path.size());
    if (end > i) steps.push_back(path.substr(i, end - i));
    i = end + 1;
  }
  return steps;
}

bool readLink(const std::string& path, std::string& target, int& error) {
  std::vector<char> buffer(256);
  for (;;) {
    const ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
    if (n < 0) {
      error = errno;
      return false;
    }
    if (static_cast<std::size_t>(n) < buffer.size()) {
      target.assign(buffer.data(), static_cast<std::size_t>(n));
      return true;
    }
    buffer.resize(buffer.size() * 2);
  }
}

// A shell word needs no quoting when it holds only these.
bool plainShellCharacter(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::strchr("_-./+,:=@%", c) != nullptr;
}

bool controlCharacter(unsigned char c) { return c < 0x20 || c == 0x7F; }

// ------------------------------------------------------------ findings

class Findings {
 public:
  void add(ScannerFinding finding) {
    const Key key(finding.path, static_cast<int>(finding.kind));
    if (m_Index.count(key) != 0) return;
    m_Index.emplace(key, m_List.size());
    m_List.push_back(std::move(finding));
  }
  ScannerFinding* find(const std::string& path, ScannerFindingKind kind) {
    const auto it = m_Index.find(Key(path, static_cast<int>(kind)));
    return it == m_Index.end() ? nullptr : &m_List[it->second];
  }
  std::vector<ScannerFinding> take() { return std::move(m_List); }

 private:
  using Key = std::pair<std::string, int>;
  std::vector<ScannerFinding> m_List;
  std::map<Key, std::size_t> m_Index;
};

ScannerFinding makeFinding(const std::string& path, ScannerFindingKind kind, std::string problem,
                           std::string risk, std::string fix, std::string target = std::string()) {
  ScannerFinding finding;
  finding.path = path;
  finding.kind = kind;
  finding.problem = std::move(problem);
  finding.risk = std::move(risk);
  finding.fix = std::move(fix);
  finding.target = std::move(target);
  return finding;
}

std::string word(const std::string& text) { return scannerShellWord(text); }

ScannerFinding uninspectable(const std::string& path, const std::string& problem) {
  return makeFinding(path, ScannerFindingKind::Uninspectable, problem,
                     "the check cannot vouch for what it could not look at",
                     "ls -ld -- " + word(path) + "  # then judge it, or run the check as root");
}

// What a checked file or directory is to the host: the risk of a finding
// depends on it.
enum class Role {
  PathDirectory,     // a directory an entry is looked up in on the way
  ParentDirectory,   // the directory that holds the scanner directory
  ScannerDirectory,  // the scanner directory itself
  Subdirectory,      // a directory below it
  Program,           // a scanner or a program a command leads to
  Interpreter,       // the interpreter a script's #! line names
};

bool isDirectoryRole(Role role) {
  return role == Role::PathDirectory || role == Role::ParentDirectory ||
         role == Role::ScannerDirectory || role == Role::Subdirectory;
}

std::string parentRisk(const std::string& scannerDirName) {
  return "whoever can write it can rename or replace the scanner directory, and can create an "
         "entry beside it whose name begins with " +
         quoted(scannerDirName) + " (such as " + quoted(scannerDirName + "2") +
         "), which the command gate's prefix test lets commands reach (" +
         quoted("../" + scannerDirName + "2/PROGRAM") + ")";
}

// Moves the scanner directory into a parent of its own, where no entry
// beside it can share its prefix.
std::string ownParentFix(const std::string& directory) {
  const std::string parent = directory + ".d";
  return "install -d -m 0755 -- " + word(parent) + " && mv -- " + word(directory) + " " +
         word(parent + "/") + "  # then configure the scanner directory " +
         word(joinPath(parent, lastStep(directory)));
}

std::string writableRisk(Role role) {
  switch (role) {
    case Role::PathDirectory:
      return "whoever can write it can rename or replace the entries in it, and so swap "
             "everything the agent runs from below it";
    case Role::ParentDirectory:
      return "whoever can write it can rename or replace the scanner directory, and create "
             "entries beside it";
    case Role::ScannerDirectory:
      return "whoever can write it can add, replace or rename scanners, and the agent runs them "
             "with its own rights (root on most endpoints)";
    case Role::Subdirectory:
      return "whoever can write it can add or replace programs below the scanner directory, and "
             "the agent runs them with its own rights (root on most endpoints)";
    case Role::Program:
      return "whoever can write it can change what the agent runs, with the agent's own rights "
             "(root on most endpoints)";
    case Role::Interpreter:
      return "whoever can write it can change what every script naming it runs, with the "
             "agent's own rights (root on most endpoints)";
  }
  return std::string();
}

ScannerFinding writableFinding(const std::string& path, const struct stat& st, Role role) {
  const bool group = (st.st_mode & S_IWGRP) != 0;
  const bool others = (st.st_mode & S_IWOTH) != 0;
  std::string problem = "writable by ";
  problem += group && others ? "group and others" : (group ? "its group" : "others");
  if ((st.st_mode & S_ISVTX) != 0 && isDirectoryRole(role)) problem += ", sticky";
  problem += " (mode " + modeText(st.st_mode) + ")";
  return makeFinding(path, ScannerFindingKind::Writable, problem, writableRisk(role),
                     "chmod go-w -- " + word(path));
}

ScannerFinding ownerFinding(const std::string& path, const struct stat& st) {
  const uid_t caller = ::geteuid();
  std::string problem =
      "owned by " + quoted(userName(st.st_uid)) + " (uid " + std::to_string(st.st_uid) + "), ";
  problem += caller == 0
                 ? "not by root"
                 : "neither by root nor by " + quoted(userName(caller)) + ", who runs the check";
  std::string risk;
  if (S_ISLNK(st.st_mode)) {
    risk = "its owner can replace the link, and with it what the agent runs from below it";
  } else if (S_ISDIR(st.st_mode)) {
    risk =
        "its owner can change its entries and its mode at any time, whatever the mode "
        "says now";
  } else {
    risk =
        "its owner can rewrite it and change its mode at any time, and the agent runs what "
        "it holds with the agent's own rights";
  }
  const std::string fix = std::string(S_ISLNK(st.st_mode) ? "chown -h " : "chown ") +
                          word(userName(caller)) + " -- " + word(path);
  return makeFinding(path, ScannerFindingKind::ForeignOwner, problem, risk, fix);
}

void checkOwnerAndMode(const std::string& path, const struct stat& st, Role role, Findings& out) {
  if (!trustedOwner(st.st_uid)) out.add(ownerFinding(path, st));
  if (writableByOthers(st)) out.add(writableFinding(path, st, role));
}

// ------------------------------------------------------------ path walk

// Resolves path step by step as the kernel does, following symbolic links,
// and checks every directory an entry is looked up in. What the walk ends
// at is checked in finalRole when checkFinal is set. Returns false (with an
// Uninspectable finding) when the path cannot be resolved.
bool walkPath(const std::string& path, Role finalRole, bool checkFinal, Findings& out,
              std::string* realPath = nullptr, struct stat* finalStat = nullptr) {
  // Not folded lexically: after a link, ".." leads to the parent of its
  // target, as for the kernel.
  const std::string absolute = fromCurrentDirectory(path);
  if (absolute.empty()) {
    out.add(uninspectable(path, "the current directory cannot be read: " + errorText(errno)));
    return false;
  }
  std::deque<std::string> todo;
  for (std::string& step : splitSteps(absolute)) todo.push_back(std::move(step));

  std::string current = "/";
  struct stat currentStat {};
  if (::lstat("/", &currentStat) != 0) {
    out.add(uninspectable("/", "cannot be examined: " + errorText(errno)));
    return false;
  }
  int links = 0;
  while (!todo.empty()) {
    const std::string step = std::move(todo.front());
    todo.pop_front();
    if (step == ".") continue;
    if (step == "..") {
      // current never holds a link, so its parent is its text's parent.
      current = parentOf(current);
      if (::lstat(current.c_str(), &currentStat) != 0) {
        out.add(uninspectable(current, "cannot be examined: " + errorText(errno)));
        return false;
      }
      continue;
    }
    const std::string next = joinPath(current, step);
    struct stat st {};
    if (::lstat(next.c_str(), &st) != 0) {
      const int error = errno;
      out.add(uninspectable(
          next, "cannot be examined: " + errorText(error) +
                    (next == absolute ? "" : " (on the way to " + quoted(absolute) + ")")));
      return false;
    }

    // The directory the entry is looked up in.
    if (!trustedOwner(currentStat.st_uid)) {
      out.add(ownerFinding(current, currentStat));
    }
    if (writableByOthers(currentStat)) {
      if ((currentStat.st_mode & S_ISVTX) == 0) {
        out.add(writableFinding(current, currentStat, Role::PathDirectory));
      } else if (!trustedOwner(st.st_uid)) {
        // Sticky: only the entry's owner (and the directory's) may replace it.
        out.add(ownerFinding(next, st));
      }
    }

    if (S_ISLNK(st.st_mode)) {
      if (++links > kMaxLinks) {
        out.add(uninspectable(path, "cannot be resolved: " + errorText(ELOOP)));
        return false;
      }
      std::string target;
      int error = 0;
      if (!readLink(next, target, error)) {
        out.add(uninspectable(next, "the link cannot be read: " + errorText(error)));
        return false;
      }
      if (target.empty()) {
        out.add(uninspectable(next, "cannot be resolved: " + errorText(ENOENT)));
        return false;
      }
      std::vector<std::string> steps = splitSteps(target);
      todo.insert(todo.begin(), steps.begin(), steps.end());
      if (target[0] == '/') {
        current = "/";
        if (::lstat("/", &currentStat) != 0) return false;
      }
      continue;
    }
    if (!todo.empty() && !S_ISDIR(st.st_mode)) {
      out.add(uninspectable(next, "cannot be resolved: " + errorText(ENOTDIR) + " (on the way to " +
                                      quoted(absolute) + ")"));
      return false;
    }
    current = next;
    currentStat = st;
  }
  if (checkFinal) checkOwnerAndMode(current, currentStat, finalRole, out);
  if (realPath != nullptr) *realPath = current;
  if (finalStat != nullptr) *finalStat = currentStat;
  return true;
}

// ------------------------------------------------------------ file contents

enum class Format { Binary, Script, Other };

struct Head {
  bool read = false;
  int error = 0;
  std::string bytes;
};

class Descriptor {
 public:
  explicit Descriptor(int fd) : m_Fd(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (m_Fd >= 0) ::close(m_Fd);
  }
  int get() const { return m_Fd; }

 private:
  int m_Fd;
};

// The first bytes of a regular file. A file swapped for a pipe or a device
// meanwhile is not waited on.
Head readHead(const std::string& path) {
  Head head;
  const Descriptor fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (fd.get() < 0) {
    head.error = errno;
    return head;
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    head.error = EINVAL;
    return head;
  }
  char buffer[kHeadSize];
  std::size_t have = 0;
  while (have < sizeof buffer) {
    const ssize_t n = ::read(fd.get(), buffer + have, sizeof buffer - have);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      head.error = errno;
      return head;
    }
    if (n == 0) break;
    have += static_cast<std::size_t>(n);
  }
  head.read = true;
  head.bytes.assign(buffer, have);
  return head;
}

Format formatOf(const std::string& head) {
  if (head.compare(0, 4,
                   "\x7f"
                   "ELF") == 0)
    return Format::Binary;
  if (head.compare(0, 2, "#!") == 0) return Format::Script;
  return Format::Other;
}

bool hasScriptSuffix(const std::string& path) {
  static const char* const kSuffixes[] = {".sh", ".bash", ".ksh", ".zsh", ".csh", ".py", ".pl",
                                          ".rb", ".php",  ".lua", ".tcl", ".awk", ".js", ".exp"};
  const std::string name = lastStep(path);
  for (const char* suffix : kSuffixes) {
    const std::size_t n = std::strlen(suffix);
    if (name.size() > n && name.compare(name.size() - n, n, suffix) == 0) return true;
  }
  return false;
}

// The mount point of the file system that holds path (a resolved path).
std::string mountPointOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return path;
  std::string current = path;
  while (current != "/") {
    const std::string parent = parentOf(current);
    struct stat parentStat {};
    if (::stat(parent.c_str(), &parentStat) != 0 || parentStat.st_dev != st.st_dev) break;
    current = parent;
  }
  return current;
}

bool onNoexecMount(const std::string& path) {
  struct statvfs vfs {};
  return ::statvfs(path.c_str(), &vfs) == 0 && (vfs.f_flag & ST_NOEXEC) != 0;
}

const char kStartFails[] =
    "the host cannot start it: every command naming it ends with "
    "CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS";

// The audit of one scanner directory.
class Audit {
 public:
  explicit Audit(Findings& out) : m_Out(out) {}

  void run(const std::string& directory);

 private:
  bool checkSetting(const std::string& directory, std::string& base);
  void checkParentAndSiblings(const std::string& base);
  void walkContents(const std::string& base);
  void checkLink(const std::string& path, const std::string& relative);
  // Checks a regular file as a program; false when it is taken for data.
  bool checkProgramFile(const std::string& path, const struct stat& st);
  void checkInterpreterLine(const std::string& path, const std::string& head);
  void checkName(const std::string& path, const std::string& relative);
  bool inside(const std::string& realPath) const {
    return realPath == m_RealDir || realPath.compare(0, m_RealDir.size() + 1, m_RealDir + "/") == 0;
  }

  Findings& m_Out;
  std::string m_RealDir;
  std::set<std::string> m_CheckedInterpreters;
};

bool Audit::checkSetting(const std::string& directory, std::string& base) {
  if (directory.empty()) {
    m_Out.add(makeFinding(directory, ScannerFindingKind::DirectorySetting,
                          "no custom scanner directory is set",
                          "the command gate refuses every command",
                          "install -d -m 0755 /opt/customscan/scanners  # and configure it"));
    return false;
  }
  const std::string::size_type quote = directory.find('"');
  if (quote != std::string::npos) {
    // Rename the first step that holds a quote.
    const std::string::size_type slash = directory.rfind('/', quote);
    const std::string::size_type stepStart = slash == std::string::npos ? 0 : slash + 1;
    const std::string step =
        directory.substr(0, std::min(directory.find('/', quote), directory.size()));
    std::string renamed = step.substr(0, stepStart);
    for (std::size_t i = stepStart; i < step.size(); ++i) {
      if (step[i] != '"') renamed += step[i];
    }
    m_Out.add(makeFinding(
        directory, ScannerFindingKind::DirectorySetting,
        "the directory's path holds a double quote",
        "the host takes double quotes on a command line as quoting, so the "
        "command gate refuses every command",
        "mv -- " + word(step) + " " + word(renamed) + "  # and configure the new path"));
  }
  if (directory[0] != '/') {
    m_Out.add(makeFinding(directory, ScannerFindingKind::DirectorySetting,
                          "the directory is a relative path",
                          "the host resolves it against the agent's working directory, so what "
                          "runs depends on where the agent was started",
                          "configure the absolute path " + word(absolutePath(directory))));
  } else {
    const std::string normal = normalized(directory);
    if (directory != normal && directory != normal + "/") {
      m_Out.add(makeFinding(directory, ScannerFindingKind::DirectorySetting,
                            "the directory is not in normal form (" + quoted(normal) + ")",
                            "the command gate compares normalised command paths with the text "
                            "as configured, so commands are refused",
                            "configure the normal form " + word(normal)));
    }
    if (normal == "/") {
      m_Out.add(makeFinding(directory, ScannerFindingKind::DirectorySetting,
                            "the scanner directory is the root directory",
                            "every path begins with it: every program on the system passes the "
                            "command gate",
                            "install -d -m 0755 /opt/customscan/scanners  # and configure it"));
      return false;
    }
  }
  base = absolutePath(directory);
  if (base.empty()) {
    m_Out.add(
        uninspectable(directory, "the current directory cannot be read: " + errorText(errno)));
    return false;
  }
  struct stat st {};
  if (::stat(base.c_str(), &st) != 0) {
    const int error = errno;
    m_Out.add(
        makeFinding(base, ScannerFindingKind::NotADirectory,
                    error == ENOENT ? "does not exist" : "cannot be used: " + errorText(error),
                    "no command can run", "install -d -m 0755 -- " + word(base)));
    return false;
  }
  if (!S_ISDIR(st.st_mode)) {
    m_Out.add(makeFinding(base, ScannerFindingKind::NotADirectory, "is not a directory",
                          "no command can run",
                          "mv -- " + word(base) + " " + word(base + ".old") +
                              " && install -d -m 0755 -- " + word(base)));
    return false;
  }
  return true;
}

void Audit::run(const std::string& directory) {
  std::string base;
  if (!checkSetting(directory, base)) return;
  if (!walkPath(base, Role::ScannerDirectory, true, m_Out, &m_RealDir)) return;
  if (m_RealDir == "/") {
    m_Out.add(makeFinding(base, ScannerFindingKind::DirectorySetting,
                          "the scanner directory leads to the root directory",
                          "every program on the system can run as a scanner",
                          "install -d -m 0755 /opt/customscan/scanners  # and configure it"));
    return;
  }
  // A separator at the end of the configured text, or a text no normalised
  // path begins with, leaves no prefix for a sibling to share.
  if (directory.back() != '/' && normalized(directory) == directory) {
    checkParentAndSiblings(base);
  }
  walkContents(base);
}

void Audit::checkParentAndSiblings(const std::string& base) {
  const std::string parent = parentOf(base);
  const std::string name = lastStep(base);
  struct stat parentStat {};
  if (::stat(parent.c_str(), &parentStat) != 0) {
    m_Out.add(uninspectable(parent, "cannot be examined: " + errorText(errno)));
    return;
  }
  if (!trustedOwner(parentStat.st_uid)) {
    m_Out.add(ownerFinding(parent, parentStat));
  }
  if (writableByOthers(parentStat)) {
    // Even a sticky parent lets others create a sibling; the walk may have
    // reported the parent already, with a narrower risk.
    ScannerFinding finding = writableFinding(parent, parentStat, Role::ParentDirectory);
    finding.risk = parentRisk(name);
    if ((parentStat.st_mode & S_ISVTX) != 0) finding.fix = ownParentFix(base);
    if (ScannerFinding* known = m_Out.find(parent, ScannerFindingKind::Writable)) {
      known->risk = finding.risk;
    } else {
      m_Out.add(std::move(finding));
    }
  }

  std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(parent.c_str()), &::closedir);
  if (!dir) {
    m_Out.add(uninspectable(parent, "cannot be listed: " + errorText(errno)));
    return;
  }
  std::vector<std::string> siblings;
  while (const struct dirent* entry = ::readdir(dir.get())) {
    const std::string sibling = entry->d_name;
    if (sibling != name && sibling.size() > name.size() &&
        sibling.compare(0, name.size(), name) == 0) {
      siblings.push_back(sibling);
    }
  }
  std::sort(siblings.begin(), siblings.end());
  for (const std::string& sibling : siblings) {
    const std::string path = joinPath(parent, sibling);
    struct stat st {};
    const bool isDirectory = ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    std::string risk =
        "the command gate tests only that a command's path begins with " + quoted(base) + ", so ";
    risk += isDirectory ? "the command " + quoted("../" + sibling + "/PROGRAM") +
                              " runs a program from it as a scanner"
                        : "the command " + quoted("../" + sibling) + " runs it as a scanner";
    m_Out.add(makeFinding(
        path, ScannerFindingKind::SiblingPrefix,
        "it lies beside the scanner directory, and its name begins with " + quoted(name), risk,
        ownParentFix(base)));
  }
}

void Audit::walkContents(const std::string& base) {
  struct Pending {
    std::string path;
    std::string relative;
  };
  std::vector<Pending> pending{{base, std::string()}};
  std::set<std::pair<dev_t, ino_t>> visited;
  struct stat baseStat {};
  if (::stat(base.c_str(), &baseStat) == 0) visited.emplace(baseStat.st_dev, baseStat.st_ino);

  while (!pending.empty()) {
    const Pending current = std::move(pending.back());
    pending.pop_back();
    std::vector<std::string> names;
    {
      std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(current.path.c_str()), &::closedir);
      if (!dir) {
        m_Out.add(uninspectable(current.path, "cannot be listed: " + errorText(errno)));
        continue;
      }
      while (const struct dirent* entry = ::readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
      }
    }
    std::sort(names.begin(), names.end());
    std::vector<Pending> subdirectories;
    for (const std::string& name : names) {
      const std::string path = joinPath(current.path, name);
      const std::string relative = current.relative.empty() ? name : current.relative + "/" + name;
      struct stat st {};
      if (::lstat(path.c_str(), &st) != 0) {
        m_Out.add(uninspectable(path, "cannot be examined: " + errorText(errno)));
        continue;
      }
      if (S_ISLNK(st.st_mode)) {
        checkLink(path, relative);
      } else if (S_ISDIR(st.st_mode)) {
        checkOwnerAndMode(path, st, Role::Subdirectory, m_Out);
        if (visited.emplace(st.st_dev, st.st_ino).second)
          subdirectories.push_back({path, relative});
      } else if (S_ISREG(st.st_mode)) {
        checkOwnerAndMode(path, st, Role::Program, m_Out);
        if (checkProgramFile(path, st)) checkName(path, relative);
      }
      // Pipes, sockets and devices: the command gate refuses them as missing.
    }
    // Depth first, in name order.
    for (auto it = subdirectories.rbegin(); it != subdirectories.rend(); ++it) {
      pending.push_back(std::move(*it));
    }
  }
}

void Audit::checkLink(const std::string& path, const std::string& relative) {
  std::string target;
  int error = 0;
  if (!readLink(path, target, error)) {
    m_Out.add(uninspectable(path, "the link cannot be read: " + errorText(error)));
    return;
  }
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  if (!real) {
    error = errno;
    m_Out.add(makeFinding(
        path, ScannerFindingKind::BrokenLink,
        "symbolic link to " + quoted(target) +
            (error == ENOENT ? ", which does not exist"
                             : ", which cannot be resolved: " + errorText(error)),
        "a command naming it fails now, and whoever can later create what it points to decides "
        "what runs under this name",
        "rm -- " + word(path), target));
    return;
  }
  const std::string realPath = real.get();
  struct stat st {};
  if (::stat(realPath.c_str(), &st) != 0) {
    m_Out.add(uninspectable(realPath, "cannot be examined: " + errorText(errno)));
    return;
  }
  if (inside(realPath)) {
    // What it leads to is audited where it lies; the way there is checked
    // here, as a link through another directory can be redirected there.
    walkPath(path, Role::Program, false, m_Out);
    if (S_ISREG(st.st_mode) && (st.st_mode & kAnyExecute) != 0) checkName(path, relative);
    return;
  }
  std::string risk;
  std::string fix;
  if (S_ISREG(st.st_mode)) {
    risk = "the command gate follows the link: " + quoted(realPath) +
           " runs as a scanner, and whoever can change it, or any directory on the way to it, "
           "decides what the agent runs";
    fix = "cp --remove-destination -- " + word(realPath) + " " + word(path);
  } else if (S_ISDIR(st.st_mode)) {
    risk = "the command gate follows the link: every program below " + quoted(realPath) +
           " can run as a scanner (" + quoted(relative + "/PROGRAM") + ")";
    fix = "rm -- " + word(path);
  } else {
    risk = "the command gate follows the link out of the scanner directory";
    fix = "rm -- " + word(path);
  }
  m_Out.add(makeFinding(path, ScannerFindingKind::LinkLeavesDirectory,
                        "symbolic link to " + quoted(target) +
                            (target == realPath ? "" : ", which leads to " + quoted(realPath)) +
                            ", outside the scanner directory",
                        risk, fix, realPath));
  if (!S_ISREG(st.st_mode)) return;
  walkPath(path, Role::Program, true, m_Out);
  if (checkProgramFile(realPath, st)) checkName(path, relative);
}

void Audit::checkName(const std::string& path, const std::string& relative) {
  if (scannerNameIsReachable(relative)) return;
  // The step to rename: the first that holds a quote, else the first (when
  // the name begins with a blank) or the last.
  const std::vector<std::string> steps = splitSteps(relative);
  std::size_t bad = steps.size() - 1;
  std::string problem;
  bool found = false;
  for (std::size_t i = 0; i < steps.size() && !found; ++i) {
    if (steps[i].find('"') != std::string::npos) {
      bad = i;
      found = true;
      problem =
          "its name holds a double quote, which the command gate allows only around a "
          "whole name";
    }
  }
  if (!found) {
    if (static_cast<unsigned char>(relative.front()) <= 0x20) {
      bad = 0;
      problem =
          "its name begins with a blank or a control character, which the command gate "
          "trims away";
    } else {
      problem =
          "its name ends with a blank or a control character, which the command gate "
          "trims away";
    }
  }
  std::string renamed;
  for (char c : steps[bad]) {
    if (c != '"') renamed += c;
  }
  const auto outer = [](char c) { return static_cast<unsigned char>(c) <= 0x20; };
  while (!renamed.empty() && outer(renamed.back())) renamed.pop_back();
  renamed.erase(renamed.begin(), std::find_if_not(renamed.begin(), renamed.end(), outer));
  if (renamed.empty()) renamed = "scanner";
  // path ends with relative; the step to rename lies within it.
  std::string prefix = path.substr(0, path.size() - relative.size());
  for (std::size_t i = 0; i < bad; ++i) prefix += steps[i] + "/";
  m_Out.add(makeFinding(path, ScannerFindingKind::UnreachableName, problem,
                        "no command can run it: a policy that names it fails",
                        "mv -- " + word(prefix + steps[bad]) + " " + word(prefix + renamed)));
}

bool Audit::checkProgramFile(const std::string& path, const struct stat& st) {
  const bool anyExecute = (st.st_mode & kAnyExecute) != 0;
  const Head head = readHead(path);
  if (!head.read) {
    if (anyExecute) {
      m_Out.add(uninspectable(path, "cannot be read (" + errorText(head.error) +
                                        "), so the check cannot tell a program from a script"));
    }
    return anyExecute;
  }
  const Format format = formatOf(head.bytes);
  if (!anyExecute && format == Format::Other && !hasScriptSuffix(path)) return false;

  if (!anyExecute) {
    m_Out.add(makeFinding(path, ScannerFindingKind::NotExecutable,
                          "no one may execute it (mode " + modeText(st.st_mode) + ")", kStartFails,
                          "chmod a+x -- " + word(path)));
  } else if (::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0) {
    if (onNoexecMount(path)) {
      const std::string mount = mountPointOf(path);
      m_Out.add(makeFinding(path, ScannerFindingKind::NotExecutable,
                            "it lies on a file system mounted noexec (" + quoted(mount) + ")",
                            kStartFails, "mount -o remount,exec -- " + word(mount)));
    } else {
      m_Out.add(makeFinding(path, ScannerFindingKind::NotExecutable,
                            "the user running the check may not execute it (mode " +
                                modeText(st.st_mode) + ", owner " + quoted(userName(st.st_uid)) +
                                ")",
                            kStartFails, "chmod a+x -- " + word(path)));
    }
  }
  if (format == Format::Script) {
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
      m_Out.add(makeFinding(path, ScannerFindingKind::NotExecutable,
                            "the user running the check may not read it, and a script's "
                            "interpreter must read it (mode " +
                                modeText(st.st_mode) + ")",
                            kStartFails, "chmod a+r -- " + word(path)));
    }
    checkInterpreterLine(path, head.bytes);
  } else if (format == Format::Other) {
    const bool empty = head.bytes.empty();
    m_Out.add(makeFinding(
        path, ScannerFindingKind::NoInterpreterLine,
        empty ? "it is empty"
              : "it is neither a binary program nor a script whose first line starts with #!",
        std::string("the host starts programs directly, never through a shell, so the start "
                    "fails: every command naming it ends with ") +
            kUnableToCreate,
        empty ? "printf '#!/bin/sh\\n' > " + word(path)
              : "sed -i '1i #!/bin/sh' -- " + word(path)));
  }
  return true;
}

void Audit::checkInterpreterLine(const std::string& path, const std::string& head) {
  std::string line = head.substr(
      2, head.find('\n') == std::string::npos ? std::string::npos : head.find('\n') - 2);
  if (!line.empty() && line.back() == '\r') {
    // The kernel cuts the line at blanks and tabs only: the CR stays on the
    // interpreter's name, or on its one argument when there is one.
    const std::string::size_type name = line.find_first_not_of(" \t");
    const std::string::size_type nameEnd = line.find_first_of(" \t", name);
    const bool argument =
        nameEnd != std::string::npos && line.find_first_not_of(" \t", nameEnd) != std::string::npos;
    m_Out.add(makeFinding(
        path, ScannerFindingKind::InterpreterLineEndsInCr,
        "its #! line ends in a carriage return (CR LF line ends)",
        argument ? "the kernel passes the carriage return on with the interpreter's argument, "
                   "which the interpreter then does not understand: commands naming it end with "
                   "CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED"
                 : "the kernel takes the carriage return for part of the interpreter's name, "
                   "which does not exist, so " +
                       std::string(kStartFails),
        "sed -i 's/\\r$//' -- " + word(path)));
    line.pop_back();
  }
  // As the kernel reads it: blanks and tabs, the interpreter, then at most
  // one argument.
  const std::string::size_type start = line.find_first_not_of(" \t");
  const std::string interpreter =
      start == std::string::npos ? std::string()
                                 : line.substr(start, line.find_first_of(" \t", start) - start);
  const std::string replaceFix = "sed -i \"1s|^#![[:blank:]]*[^[:blank:]]*|#!$(command -v " +
                                 word(lastStep(interpreter)) + ")|\" -- " + word(path);
  if (interpreter.empty()) {
    m_Out.add(makeFinding(path, ScannerFindingKind::MissingInterpreter,
                          "its #! line names no interpreter", kStartFails,
                          "sed -i '1s|^#!.*|#!/bin/sh|' -- " + word(path)));
    return;
  }
  if (interpreter[0] != '/') {
    m_Out.add(makeFinding(
        path, ScannerFindingKind::MissingInterpreter,
        "its #! line names the interpreter " + quoted(interpreter) + " by a relative path",
        "the kernel looks it up from the agent's working directory, so what "
        "runs depends on where the agent was started",
        replaceFix, interpreter));
    return;
  }
  struct stat st {};
  if (::stat(interpreter.c_str(), &st) != 0) {
    const int error = errno;
    m_Out.add(makeFinding(path, ScannerFindingKind::MissingInterpreter,
                          "its #! line names the interpreter " + quoted(interpreter) +
                              (error == ENOENT ? ", which does not exist"
                                               : ", which cannot be used: " + errorText(error)),
                          kStartFails, replaceFix, interpreter));
    return;
  }
  if (!S_ISREG(st.st_mode) || ::faccessat(AT_FDCWD, interpreter.c_str(), X_OK, AT_EACCESS) != 0) {
    m_Out.add(makeFinding(
        path, ScannerFindingKind::MissingInterpreter,
        "its #! line names the interpreter " + quoted(interpreter) + ", which cannot be executed",
        kStartFails, replaceFix, interpreter));
    return;
  }
  if (m_CheckedInterpreters.insert(interpreter).second) {
    walkPath(interpreter, Role::Interpreter, true, m_Out);
  }
}

}  // namespace

std::size_t scannerUtf8Length(const std::string& text, std::size_t i) {
  const auto c = static_cast<unsigned char>(text[i]);
  std::size_t length = 0;
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) {
    length = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    length = 3;
  } else if (c >= 0xF0 && c <= 0xF4) {
    length = 4;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

const char* scannerFindingKindName(ScannerFindingKind kind) {
  switch (kind) {
    case ScannerFindingKind::Writable:
      return "writable";
    case ScannerFindingKind::ForeignOwner:
      return "owner";
    case ScannerFindingKind::LinkLeavesDirectory:
      return "link-outside";
    case ScannerFindingKind::BrokenLink:
      return "broken-link";
    case ScannerFindingKind::NotExecutable:
      return "not-executable";
    case ScannerFindingKind::NoInterpreterLine:
      return "no-interpreter-line";
    case ScannerFindingKind::InterpreterLineEndsInCr:
      return "interpreter-line-cr";
    case ScannerFindingKind::MissingInterpreter:
      return "missing-interpreter";
    case ScannerFindingKind::UnreachableName:
      return "unreachable-name";
    case ScannerFindingKind::SiblingPrefix:
      return "sibling-prefix";
    case ScannerFindingKind::DirectorySetting:
      return "directory-setting";
    case ScannerFindingKind::NotADirectory:
      return "not-a-directory";
    case ScannerFindingKind::Uninspectable:
      return "uninspectable";
  }
  return "unknown";
}

std::vector<ScannerFinding> checkProgramSafety(const std::string& programPath) {
  Findings out;
  if (programPath.empty()) {
    out.add(uninspectable(programPath, "no program path was given"));
    return out.take();
  }
  walkPath(programPath, Role::Program, true, out);
  return out.take();
}

std::vector<ScannerFinding> auditScannerDirectory(const std::string& directory) {
  Findings out;
  Audit(out).run(directory);
  return out.take();
}

bool scannerNameIsReachable(const std::string& relativeName) {
  if (relativeName.empty() || relativeName.find('"') != std::string::npos) return false;
  return static_cast<unsigned char>(relativeName.front()) > 0x20 &&
         static_cast<unsigned char>(relativeName.back()) > 0x20;
}

std::string scannerShellWord(const std::string& text) {
  if (!text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return plainShellCharacter(static_cast<unsigned char>(c));
      })) {
    return text;
  }
  bool ansi = false;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = scannerUtf8Length(text, i);
    if (n == 0 || (n == 1 && controlCharacter(static_cast<unsigned char>(text[i])))) {
      ansi = true;
      break;
    }
    i += n;
  }
  if (!ansi) {
    std::string out = "'";
    for (char c : text) {
      if (c == '\'') {
        out += "'\\''";
      } else {
        out += c;
      }
    }
    return out + "'";
  }
  std::string out = "$'";
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = scannerUtf8Length(text, i);
    const auto c = static_cast<unsigned char>(text[i]);
    if (n == 0 || (n == 1 && controlCharacter(c))) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", c);
      out += escape;
      i += 1;
    } else if (c == '\\' || c == '\'') {
      out += '\\';
      out += static_cast<char>(c);
      i += 1;
    } else {
      out.append(text, i, n);
      i += n;
    }
  }
  return out + "'";
}
