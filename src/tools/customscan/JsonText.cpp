#include "JsonText.h"

#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace CustomScanTool {

std::string JsonText::dump(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string JsonText::narrow(const std::wstring& text) {
  return hostEncodeNarrow(text.data(), text.size());
}

}  // namespace CustomScanTool
