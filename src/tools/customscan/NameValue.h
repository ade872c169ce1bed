#pragma once
// A NAME=VALUE argument, split at the first "=".

#include <string>

namespace CustomScanTool {

struct NameValue {
  std::string name;
  std::string value;

  // Throws UsageError when text holds no "=" or the name is empty; what names
  // the kind of argument in the message ("property", "plug-in property").
  static NameValue parse(const std::string& text, const std::string& what);
};

}  // namespace CustomScanTool
