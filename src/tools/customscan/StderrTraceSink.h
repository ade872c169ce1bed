#pragma once
// The trace sink of --trace: every record of the chosen level and below on its
// own line of a stream (standard error), as "LEVEL LABEL: TEXT", the text being
// the record's pieces concatenated. Scopes are written only at level 4, as
// "4 LABEL: enter" and "4 LABEL: leave".
//
// A line is safe to show on a terminal and one record is always one line:
// line feed, carriage return, tab and backslash are written as \n \r \t \\;
// every other control character (U+0000..U+001F, U+007F, escape included) as
// \xNN and the C1 controls U+0080..U+009F as \u{NN}; a byte that arrived as
// invalid UTF-8 as \xNN (80 to ff); a value UTF-8 cannot carry as \u{...}.
// Of a long text only the first kHeadCharacters characters are written,
// followed by "... [N more characters]": a record that carries a command's
// whole output so far must not write the output again with every line.

#include <cstddef>
#include <string>

#include "trace/TraceSink.h"

namespace CustomScanTool {

class StderrTraceSink : public TraceSink {
 public:
  // The characters of a record's text that a line shows, before escaping.
  static constexpr std::size_t kHeadCharacters = 512;

  StderrTraceSink(int maxLevel, int fd = 2) : m_MaxLevel(maxLevel), m_Fd(fd) {}
  int maxLevel() const override { return m_MaxLevel; }
  void record(const TraceRecord& record) override;
  void scope(int component, const std::string& label, bool entering) override;

  // The line written for a record, without its final line feed.
  static std::string formatRecord(const TraceRecord& record);
  // The line written for a scope event, without its final line feed.
  static std::string formatScope(const std::string& label, bool entering);
  // Appends text, escaped as above, to line; of a text longer than head
  // characters, only the head and the count of the others.
  static void appendEscaped(std::string& line, const std::wstring& text, std::size_t head);

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
