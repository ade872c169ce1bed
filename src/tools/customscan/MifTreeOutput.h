#pragma once
// The element tree of a parsed MIF text, written as text or as JSON. Both
// walk the tree with their own stack and write as they go, so that a text
// nested as deep as it is long neither overflows the stack nor multiplies
// its size in the output.

#include <cstddef>
#include <ostream>

#include "mifParser/MifElement.h"

namespace CustomScanTool {

class MifTreeOutput {
 public:
  // Levels shown by indentation (two blanks each); a deeper element is
  // indented as deep as this and shows its depth as "[depth N] ".
  static constexpr std::size_t kIndentLevels = 20;

  // One element a line: its line number, right-aligned, two blanks, the
  // indentation, then "Scope <name>", "Variable <name = value>" or
  // "Row <v1 | v2>".
  static void text(const CustomScanPlugin::MifElement* top, std::ostream& out);
  // One line of nested JSON objects: {"type": "scope", "name", "line",
  // "children"}, {"type": "variable", "name", "value", "line"},
  // {"type": "row", "line", "values": [{"value", "empty"}]}.
  static void json(const CustomScanPlugin::MifElement* top, std::ostream& out);
};

}  // namespace CustomScanTool
