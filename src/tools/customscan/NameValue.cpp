#include "NameValue.h"

#include "UsageError.h"

namespace CustomScanTool {

NameValue NameValue::parse(const std::string& text, const std::string& what) {
  std::string::size_type equals = text.find('=');
  if (equals == std::string::npos)
    throw UsageError(what + " \"" + text + "\" is not of the form NAME=VALUE");
  if (equals == 0) throw UsageError(what + " \"" + text + "\" has an empty name");
  return NameValue{text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace CustomScanTool
