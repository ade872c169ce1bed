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
    if (fast[component] == nullptr) fast[component] = new Tracer(component);
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
// record is lost, never the caller's work.
void Trace::openScope(Tracer* tracer, std::string label) {
  m_IsScope = true;
  TraceSink* sink = g_Sink;
  if (sink == nullptr || sink->maxLevel() < Scope) return;
  m_Record = new (std::nothrow) TraceRecord();
  if (m_Record == nullptr) return;
  m_Sink = sink;
  m_Record->component = tracer != nullptr ? tracer->getComponent() : 0;
  m_Record->label = std::move(label);
  m_Sink->scope(m_Record->component, m_Record->label, true);
}

void Trace::openRecord(Tracer* tracer, std::string label, int level) {
  TraceSink* sink = g_Sink;
  if (sink == nullptr || sink->maxLevel() < level) return;
  m_Record = new (std::nothrow) TraceRecord();
  if (m_Record == nullptr) return;
  m_Sink = sink;
  m_Record->component = tracer != nullptr ? tracer->getComponent() : 0;
  m_Record->level = level;
  m_Record->label = std::move(label);
}

Trace::Trace(Tracer* tracer, const char* label) {
  if (g_Sink != nullptr) openScope(tracer, label != nullptr ? label : "");
  m_IsScope = true;
}

Trace::Trace(Tracer* tracer, const wchar_t* label) {
  if (g_Sink != nullptr) openScope(tracer, narrowLabel(label));
  m_IsScope = true;
}

Trace::Trace(Tracer* tracer, const char* label, int level) {
  if (g_Sink != nullptr && g_Sink->maxLevel() >= level) {
    openRecord(tracer, label != nullptr ? label : "", level);
  }
}

Trace::Trace(Tracer* tracer, const wchar_t* label, int level) {
  if (g_Sink != nullptr && g_Sink->maxLevel() >= level)
    openRecord(tracer, narrowLabel(label), level);
}

Trace::~Trace() {
  if (m_Sink != nullptr && m_IsScope) m_Sink->scope(m_Record->component, m_Record->label, false);
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
  if (m_Sink != nullptr && !m_IsScope && text != nullptr) m_Record->text.append(text);
  return *this;
}

Trace& Trace::operator<<(const char* text) {
  if (m_Sink != nullptr && !m_IsScope && text != nullptr) {
    hostDecodeNarrowAppend(m_Record->text, text, std::strlen(text));
  }
  return *this;
}

Trace& Trace::operator<<(const String& text) {
  if (m_Sink != nullptr && !m_IsScope) m_Record->text.append(toWideString(text));
  return *this;
}

namespace {
template <typename T>
void appendNumber(std::wstring& out, T value) {
  out.append(std::to_wstring(value));
}
}  // namespace

Trace& Trace::operator<<(int value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}
Trace& Trace::operator<<(unsigned int value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}
Trace& Trace::operator<<(long value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}
Trace& Trace::operator<<(unsigned long value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}
Trace& Trace::operator<<(long long value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}
Trace& Trace::operator<<(unsigned long long value) {
  if (m_Sink != nullptr && !m_IsScope) appendNumber(m_Record->text, value);
  return *this;
}

Trace& Trace::operator<<(Modifier modifier) {
  if (modifier == End && m_Sink != nullptr && !m_IsScope) {
    m_Sink->record(*m_Record);
    m_Record->text.clear();
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
