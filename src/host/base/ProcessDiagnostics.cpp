#include "base/ProcessDiagnostics.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/ScannerSafety.h"

// last(), lastCreationFailure(), clear() and signalActiveProcessGroups() are
// defined in Runtime.cpp, beside the state they read.

namespace {

// A path or an interpreter name as one printable line: control bytes become
// \r, \n, \t or \xHH, so that a carriage return at the end of a #! line shows.
std::string visible(const std::string& text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c == '\r') {
      out += "\\r";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
      out += "\\x";
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// strerror's text with a lower-case first letter, to follow a colon.
std::string systemText(int error) {
  std::string text = std::strerror(error);
  if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z')
    text[0] = static_cast<char>(text[0] - 'A' + 'a');
  return text;
}

// The first bytes of a regular file (at most 256), or false when it cannot be
// read. Never blocks: a FIFO or a device is not opened for reading.
bool readHead(const std::string& path, std::string& head) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return false;
  char buffer[256];
  ssize_t n;
  do {
    n = ::read(fd, buffer, sizeof buffer);
  } while (n < 0 && errno == EINTR);
  ::close(fd);
  if (n < 0) return false;
  head.assign(buffer, static_cast<std::size_t>(n));
  return true;
}

bool startsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

const char kBom[] = "\xef\xbb\xbf";

// The interpreter that a #! line names, as the kernel takes it: the word after
// "#!" and any blanks, ended by a blank, a tab, a line feed or a zero byte (a
// carriage return is part of it). Empty when head does not start with "#!".
std::string interpreterOf(const std::string& head) {
  if (!startsWith(head, "#!")) return std::string();
  std::size_t begin = head.find_first_not_of(" \t", 2);
  if (begin == std::string::npos) return std::string();
  std::size_t end = head.find_first_of(std::string(" \t\n\0", 4), begin);
  return head.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
}

bool isElf(const std::string& head) {
  return startsWith(head,
                    "\x7f"
                    "ELF");
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

std::string explainMissing(const std::string& program) {
  const std::string shown = visible(program);
  struct stat st {};
  if (::lstat(program.c_str(), &st) != 0) {
    if (errno == ENOTDIR)
      return "no such file: a part of the path of " + shown + " is not a directory";
    return "no such file: " + shown;
  }
  if (S_ISLNK(st.st_mode) && !exists(program)) {
    char target[4096];
    ssize_t n = ::readlink(program.c_str(), target, sizeof target - 1);
    std::string to = n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string("?");
    return "no such file: " + shown + " is a symbolic link to " + visible(to) +
           ", which does not exist";
  }
  std::string head;
  if (!readHead(program, head)) return "no such file or directory: " + shown;
  const std::string interpreter = interpreterOf(head);
  if (!interpreter.empty()) {
    if (interpreter.back() == '\r') {
      return "bad interpreter \"" + visible(interpreter) + "\" in the #! line of " + shown +
             ": no such file (the line ends in a carriage return: the file has CRLF line ends; "
             "remove them with sed -i 's/\\r$//' " +
             shown + ")";
    }
    if (!exists(interpreter)) {
      return "bad interpreter \"" + visible(interpreter) + "\" in the #! line of " + shown +
             ": no such file";
    }
    return "no such file or directory: the interpreter " + visible(interpreter) + " of " + shown +
           ", or a program or library it needs, is missing";
  }
  if (isElf(head)) {
    return "no such file or directory: the loader or a library that " + shown + " needs is missing";
  }
  return "no such file or directory: " + shown;
}

std::string explainDenied(const std::string& program) {
  const std::string shown = visible(program);
  struct stat st {};
  if (::stat(program.c_str(), &st) != 0) {
    if (errno == EACCES)
      return "permission denied: a directory on the path of " + shown + " cannot be searched";
    return "permission denied: " + shown;
  }
  if (S_ISDIR(st.st_mode)) return "permission denied: " + shown + " is a directory";
  if (!S_ISREG(st.st_mode)) return "permission denied: " + shown + " is not a regular file";
  if (::access(program.c_str(), X_OK) != 0) {
    return "permission denied: " + shown + " is not executable (chmod +x " + shown + ")";
  }
  struct statvfs fs {};
  if (::statvfs(program.c_str(), &fs) == 0 && (fs.f_flag & ST_NOEXEC) != 0) {
    return "permission denied: " + shown + " lies on a file system mounted noexec";
  }
  std::string head;
  if (readHead(program, head)) {
    const std::string interpreter = interpreterOf(head);
    if (!interpreter.empty() && ::access(interpreter.c_str(), X_OK) != 0) {
      return "permission denied: the interpreter " + visible(interpreter) + " in the #! line of " +
             shown + " cannot be executed";
    }
  }
  return "permission denied: " + shown;
}

std::string explainFormat(const std::string& program) {
  const std::string shown = visible(program);
  std::string head;
  if (!readHead(program, head)) return "exec format error: " + shown;
  if (head.empty()) {
    return "exec format error: " + shown +
           " is empty (a script must begin with a #! line, e.g. #!/bin/sh)";
  }
  if (startsWith(head, std::string(kBom).append("#!").c_str())) {
    return "exec format error: " + shown +
           " begins with a byte order mark before its #! line (save it as UTF-8 without one)";
  }
  if (startsWith(head, "#!")) {
    const std::string interpreter = interpreterOf(head);
    if (interpreter.empty())
      return "exec format error: the #! line of " + shown + " names no interpreter";
    return "exec format error: the #! line of " + shown + " cannot be used (its interpreter " +
           visible(interpreter) + " is not a program this system runs, or the line is too long)";
  }
  if (isElf(head))
    return "exec format error: " + shown + " is a program for another kind of machine";
  return "exec format error: " + shown +
         " has no #! line (a script must begin with one, e.g. #!/bin/sh)";
}

}  // namespace

std::string ProcessDiagnostics::explainCreationFailure(const std::string& program, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return explainMissing(program);
    case EACCES:
      return explainDenied(program);
    case ENOEXEC:
      return explainFormat(program);
    case ETXTBSY:
      return "text file busy: " + visible(program) + " is open for writing";
    default:
      return systemText(error) + ": " + visible(program);
  }
}

