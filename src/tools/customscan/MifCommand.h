#pragma once
// customscan mif check|tree|table: a scanner author's view of a MIF text, as
// the plug-in's own parser, group and table code sees it.

#include <ostream>
#include <string>

#include "InputText.h"
#include "ToolOptions.h"

namespace CustomScanTool {

class MifCommand {
 public:
  // Parses and validates the text, then builds the table of every class it
  // defines. Prints the parser's line-numbered messages and one line per
  // class. Returns 0 when everything is valid, 1 when not.
  static int check(const ToolOptions& options, InputText& input, std::ostream& out, std::ostream& err);
  // Prints the element tree, one element a line with its line number.
  static int tree(const ToolOptions& options, InputText& input, std::ostream& out, std::ostream& err);
  // Builds the table of className and prints it as text, json or csv.
  static int table(const ToolOptions& options, InputText& input, const std::string& className,
                   const std::string& format, std::ostream& out, std::ostream& err);
};

}  // namespace CustomScanTool
