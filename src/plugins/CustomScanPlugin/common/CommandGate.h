#pragma once
// The one gate between a command property and process creation. The
// getCommand members of the command operands and of the MIF cache all call
// it, each with its own copy of the custom scanner directory, its own trace
// label and its own source label.

#include "base/String.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

class CommandGate {
 public:
  // Checks the form of command (a program name relative to directory,
  // optionally in double quotes, then parameters), turns the name into a
  // normalised path below directory, refuses anything outside directory or
  // not an existing regular file, and builds the command line to run:
  // the path (quoted when the name was), then the parameters as given.
  // directory is used exactly as configured (neither normalised nor given a
  // separator); an empty directory confines nothing and so refuses
  // everything.
  // Returns 0 and sets resolved, or one of
  // CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT (empty, misplaced or
  // unclosed quote), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH (outside the
  // directory), CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST (missing,
  // or not a regular file) with resolved untouched. Every step is traced
  // under traceLabel, positioned at sourceLabel.
  static TErrorCode resolve(const String& directory, const char* traceLabel,
                            const char* sourceLabel, const String& command, String& resolved);
};

}  // namespace CustomScanPlugin
