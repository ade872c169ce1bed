#pragma once
// One line of a batch: {"operand": NAME, "properties": {NAME: VALUE, ...}}.
// "properties" may be left out; every value is a string; no other member is
// allowed, so that a misspelt member is reported rather than ignored. A
// name or value that holds a NUL, and an empty property name, are refused.

#include <string>
#include <vector>

#include "NameValue.h"

namespace CustomScanTool {

struct BatchRequest {
  std::string operand;
  std::vector<NameValue> properties;

  // Fills request and returns true, or returns false with message saying
  // what is wrong with the line; lineNumber is the line's place in the
  // input, for the parser's messages.
  static bool parse(const std::string& line, BatchRequest& request, std::string& message,
                    long lineNumber = 1);
  // Whether the line holds nothing but blanks (such lines are skipped).
  static bool isBlank(const std::string& line);
};

}  // namespace CustomScanTool
