#pragma once
// What a scanner's MIF text holds that a failed query did not find: for an
// unknown class the classes it has, for an unknown field the fields of the
// class, for a missing row the keys of its rows; the near ones first. Built
// with the plug-in's own parser and table code from the text the plug-in
// parsed.

#include <string>
#include <vector>

namespace CustomScanTool {

struct QueryHint {
  std::string reason;  // one line; empty when nothing can be said
  std::vector<std::string> nearNames;
};

class QueryHints {
 public:
  // The hint for a query of className (and key code, field) that ended with
  // code: CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND,
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND or
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND; none for other codes or a
  // text that does not parse. Writes no trace record.
  static QueryHint explain(int code, const std::string& text, const std::string& className,
                           const std::string& key, const std::string& field);
  // The text the plug-in parses from a scanner's standard output, given the
  // bytes read from it: zero bytes and carriage returns dropped.
  static std::string fromStandardOutput(const std::string& bytes);
  // The text the plug-in parses from an output file: up to its first zero byte.
  static std::string fromOutputFile(const std::string& bytes);
};

}  // namespace CustomScanTool
