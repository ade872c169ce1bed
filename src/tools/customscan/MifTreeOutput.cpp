#include "MifTreeOutput.h"

#include <algorithm>
#include <string>
#include <vector>

#include "JsonText.h"
#include "mifParser/RowElement.h"
#include "mifParser/VariableElement.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::RowElement;
using CustomScanPlugin::VariableElement;

namespace CustomScanTool {

namespace {

struct Visit {
  const MifElement* element;
  std::size_t depth;
};

// Calls visit(element, depth) for every element below top, in document order.
template <typename Visitor>
void walk(const MifElement* top, Visitor visit) {
  std::vector<Visit> stack;
  if (top != nullptr) stack.push_back(Visit{top, 0});
  while (!stack.empty()) {
    const Visit current = stack.back();
    stack.pop_back();
    visit(current.element, current.depth);
    for (unsigned int i = current.element->childrenSize(); i > 0; --i) {
      const MifElement* child = current.element->getChildAt(i - 1);
      if (child != nullptr) stack.push_back(Visit{child, current.depth + 1});
    }
  }
}

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
  walk(top, [&](const MifElement* element, std::size_t) {
    lastLine = std::max(lastLine, element->m_LineNumber);
  });
  const std::size_t numberWidth = std::to_string(lastLine).size();
  std::string line;
  walk(top, [&](const MifElement* element, std::size_t depth) {
    const std::string number = std::to_string(element->m_LineNumber);
    line.assign(numberWidth - std::min(numberWidth, number.size()), ' ');
    line += number;
    line += "  ";
    line.append(2 * std::min(depth, kIndentLevels), ' ');
    if (depth > kIndentLevels) line += "[depth " + std::to_string(depth) + "] ";
    line += dumpLine(element);
    line += '\n';
    out << line;
  });
}

void MifTreeOutput::json(const MifElement* top, std::ostream& out) {
  if (top == nullptr) {
    out << "null\n";
    return;
  }
  // Each frame is a scope whose children are being written, and the next
  // child to write.
  struct Frame {
    const MifElement* scope;
    unsigned int next;
    bool written;  // whether a child has been written
  };
  std::vector<Frame> frames;
  std::string piece;
  const MifElement* element = top;
  for (;;) {
    piece.clear();
    switch (element->getType()) {
      case MifElement::Scope:
        piece += "{\"type\":\"scope\",\"name\":" + jsonString(element->m_Name.toNarrow()) +
                 ",\"line\":" + std::to_string(element->m_LineNumber) + ",\"children\":[";
        frames.push_back(Frame{element, 0, false});
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
    // The next element: the next child of the innermost scope that has one,
    // closing every scope that has none left.
    element = nullptr;
    while (!frames.empty()) {
      Frame& frame = frames.back();
      while (frame.next < frame.scope->childrenSize() &&
             frame.scope->getChildAt(frame.next) == nullptr) {
        ++frame.next;
      }
      if (frame.next < frame.scope->childrenSize()) {
        if (frame.written) out << ',';
        frame.written = true;
        element = frame.scope->getChildAt(frame.next++);
        break;
      }
      out << "]}";
      frames.pop_back();
    }
    if (element == nullptr) break;
  }
  out << "\n";
}

}  // namespace CustomScanTool
