#pragma once
// Keeps the error and warning records written while the plug-in's MIF code
// works, so that the tool can show a parser's line-numbered messages, and
// passes every record on to the --trace sink, if there is one.

#include <string>
#include <vector>

#include "trace/TraceSink.h"

namespace CustomScanTool {

class CollectingTraceSink : public TraceSink {
 public:
  // next may be null; it receives what its own level admits.
  explicit CollectingTraceSink(TraceSink* next) : m_Next(next) {}
  int maxLevel() const override;
  void record(const TraceRecord& record) override;
  void scope(int component, const std::string& label, bool entering) override;

  // Kept records (levels 1 and 2) since the last clear().
  const std::vector<TraceRecord>& records() const { return m_Records; }
  // Their texts as UTF-8, of one level (0: both).
  std::vector<std::string> texts(int level = 0) const;
  void clear() { m_Records.clear(); }

 private:
  TraceSink* m_Next;
  std::vector<TraceRecord> m_Records;
};

}  // namespace CustomScanTool
