#include "TestSupport.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/ProcessDiagnostics.h"
#include "base/WideText.h"
#include "config/HostSettings.h"
#include "config/ZelCfg.h"

namespace cstest {

namespace {
void removeTree(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    ::chmod(path.c_str(), 0700);
    if (DIR* d = ::opendir(path.c_str())) {
      while (dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        removeTree(path + "/" + e->d_name);
      }
      ::closedir(d);
    }
    ::rmdir(path.c_str());
  } else {
    ::unlink(path.c_str());
  }
}
}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/cstest.XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (::mkdtemp(buf.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  m_Path = buf.data();
}

TempDir::~TempDir() { removeTree(m_Path); }

std::string TempDir::file(const std::string& name) const { return m_Path + "/" + name; }

void makeDirectory(const std::string& path) {
  std::string partial;
  std::stringstream in(path);
  std::string part;
  if (!path.empty() && path[0] == '/') partial = "";
  while (std::getline(in, part, '/')) {
    if (part.empty()) continue;
    partial += "/" + part;
    if (path[0] != '/' && partial[0] == '/') partial.erase(0, 1);
    ::mkdir(partial.c_str(), 0755);
  }
}

void writeFile(const std::string& path, const std::string& content, unsigned mode) {
  std::string::size_type slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) makeDirectory(path.substr(0, slash));
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw std::runtime_error("cannot write " + path);
    out << content;
  }
  ::chmod(path.c_str(), mode);
}

void writeScript(const std::string& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body + "\n", 0755);
}

void installTestChild(const std::string& path) {
  writeFile(path, readFile(CUSTOMSCAN_TEST_CHILD_PATH), 0755);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool fileExists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

TraceCapture::TraceCapture(int maxLevel) : m_Sink(maxLevel), m_Previous(TraceControl::getSink()) {
  TraceControl::setSink(&m_Sink);
}

TraceCapture::~TraceCapture() { TraceControl::setSink(m_Previous); }

void TraceCapture::Sink::record(const TraceRecord& record) {
  if (record.component == ProcessDiagnostics::kTraceComponent) {
    runnerRecords.push_back(record);
  } else {
    MemoryTraceSink::record(record);
  }
}

namespace {
std::vector<std::string> textsOf(const std::vector<TraceRecord>& records, int level) {
  std::vector<std::string> out;
  for (const auto& r : records) {
    if (level == 0 || r.level == level) out.push_back(narrow(r.text));
  }
  return out;
}
}  // namespace

std::vector<std::string> TraceCapture::texts(int level) const {
  return textsOf(m_Sink.records, level);
}

std::vector<std::string> TraceCapture::runnerTexts(int level) const {
  return textsOf(m_Sink.runnerRecords, level);
}

ScannerDirScope::ScannerDirScope(const std::string& dir)
    : m_Previous(ZelCfg::getCustomScannerDir().toNarrow()) {
  HostSettings::setCustomScannerDir(String(dir.c_str()));
}

ScannerDirScope::~ScannerDirScope() {
  HostSettings::setCustomScannerDir(String(m_Previous.c_str()));
}

std::vector<int> openDescriptors() {
  std::vector<int> fds;
  DIR* d = ::opendir("/proc/self/fd");
  if (d == nullptr) return fds;
  int own = ::dirfd(d);
  while (dirent* e = ::readdir(d)) {
    if (e->d_name[0] == '.') continue;
    int fd = std::atoi(e->d_name);
    if (fd != own) fds.push_back(fd);
  }
  ::closedir(d);
  return fds;
}

bool hasZombieChildren() {
  siginfo_t info{};
  // WNOWAIT leaves any finished child as it is; we only look.
  int rc = ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
  return rc == 0 && info.si_pid != 0;
}

std::string narrow(const std::wstring& text) { return hostEncodeNarrow(text.data(), text.size()); }

}  // namespace cstest
