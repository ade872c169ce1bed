#pragma once
// JSON output that is always valid UTF-8, whatever bytes a scanner wrote.

#include <nlohmann/json.hpp>
#include <string>

namespace CustomScanTool {

class JsonText {
 public:
  // One line of compact JSON; invalid UTF-8 inside strings becomes U+FFFD.
  static std::string dump(const nlohmann::ordered_json& value);
  // Wide text as the host narrows it: UTF-8, with the bytes that arrived as
  // invalid input restored as they were (dump() replaces those).
  static std::string narrow(const std::wstring& text);
};

}  // namespace CustomScanTool
