#pragma once
// customscan eval [options] OPERAND [NAME=VALUE ...]

#include <ostream>
#include <string>
#include <vector>

#include "ToolOptions.h"

namespace CustomScanTool {

class EvalCommand {
 public:
  // Evaluates one expression in its own plug-in life. Returns the exit status:
  // 0 for code 0, 1 for any other code. Throws UsageError.
  static int run(const ToolOptions& options, const std::string& operand,
                 const std::vector<std::string>& properties, std::ostream& out, std::ostream& err);
};

}  // namespace CustomScanTool
