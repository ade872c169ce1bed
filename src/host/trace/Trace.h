#pragma once
// The host trace library. Tracer::getInstance(component) is the process-wide
// tracer; a Trace opened with a label is a scope, a Trace opened with a label
// and a level is a record: positioned with Trace::pos, given text pieces with
// operator<<, and emitted when Trace::End (modifier 0) is streamed.
// Records and scopes go to one process-wide sink chosen by the host: none by
// default (a record then costs a pointer test), a stream, or a memory list.

#include <cstdio>
#include <string>
#include <vector>

#include "base/String.h"

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

class Tracer {
 public:
  typedef int Component;
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  static Tracer* getInstance(Component component);
  Component getComponent() const { return m_Component; }

  // The process-wide sink; null means none. The sink is not owned and must
  // outlive its use.
  static void setSink(TraceSink* sink);
  // Inline: every record asks first whether anyone keeps it.
  static TraceSink* getSink() { return s_Sink; }

 private:
  explicit Tracer(Component component) : m_Component(component) {}
  Component m_Component;
  static TraceSink* s_Sink;
};

class Trace {
 public:
  enum Level { Error = 1, Warning = 2, Detail = 3, Scope = 4 };
  enum Modifier { End = 0 };
  struct Position {
    const char* file;
    int line;
  };
  static Position pos(const char* file, int line) { return Position{file, line}; }

  // A scope, entered now and left when the object is destroyed.
  Trace(Tracer* tracer, const char* label);
  Trace(Tracer* tracer, const wchar_t* label);
  // A record of the given level.
  Trace(Tracer* tracer, const char* label, int level);
  Trace(Tracer* tracer, const wchar_t* label, int level);
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace();

  Trace& operator<<(Position position);
  Trace& operator<<(const wchar_t* text);
  Trace& operator<<(const char* text);
  Trace& operator<<(const String& text);
  Trace& operator<<(int value);
  Trace& operator<<(unsigned int value);
  Trace& operator<<(long value);
  Trace& operator<<(unsigned long value);
  Trace& operator<<(long long value);
  Trace& operator<<(unsigned long long value);
  // Modifier 0 ends the record and emits it.
  Trace& operator<<(Modifier modifier);

 private:
  void openScope(Tracer* tracer, std::string label);
  void openRecord(Tracer* tracer, std::string label, int level);

  TraceSink* m_Sink = nullptr;  // null: inactive
  bool m_IsScope = false;
  TraceRecord m_Record;
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
