// A child program for the process tests. Its arguments are a little script of
// steps run in order:
//   args            print each argument after argv[0], one per line, as [arg]
//   env             print the whole environment, one entry per line
//   print TEXT      write TEXT with \n \r \t \0 \\ and \xHH escapes decoded
//   write N         write N bytes of 'x'
//   newlines N      write N line feeds
//   bytes N         write N bytes cycling through 0..255
//   stdin           read standard input to its end and print "stdin:<bytes>"
//   fds             print the open descriptors, one per line, as fd:<n>
//   sigmask         print the blocked and ignored signal sets from /proc
//   closeout        close standard output
//   sleep MS        sleep MS milliseconds
//   signal N        raise signal N
//   exit N          exit with status N
//   touch PATH      create the file PATH (proves the program ran)
//   stderr TEXT     write TEXT, decoded as for print, to standard error
//   errwrite N      write N bytes of 'e' to standard error
//   ignore N        ignore signal N from now on
//   ids             print "pid:<n>" and "pgid:<n>", one per line
//   fork            from here on, the steps run in a child of this program
//                   (the parent exits 0 at once, its descendant keeping its
//                   descriptors and process group)
// With no steps it exits 0 silently.

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern char** environ;

namespace {

void writeAll(const char* data, size_t n) {
  while (n > 0) {
    ssize_t w = ::write(1, data, n);
    if (w <= 0) std::_Exit(99);
    data += w;
    n -= static_cast<size_t>(w);
  }
}

void writeText(const std::string& s) { writeAll(s.data(), s.size()); }

void writeError(const char* data, size_t n) {
  while (n > 0) {
    ssize_t w = ::write(2, data, n);
    if (w <= 0) std::_Exit(97);
    data += w;
    n -= static_cast<size_t>(w);
  }
}

std::string decode(const char* text) {
  std::string out;
  for (const char* p = text; *p != 0; ++p) {
    if (*p != '\\' || p[1] == 0) {
      out.push_back(*p);
      continue;
    }
    ++p;
    switch (*p) {
      case 'n':
        out.push_back('\n');
        break;
      case 'r':
        out.push_back('\r');
        break;
      case 't':
        out.push_back('\t');
        break;
      case '0':
        out.push_back('\0');
        break;
      case '\\':
        out.push_back('\\');
        break;
      case 'x': {
        char hex[3] = {p[1], p[1] != 0 ? p[2] : '\0', 0};
        out.push_back(static_cast<char>(std::strtol(hex, nullptr, 16)));
        p += (p[1] != 0 && p[2] != 0) ? 2 : 0;
        break;
      }
      default:
        out.push_back('\\');
        out.push_back(*p);
        break;
    }
  }
  return out;
}

void printFile(const char* path, const char* prefixes[]) {
  FILE* f = std::fopen(path, "r");
  if (f == nullptr) return;
  char line[512];
  while (std::fgets(line, sizeof line, f) != nullptr) {
    for (int i = 0; prefixes[i] != nullptr; ++i) {
      if (std::strncmp(line, prefixes[i], std::strlen(prefixes[i])) == 0) writeText(line);
    }
  }
  std::fclose(f);
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string step = argv[i];
    const char* arg = i + 1 < argc ? argv[i + 1] : "";
    if (step == "args") {
      for (int k = 1; k < argc; ++k) writeText("[" + std::string(argv[k]) + "]\n");
    } else if (step == "env") {
      for (char** e = environ; *e != nullptr; ++e) writeText(std::string(*e) + "\n");
    } else if (step == "print") {
      writeText(decode(arg));
      ++i;
    } else if (step == "write") {
      long n = std::atol(arg);
      std::string block(65536, 'x');
      while (n > 0) {
        size_t chunk = n < 65536 ? static_cast<size_t>(n) : 65536;
        writeAll(block.data(), chunk);
        n -= static_cast<long>(chunk);
      }
      ++i;
    } else if (step == "newlines") {
      long n = std::atol(arg);
      std::string block(65536, '\n');
      while (n > 0) {
        size_t chunk = n < 65536 ? static_cast<size_t>(n) : 65536;
        writeAll(block.data(), chunk);
        n -= static_cast<long>(chunk);
      }
      ++i;
    } else if (step == "bytes") {
      long n = std::atol(arg);
      for (long k = 0; k < n; ++k) {
        char c = static_cast<char>(k % 256);
        writeAll(&c, 1);
      }
      ++i;
    } else if (step == "stdin") {
      char buf[4096];
      long total = 0;
      ssize_t r;
      while ((r = ::read(0, buf, sizeof buf)) > 0) total += r;
      writeText("stdin:" + std::to_string(total) + "\n");
    } else if (step == "fds") {
      DIR* d = ::opendir("/proc/self/fd");
      if (d == nullptr) return 98;
      int own = ::dirfd(d);
      while (dirent* e = ::readdir(d)) {
        if (e->d_name[0] == '.') continue;
        int fd = std::atoi(e->d_name);
        if (fd != own) writeText("fd:" + std::to_string(fd) + "\n");
      }
      ::closedir(d);
    } else if (step == "sigmask") {
      const char* prefixes[] = {"SigBlk:", "SigIgn:", nullptr};
      printFile("/proc/self/status", prefixes);
    } else if (step == "closeout") {
      ::close(1);
    } else if (step == "sleep") {
      ::usleep(static_cast<useconds_t>(std::atol(arg)) * 1000);
      ++i;
    } else if (step == "signal") {
      ::signal(std::atoi(arg), SIG_DFL);
      ::raise(std::atoi(arg));
      ++i;
    } else if (step == "exit") {
      return std::atoi(arg);
    } else if (step == "stderr") {
      std::string text = decode(arg);
      writeError(text.data(), text.size());
      ++i;
    } else if (step == "errwrite") {
      long n = std::atol(arg);
      std::string block(65536, 'e');
      while (n > 0) {
        size_t chunk = n < 65536 ? static_cast<size_t>(n) : 65536;
        writeError(block.data(), chunk);
        n -= static_cast<long>(chunk);
      }
      ++i;
    } else if (step == "ignore") {
      ::signal(std::atoi(arg), SIG_IGN);
      ++i;
    } else if (step == "ids") {
      writeText("pid:" + std::to_string(::getpid()) + "\npgid:" + std::to_string(::getpgrp()) +
                "\n");
    } else if (step == "fork") {
      pid_t pid = ::fork();
      if (pid < 0) return 96;
      if (pid > 0) return 0;
    } else if (step == "touch") {
      FILE* f = std::fopen(arg, "w");
      if (f != nullptr) std::fclose(f);
      ++i;
    }
  }
  return 0;
}
