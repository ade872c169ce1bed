#include "CollectingTraceSink.h"

#include <algorithm>

#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace CustomScanTool {

int CollectingTraceSink::maxLevel() const {
  int level = Trace::Warning;
  if (m_Next != nullptr) level = std::max(level, m_Next->maxLevel());
  return level;
}

void CollectingTraceSink::record(const TraceRecord& record) {
  if (record.level <= Trace::Warning) m_Records.push_back(record);
  if (m_Next != nullptr && record.level <= m_Next->maxLevel()) m_Next->record(record);
}

void CollectingTraceSink::scope(int component, const std::string& label, bool entering) {
  if (m_Next != nullptr && m_Next->maxLevel() >= Trace::Scope)
    m_Next->scope(component, label, entering);
}

std::vector<std::string> CollectingTraceSink::texts(int level) const {
  std::vector<std::string> out;
  for (const TraceRecord& record : m_Records) {
    if (level == 0 || record.level == level)
      out.push_back(hostEncodeNarrow(record.text.data(), record.text.size()));
  }
  return out;
}

}  // namespace CustomScanTool
