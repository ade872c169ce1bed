#pragma once
// A mistake in how the tool was called (unknown option, missing scanner
// directory, a plug-in that cannot be loaded): reported on standard error and
// answered with exit status 2.

#include <stdexcept>
#include <string>

namespace CustomScanTool {

class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

// The tool's exit statuses.
// 3: the answer could not be written (a full device, a closed standard
// output, a broken pipe); it is lost, whatever the plug-in answered.
enum ExitStatus { kExitOk = 0, kExitCode = 1, kExitUsage = 2, kExitOutput = 3 };

}  // namespace CustomScanTool
