#pragma once
// The process runner, and the line tokenizer that cuts its output.

#include "base/String.h"
#include "common/MemoryBuffer.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

class Command {
 public:
  // Runs a command line built by the command gate as a child process with a
  // copy of this process's environment, collects its output into output (one
  // zero-terminated byte string; carriage returns and zero bytes dropped) and
  // waits for it. Returns 0, or
  //  - CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS when no child started;
  //  - CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT when the child's
  //    output could not be had whole (no output stream, or no storage for it);
  //  - CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED when the child's exit status
  //    is not 0 (this wins over the previous code).
  // The output read before a failing exit status stays in output. There is no
  // time limit: a child that never closes its output blocks the caller.
  static TErrorCode run(const String& command, MemoryBuffer& output);
};

// A tokenizer in the manner of strtok that does not merge adjacent separators
// (two in a row give an empty token). A non-null text starts a new
// tokenisation over a private copy of it; a null text goes on with the
// current one. index > 0 skips that many tokens first. A separator of 0
// returns the rest of the text. Returns null when no token is left.
// The working state is process-wide: one tokenisation at a time.
char* gettoken(char* text, char separator, int index);

}  // namespace CustomScanPlugin
