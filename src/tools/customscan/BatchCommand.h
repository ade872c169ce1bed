#pragma once
// customscan batch [options] [FILE|-]

#include <cstddef>
#include <ostream>

#include "InputText.h"
#include "ToolOptions.h"

namespace CustomScanTool {

class BatchCommand {
 public:
  // The longest request line read; a longer one is answered as invalid
  // without being kept, so that an endless line cannot take the memory.
  static constexpr std::size_t kMaxRequestBytes = 1024 * 1024;

  // Evaluates the JSON Lines requests of input in order, within one plug-in
  // life, writing one JSON object a line to out. Returns 2 when any line was
  // not a valid request; else, with failOnError, 1 when any request was
  // answered with a non-zero code; else 0. Stops at the first answer that
  // cannot be written and returns 3. Throws UsageError (also when input
  // cannot be read).
  static int run(const ToolOptions& options, InputText& input, std::ostream& out,
                 std::ostream& err);
};

}  // namespace CustomScanTool
