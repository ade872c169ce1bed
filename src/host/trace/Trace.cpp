#include "trace/Trace.h"

#include <cstring>
#include <cwchar>
#include <map>
#include <memory>
#include <new>

#include "base/StringExtras.h"
#include "base/WideText.h"
#include "base/WideTextExtras.h"
#include "trace/TraceSink.h"

namespace {
std::string narrowLabel(const wchar_t* label) {
  if (label == nullptr) return std::string();
  return hostEncodeNarrow(label, std::wcslen(label));
}
}  // namespace

Tracer* Tracer::getInstance(Component component) {
  // Tracers live for the whole process; one per component. The first few
  // components are served without a lookup: every traced call asks for one.
  static Tracer* fast[16] = {};
  if (component >= 0 && component < 16) {
    // Without room for a tracer its callers get one that is not kept: a
    // trace never fails them.
    if (fast[component] == nullptr) fast[component] = new (std::nothrow) Tracer(component);
    if (fast[component] == nullptr) {
      static Tracer unkept(component);
      return &unkept;
    }
    return fast[component];
  }
  static std::map<Component, std::unique_ptr<Tracer>> tracers;
  auto it = tracers.find(component);
  if (it == tracers.end()) {
    it = tracers.emplace(component, std::unique_ptr<Tracer>(new Tracer(component))).first;
  }
  return it->second.get();
}

namespace {
TraceSink* g_Sink = nullptr;
}  // namespace

void TraceControl::setSink(TraceSink* sink) { g_Sink = sink; }

TraceSink* TraceControl::getSink() { return g_Sink; }

// A trace that cannot keep its record (no memory for it) stays inactive: the
// record is lost, never the caller's work. Nothing here throws into the
// caller, whatever the allocator or the sink does.
void Trace::drop() noexcept {
  delete m_Record;
  m_Record = nullptr;
  m_Sink = nullptr;
}

namespace {
std::string labelText(const char* label) { return label != nullptr ? label : ""; }
std::string labelText(const wchar_t* label) { return narrowLabel(label); }
}  // namespace

// A sink that does not keep the level costs no copy of the label.
template <typename Char>
void Trace::open(Tracer* tracer, const Char* label, int level) noexcept {
  TraceSink* sink = g_Sink;
  if (sink == nullptr || sink->maxLevel() < level) return;
  try {
    m_Record = new (std::nothrow) TraceRecord();
    if (m_Record == nullptr) return;
    m_Sink = sink;
    m_Record->component = tracer != nullptr ? tracer->getComponent() : 0;
    m_Record->level = level;
    m_Record->label = labelText(label);
    if (m_IsScope) m_Sink->scope(m_Record->component, m_Record->label, true);
  } catch (...) {
    drop();
  }
}

Trace::Trace(Tracer* tracer, const char* label) : m_IsScope(true) { open(tracer, label, Scope); }

Trace::Trace(Tracer* tracer, const wchar_t* label) : m_IsScope(true) { open(tracer, label, Scope); }

Trace::Trace(Tracer* tracer, const char* label, int level) { open(tracer, label, level); }

Trace::Trace(Tracer* tracer, const wchar_t* label, int level) { open(tracer, label, level); }

Trace::~Trace() {
  if (m_Sink != nullptr && m_IsScope) {
    try {
      m_Sink->scope(m_Record->component, m_Record->label, false);
    } catch (...) {
    }
  }
  delete m_Record;
}

Trace& Trace::operator<<(Position position) {
  if (m_Sink != nullptr && !m_IsScope) {
    m_Record->file = position.file != nullptr ? position.file : "";
    m_Record->line = position.line;
  }
  return *this;
}

Trace& Trace::operator<<(const wchar_t* text) {
  if (m_Sink == nullptr || m_IsScope || text == nullptr) return *this;
  try {
    m_Record->text.append(text);
  } catch (...) {
    drop();
  }
  return *this;
}

Trace& Trace::operator<<(const char* text) {
  if (m_Sink == nullptr || m_IsScope || text == nullptr) return *this;
  try {
    hostDecodeNarrowAppend(m_Record->text, text, std::strlen(text));
  } catch (...) {
    drop();
  }
  return *this;
}

Trace& Trace::operator<<(const String& text) {
  if (m_Sink == nullptr || m_IsScope) return *this;
  try {
    m_Record->text.append(toWideString(text));
  } catch (...) {
    drop();
  }
  return *this;
}

namespace {
template <typename T>
void appendNumber(std::wstring& out, T value) {
  out.append(std::to_wstring(value));
}
}  // namespace

#define CS_TRACE_NUMBER(type)                         \
  Trace& Trace::operator<<(type value) {              \
    if (m_Sink == nullptr || m_IsScope) return *this; \
    try {                                             \
      appendNumber(m_Record->text, value);            \
    } catch (...) {                                   \
      drop();                                         \
    }                                                 \
    return *this;                                     \
  }
CS_TRACE_NUMBER(int)
CS_TRACE_NUMBER(unsigned int)
CS_TRACE_NUMBER(long)
CS_TRACE_NUMBER(unsigned long)
CS_TRACE_NUMBER(long long)
CS_TRACE_NUMBER(unsigned long long)
#undef CS_TRACE_NUMBER

Trace& Trace::operator<<(Modifier modifier) {
  if (modifier == End && m_Sink != nullptr && !m_IsScope) {
    try {
      m_Sink->record(*m_Record);
      m_Record->text.clear();
    } catch (...) {
      drop();
    }
  }
  return *this;
}

void StreamTraceSink::record(const TraceRecord& record) {
  std::string text = hostEncodeNarrow(record.text.data(), record.text.size());
  std::fprintf(m_Stream, "%d %s: %s\n", record.level, record.label.c_str(), text.c_str());
  std::fflush(m_Stream);
}

void StreamTraceSink::scope(int component, const std::string& label, bool entering) {
  std::fprintf(m_Stream, "4 %s: %s\n", label.c_str(), entering ? "enter" : "leave");
  std::fflush(m_Stream);
}
