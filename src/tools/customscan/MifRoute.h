#pragma once
// The two ways a MIF text reaches the plug-in, and what each does to its
// bytes: the agent reads the same scanner differently through its standard
// output and through an output file, so a text is checked as one of them.

#include <string>

namespace CustomScanTool {

class MifRoute {
 public:
  enum Kind {
    Stdout,  // the scanner's standard output, read by the process runner
    File     // the file named by the "output" property
  };

  // "stdout" or "file"; throws UsageError for anything else.
  static Kind parse(const std::string& name);
  static const char* name(Kind route);

  // The bytes the plug-in parses: the process runner drops every zero byte
  // and every carriage return; an output file keeps its bytes, but the text
  // ends at its first zero byte.
  static std::string agentBytes(const std::string& raw, Kind route);
};

}  // namespace CustomScanTool
