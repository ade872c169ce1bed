#pragma once
// customscan batch [options] [FILE|-]

#include <istream>
#include <ostream>

#include "ToolOptions.h"

namespace CustomScanTool {

class BatchCommand {
 public:
  // Evaluates the JSON Lines requests of input in order, within one plug-in
  // life, writing one JSON object a line to out. Returns 2 when any line was
  // not a valid request, else 0. Throws UsageError.
  static int run(const ToolOptions& options, std::istream& input, std::ostream& out, std::ostream& err);
};

}  // namespace CustomScanTool
