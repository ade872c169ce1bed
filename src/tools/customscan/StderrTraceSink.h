#pragma once
// The trace sink of --trace: every record of the chosen level and below on its
// own line of a stream (standard error), as "LEVEL LABEL: TEXT", the text being
// the record's pieces concatenated. Line feeds and carriage returns inside a
// text are written as \n and \r so that one record stays one line. Scopes are
// written only at level 4, as "4 LABEL: enter" and "4 LABEL: leave".

#include <cstdio>
#include <string>

#include "trace/TraceSink.h"

namespace CustomScanTool {

class StderrTraceSink : public TraceSink {
 public:
  StderrTraceSink(int maxLevel, int fd = 2) : m_MaxLevel(maxLevel), m_Fd(fd) {}
  int maxLevel() const override { return m_MaxLevel; }
  void record(const TraceRecord& record) override;
  void scope(int component, const std::string& label, bool entering) override;

  // The line written for a record, without its final line feed.
  static std::string formatRecord(const TraceRecord& record);

 private:
  void writeLine(const std::string& line);

  int m_MaxLevel;
  int m_Fd;
};

// Installs a sink as the process-wide trace sink while it lives.
class TraceSinkScope {
 public:
  explicit TraceSinkScope(TraceSink* sink) : m_Previous(TraceControl::getSink()) {
    TraceControl::setSink(sink);
  }
  TraceSinkScope(const TraceSinkScope&) = delete;
  TraceSinkScope& operator=(const TraceSinkScope&) = delete;
  ~TraceSinkScope() { TraceControl::setSink(m_Previous); }

 private:
  TraceSink* m_Previous;
};

}  // namespace CustomScanTool
