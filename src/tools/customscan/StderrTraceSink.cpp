#include "StderrTraceSink.h"

#include <unistd.h>

#include <cerrno>

#include "base/WideTextExtras.h"

namespace CustomScanTool {

std::string StderrTraceSink::formatRecord(const TraceRecord& record) {
  std::string text = hostEncodeNarrow(record.text.data(), record.text.size());
  std::string line = std::to_string(record.level) + " " + record.label + ": ";
  line.reserve(line.size() + text.size());
  for (char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else {
      line += c;
    }
  }
  return line;
}

void StderrTraceSink::record(const TraceRecord& record) { writeLine(formatRecord(record)); }

void StderrTraceSink::scope(int component, const std::string& label, bool entering) {
  writeLine("4 " + label + (entering ? ": enter" : ": leave"));
}

void StderrTraceSink::writeLine(const std::string& line) {
  // One write per line, so that a child's error output, which shares the
  // stream, does not land in the middle of a record.
  std::string out = line + "\n";
  const char* p = out.data();
  std::size_t left = out.size();
  while (left > 0) {
    ssize_t n = ::write(m_Fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

}  // namespace CustomScanTool
