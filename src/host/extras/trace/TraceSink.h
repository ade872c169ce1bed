#pragma once
// Where the host's trace records go: a process-wide sink chosen by the host,
// none by default. Plug-in code cannot include this header.

#include <cstdio>
#include <string>
#include <vector>

#include "trace/Trace.h"

struct TraceRecord {
  int component = 0;
  int level = 0;
  std::string label;  // narrow; wide labels are converted
  std::string file;
  int line = 0;
  std::wstring text;  // the pieces, concatenated
};

class TraceSink {
 public:
  TraceSink() = default;
  TraceSink(const TraceSink&) = delete;
  TraceSink& operator=(const TraceSink&) = delete;
  virtual ~TraceSink() = default;
  // Records above this level are not built at all.
  virtual int maxLevel() const = 0;
  virtual void record(const TraceRecord& record) = 0;
  // A scope was entered or left; only called when maxLevel() >= Trace::Scope.
  virtual void scope(int component, const std::string& label, bool entering) {}
};

class TraceControl {
 public:
  // The process-wide sink; null means none. The sink is not owned and must
  // outlive its use.
  static void setSink(TraceSink* sink);
  static TraceSink* getSink();
};

// Writes records of maxLevel and below to a stream, one line each:
// "<level> <label>: <text>". Scopes appear at level 4 as "4 <label>: enter"
// and "4 <label>: leave".
class StreamTraceSink : public TraceSink {
 public:
  StreamTraceSink(std::FILE* stream, int maxLevel) : m_Stream(stream), m_MaxLevel(maxLevel) {}
  int maxLevel() const override { return m_MaxLevel; }
  void record(const TraceRecord& record) override;
  void scope(int component, const std::string& label, bool entering) override;

 private:
  std::FILE* m_Stream;
  int m_MaxLevel;
};

// Keeps every record (and, with maxLevel 4, every scope event) for tests.
class MemoryTraceSink : public TraceSink {
 public:
  struct ScopeEvent {
    std::string label;
    bool entering;
  };
  explicit MemoryTraceSink(int maxLevel = Trace::Detail) : m_MaxLevel(maxLevel) {}
  int maxLevel() const override { return m_MaxLevel; }
  void record(const TraceRecord& record) override { records.push_back(record); }
  void scope(int component, const std::string& label, bool entering) override {
    scopes.push_back(ScopeEvent{label, entering});
  }
  void clear() {
    records.clear();
    scopes.clear();
  }

  std::vector<TraceRecord> records;
  std::vector<ScopeEvent> scopes;

 private:
  int m_MaxLevel;
};
