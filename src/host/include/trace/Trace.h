#pragma once
// The host trace library. Tracer::getInstance(component) is the process-wide
// tracer; a Trace opened with a label is a scope, a Trace opened with a label
// and a level is a record: positioned with Trace::pos, given text pieces with
// operator<<, and emitted when Trace::End (modifier 0) is streamed.
// Where records go is the host's choice (its sinks are not the plug-in's
// business); a record that no sink keeps costs a test per piece.

#include <string>

#include "base/String.h"

class TraceSink;
struct TraceRecord;

class Tracer {
 public:
  typedef int Component;
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  static Tracer* getInstance(Component component);
  Component getComponent() const { return m_Component; }

 private:
  explicit Tracer(Component component) : m_Component(component) {}
  Component m_Component;
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
  // Makes the record when a sink keeps its level; a scope is entered too.
  template <typename Char>
  void open(Tracer* tracer, const Char* label, int level) noexcept;
  // Lets the record go when it cannot be kept or handed to the sink: a
  // trace never fails its caller's work, nor throws into it.
  void drop() noexcept;

  TraceSink* m_Sink = nullptr;  // null: inactive, nothing is kept
  bool m_IsScope = false;
  TraceRecord* m_Record = nullptr;  // made only when a sink keeps it
};
