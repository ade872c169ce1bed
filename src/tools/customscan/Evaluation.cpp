#include "Evaluation.h"

#include "JsonText.h"
#include "ResultCodeTable.h"

namespace CustomScanTool {

nlohmann::ordered_json Evaluation::toJson() const {
  nlohmann::ordered_json out;
  out["operand"] = operand;
  out["code"] = code;
  if (isVector) {
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const std::wstring& item : vector) items.push_back(JsonText::narrow(item));
    out["result"] = items;
  } else {
    out["result"] = JsonText::narrow(scalar);
  }
  if (code != 0) {
    out["error"] = ResultCodeTable::nameOf(code);
    out["message"] = ResultCodeTable::meaningOf(code);
  }
  return out;
}

std::string Evaluation::toPlainText() const {
  if (code != 0) return std::string();
  if (!isVector) return JsonText::narrow(scalar) + "\n";
  std::string out;
  for (const std::wstring& item : vector) out += JsonText::narrow(item) + "\n";
  return out;
}

}  // namespace CustomScanTool
