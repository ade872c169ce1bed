#pragma once
// Helpers shared by the tests: temporary directories, files and scanners, the
// trace recorder, and the host's scanner directory setting.

#include <string>
#include <vector>

#include "base/FileExtras.h"
#include "base/ProcessExtras.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "sdk/SdkString.h"
#include "trace/TraceSink.h"

// The wide text of a result string, as toWideString gives that of a String.
inline std::wstring toWideString(const PluginSDK::String& s) { return s.wstr(); }

namespace cstest {

// A fresh directory below $TMPDIR (or /tmp), removed with its contents when
// the object goes out of scope.
class TempDir {
 public:
  TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();
  const std::string& path() const { return m_Path; }
  // path() + "/" + name
  std::string file(const std::string& name) const;

 private:
  std::string m_Path;
};

// Writes content to path (creating parent directories); mode as for chmod.
void writeFile(const std::string& path, const std::string& content, unsigned mode = 0644);
// Writes a /bin/sh script with the given body, executable.
void writeScript(const std::string& path, const std::string& body);
// Copies the cs_testchild program to path, executable.
void installTestChild(const std::string& path);
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
void makeDirectory(const std::string& path);

// Records trace records (and scopes when maxLevel is 4) while it lives. The
// records of the host's process runner (its own trace component) are kept
// apart, so that records() and texts() are what the code under test wrote.
class TraceCapture {
 public:
  explicit TraceCapture(int maxLevel = Trace::Detail);
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;
  ~TraceCapture();
  const std::vector<TraceRecord>& records() const { return m_Sink.records; }
  const std::vector<MemoryTraceSink::ScopeEvent>& scopes() const { return m_Sink.scopes; }
  // The texts of the records of one level (0: all), narrow, in order.
  std::vector<std::string> texts(int level = 0) const;
  // The same of the process runner's records.
  std::vector<std::string> runnerTexts(int level = 0) const;
  void clear() { m_Sink.clear(); }

 private:
  class Sink : public MemoryTraceSink {
   public:
    explicit Sink(int maxLevel) : MemoryTraceSink(maxLevel) {}
    void record(const TraceRecord& record) override;
    void clear() {
      MemoryTraceSink::clear();
      runnerRecords.clear();
    }
    std::vector<TraceRecord> runnerRecords;
  };
  Sink m_Sink;
  TraceSink* m_Previous;
};

// Sets the host's custom scanner directory while it lives.
class ScannerDirScope {
 public:
  explicit ScannerDirScope(const std::string& dir);
  ScannerDirScope(const ScannerDirScope&) = delete;
  ScannerDirScope& operator=(const ScannerDirScope&) = delete;
  ~ScannerDirScope();

 private:
  std::string m_Previous;
};

// Open descriptors of this process, and whether any child is left unreaped.
std::vector<int> openDescriptors();
bool hasZombieChildren();

std::string narrow(const std::wstring& text);

}  // namespace cstest
