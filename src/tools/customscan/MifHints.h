#pragma once
// What the eye cannot see in a MIF text, and what the plug-in's dialect
// refuses although other MIF writers produce it: carriage returns, zero
// bytes, a byte order mark, blanks after a row's brace, tabs where a blank is
// meant, strings and rows continued on the next line, unbalanced quotes, and
// groups with both an id and a key. Each hint names its line and says what
// the agent makes of it, as the plug-in's own tokenizer classifies the line.

#include <cstddef>
#include <string>
#include <vector>

#include "MifRoute.h"

namespace CustomScanTool {

struct MifHint {
  int line;          // 1-based, as the parser counts lines
  std::string kind;  // a stable name, e.g. "bom", "continued-string"
  std::string message;
};

class MifHints {
 public:
  // Hints of one kind beyond this many are left out; one more hint of that
  // kind then says how many and where the first of them is.
  static constexpr std::size_t kPerKind = 10;
  // How far a string or a row opened on one line is followed to its end.
  static constexpr int kLookahead = 20;

  // The hints for raw, the bytes as the scanner wrote them, read the way the
  // agent reads them through route; in line order.
  static std::vector<MifHint> find(const std::string& raw, MifRoute::Kind route);
};

}  // namespace CustomScanTool
