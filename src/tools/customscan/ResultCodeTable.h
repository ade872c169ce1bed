#pragma once
// The names and one-line meanings of every result code the plug-in can
// return, read from the one table kept beside the plug-in's constants
// (ResultCodes.h), so that the tool never spells a code itself.

#include <string>
#include <vector>

namespace CustomScanTool {

struct ResultCodeInfo {
  int code;
  const char* name;     // the constant's name, e.g. "CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY"
  const char* meaning;  // one line
};

class ResultCodeTable {
 public:
  // The entry for code, or null for 0 and for codes the table does not know.
  static const ResultCodeInfo* find(int code);
  // Every entry: the plug-in's own codes, then the host codes it returns.
  static const std::vector<ResultCodeInfo>& all();

  // The constant's name, or "UNKNOWN_RESULT_CODE" for a code not in the table.
  static std::string nameOf(int code);
  // The meaning, or "unknown result code" for a code not in the table.
  static std::string meaningOf(int code);
  // "-14119 CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST: the command ..."
  static std::string describe(int code);
};

}  // namespace CustomScanTool
