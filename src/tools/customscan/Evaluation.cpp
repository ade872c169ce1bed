#include "Evaluation.h"

#include <sstream>

#include "JsonText.h"
#include "ResultCodeTable.h"
#include "sdk/SdkStringExtras.h"

namespace CustomScanTool {

namespace {
// A JSON string of the narrow text, as JsonText::dump writes it.
void writeJsonString(std::ostream& out, const std::string& text) {
  bool plain = true;
  for (char c : text) {
    if (c < 0x20 || c > 0x7E || c == '"' || c == '\\') {
      plain = false;
      break;
    }
  }
  if (plain) {
    out << '"' << text << '"';
    return;
  }
  out << JsonText::dump(nlohmann::ordered_json(text));
}
}  // namespace

nlohmann::ordered_json Evaluation::toJsonWithResult(bool withResult) const {
  nlohmann::ordered_json out;
  out["operand"] = operand;
  out["code"] = code;
  if (isVector) {
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    if (withResult)
      forEachNarrowItem(vector, [&](const std::string& item) { items.push_back(item); });
    out["result"] = items;
  } else {
    out["result"] = withResult ? scalar : std::string();
  }
  if (code != 0) {
    out["error"] = ResultCodeTable::nameOf(code);
    out["message"] = ResultCodeTable::meaningOf(code);
  }
  return out;
}

nlohmann::ordered_json Evaluation::toJson() const { return toJsonWithResult(true); }

void Evaluation::writeJson(std::ostream& out) const {
  // Everything but the result is made as toJson makes it; the result is
  // written where its empty form stands.
  const std::string text = JsonText::dump(toJsonWithResult(false));
  const std::string empty = isVector ? "\"result\":[]" : "\"result\":\"\"";
  const std::size_t at = text.find(empty);
  const std::size_t resultAt = at + empty.size() - (isVector ? 1 : 2);
  out.write(text.data(), static_cast<std::streamsize>(resultAt));
  if (isVector) {
    bool first = true;
    forEachNarrowItem(vector, [&](const std::string& item) {
      if (!first) out << ',';
      first = false;
      writeJsonString(out, item);
    });
    out << ']';
  } else {
    writeJsonString(out, scalar);
  }
  const std::size_t rest = at + empty.size();
  out.write(text.data() + rest, static_cast<std::streamsize>(text.size() - rest));
}

void Evaluation::writePlainText(std::ostream& out) const {
  if (code != 0) return;
  if (!isVector) {
    out << scalar << '\n';
    return;
  }
  forEachNarrowItem(vector, [&](const std::string& item) { out << item << '\n'; });
}

std::string Evaluation::toPlainText() const {
  std::ostringstream out;
  writePlainText(out);
  return out.str();
}

}  // namespace CustomScanTool
