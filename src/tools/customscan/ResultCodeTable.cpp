#include "ResultCodeTable.h"

#include "ResultCodes.h"

namespace CustomScanTool {

namespace {
const char kUnknownName[] = "UNKNOWN_RESULT_CODE";
const char kUnknownMeaning[] = "unknown result code";
}  // namespace

const std::vector<ResultCodeInfo>& ResultCodeTable::all() {
#define CUSTOMSCAN_TOOL_CODE_ENTRY(name, value, meaning) ResultCodeInfo{value, #name, meaning},
  static const std::vector<ResultCodeInfo> table = {CUSTOM_SCAN_PLUGIN_RESULT_CODES(
      CUSTOMSCAN_TOOL_CODE_ENTRY) CUSTOM_SCAN_HOST_RESULT_CODES(CUSTOMSCAN_TOOL_CODE_ENTRY)};
#undef CUSTOMSCAN_TOOL_CODE_ENTRY
  return table;
}

const ResultCodeInfo* ResultCodeTable::find(int code) {
  for (const ResultCodeInfo& info : all()) {
    if (info.code == code) return &info;
  }
  return nullptr;
}

std::string ResultCodeTable::nameOf(int code) {
  const ResultCodeInfo* info = find(code);
  return info != nullptr ? info->name : kUnknownName;
}

std::string ResultCodeTable::meaningOf(int code) {
  const ResultCodeInfo* info = find(code);
  return info != nullptr ? info->meaning : kUnknownMeaning;
}

std::string ResultCodeTable::describe(int code) {
  return std::to_string(code) + " " + nameOf(code) + ": " + meaningOf(code);
}

}  // namespace CustomScanTool