std::string ProcessDiagnostics::unsafeProgramReason(const std::string& program) {
  if (program.empty()) return std::string();
  // The checks are those of `customscan doctor`; of its findings, those
  // about who can change the program refuse it. A program that does not
  // exist is left to posix_spawn, which then says why it cannot be started;
  // one that exists but could not be looked at all the way is refused, as
  // nobody can vouch for it.
  const std::vector<ScannerFinding> findings = checkProgramSafety(program);
  const ScannerFinding* refusal = nullptr;
  for (const ScannerFinding& finding : findings) {
    if (finding.kind == ScannerFindingKind::Writable ||
        finding.kind == ScannerFindingKind::ForeignOwner) {
      refusal = &finding;
      break;
    }
  }
  struct stat st {};
  if (refusal == nullptr && ::stat(program.c_str(), &st) == 0) {
    for (const ScannerFinding& finding : findings) {
      if (finding.kind == ScannerFindingKind::Uninspectable) {
        refusal = &finding;
        break;
      }
    }
  }
  if (refusal == nullptr) return std::string();
  const char* verb = refusal->kind == ScannerFindingKind::Uninspectable ? " " : " is ";
  return "refused: " + visible(refusal->path) + verb + refusal->problem + "; fix: " + refusal->fix;
}

std::string ProcessDiagnostics::signalName(int signal) {
  const char* abbreviation = ::sigabbrev_np(signal);
  if (abbreviation == nullptr) return "signal " + std::to_string(signal);
  return std::string("SIG") + abbreviation;
}
