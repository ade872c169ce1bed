#pragma once
// customscan mif check|tree|table: a scanner author's view of a MIF text, as
// the plug-in's own parser, group and table code sees it, read the way the
// agent reads it through the route named.

#include <ostream>
#include <string>
#include <vector>

#include "InputText.h"
#include "MifRoute.h"
#include "ToolOptions.h"

namespace CustomScanTool {

class MifCommand {
 public:
  // Parses and validates each file ("-": standard input, at most once), then
  // builds the table of every class it defines. Prints the parser's
  // line-numbered messages, one line per class, the warnings and the hints
  // (MifHints), and a verdict per file; with --json one object per file, one
  // a line. Returns the worst status: 0 when every file is valid, 1 when one
  // is not, 2 when one cannot be read.
  static int check(const ToolOptions& options, MifRoute::Kind route,
                   const std::vector<std::string>& files, std::ostream& out, std::ostream& err);
  // Prints the element tree (MifTreeOutput), as text or with --json as JSON.
  static int tree(const ToolOptions& options, MifRoute::Kind route, InputText& input,
                  std::ostream& out, std::ostream& err);
  // Builds the table of className and prints it as text, json or csv. An
  // unknown class is answered with the classes that the text defines.
  static int table(const ToolOptions& options, MifRoute::Kind route, InputText& input,
                   const std::string& className, const std::string& format, std::ostream& out,
                   std::ostream& err);
};

}  // namespace CustomScanTool
