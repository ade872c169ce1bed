#include "MifTreeOutput.h"

#include <algorithm>
#include <string>
#include <vector>

#include "JsonText.h"
#include "mifParser/MifTreeWalk.h"
#include "mifParser/RowElement.h"
#include "mifParser/VariableElement.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifWalkStep;
using CustomScanPlugin::RowElement;
using CustomScanPlugin::VariableElement;
using CustomScanPlugin::walkMifTree;

namespace CustomScanTool {

namespace {

// The element's own line of the plug-in's dump, without its line feed.
std::string dumpLine(const MifElement* element) {
  String line;
  const_cast<MifElement*>(element)->appendDumpBuffer(line);
  std::string text = line.toNarrow();
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::string jsonString(const std::string& text) {
  return JsonText::dump(nlohmann::ordered_json(text));
}

}  // namespace

void MifTreeOutput::text(const MifElement* top, std::ostream& out) {
  int lastLine = 0;
  walkMifTree(top, [&](const MifElement* element, std::size_t) {
    lastLine = std::max(lastLine, element->m_LineNumber);
    return MifWalkStep::Continue;
  });
  const std::size_t numberWidth = std::to_string(lastLine).size();
  std::string line;
  walkMifTree(top, [&](const MifElement* element, std::size_t depth) {
    const std::string number = std::to_string(element->m_LineNumber);
    line.assign(numberWidth - std::min(numberWidth, number.size()), ' ');
    line += number;
    line += "  ";
    line.append(2 * std::min(depth, kIndentLevels), ' ');
    if (depth > kIndentLevels) line += "[depth " + std::to_string(depth) + "] ";
    line += dumpLine(element);
    line += '\n';
    out << line;
    return MifWalkStep::Continue;
  });
}

void MifTreeOutput::json(const MifElement* top, std::ostream& out) {
  if (top == nullptr) {
    out << "null\n";
    return;
  }
  // Whether the scope open at each depth has written a child yet, for the
  // commas between siblings.
  std::vector<bool> written;
  std::string piece;
  auto enter = [&](const MifElement* element, std::size_t depth) {
    written.resize(depth + 1);
    piece.clear();
    if (depth > 0 && written[depth - 1]) piece += ',';
    if (depth > 0) written[depth - 1] = true;
    written[depth] = false;
    switch (element->getType()) {
      case MifElement::Scope:
        piece += "{\"type\":\"scope\",\"name\":" + jsonString(element->m_Name.toNarrow()) +
                 ",\"line\":" + std::to_string(element->m_LineNumber) + ",\"children\":[";
        break;
      case MifElement::Variable: {
        const auto* variable = dynamic_cast<const VariableElement*>(element);
        piece += "{\"type\":\"variable\",\"name\":" + jsonString(element->m_Name.toNarrow()) +
                 ",\"value\":" +
                 jsonString(variable != nullptr ? variable->m_Value.toNarrow() : std::string()) +
                 ",\"line\":" + std::to_string(element->m_LineNumber) + "}";
        break;
      }
      case MifElement::Row: {
        const auto* row = dynamic_cast<const RowElement*>(element);
        piece +=
            "{\"type\":\"row\",\"line\":" + std::to_string(element->m_LineNumber) + ",\"values\":[";
        if (row != nullptr) {
          bool first = true;
          for (const RowElement::RowElementStruct& item : row->m_Values) {
            if (!first) piece += ',';
            first = false;
            piece += "{\"value\":" + jsonString(item.value.toNarrow()) +
                     ",\"empty\":" + (item.isEmpty ? "true" : "false") + "}";
          }
        }
        piece += "]}";
        break;
      }
    }
    out << piece;
    // Only a scope writes its children; it closes them when it is left.
    return element->getType() == MifElement::Scope ? MifWalkStep::Continue
                                                   : MifWalkStep::SkipChildren;
  };
  auto leave = [&](const MifElement* element) {
    if (element->getType() == MifElement::Scope) out << "]}";
  };
  walkMifTree(top, enter, leave);
  out << "\n";
}

}  // namespace CustomScanTool
