#include "BatchRequest.h"

#include <nlohmann/json.hpp>

namespace CustomScanTool {

namespace {

// nlohmann's messages start with "[json.exception.parse_error.101] "; the
// bracket says nothing to a user.
std::string withoutExceptionTag(const std::string& what) {
  if (what.empty() || what[0] != '[') return what;
  std::string::size_type close = what.find("] ");
  return close == std::string::npos ? what : what.substr(close + 2);
}

}  // namespace

bool BatchRequest::isBlank(const std::string& line) {
  return line.find_first_not_of(" \t\r") == std::string::npos;
}

bool BatchRequest::parse(const std::string& line, BatchRequest& request, std::string& message) {
  nlohmann::ordered_json value;
  try {
    value = nlohmann::ordered_json::parse(line);
  } catch (const nlohmann::ordered_json::exception& e) {
    message = withoutExceptionTag(e.what());
    return false;
  }
  if (!value.is_object()) {
    message = "a request is a JSON object";
    return false;
  }
  BatchRequest parsed;
  bool haveOperand = false;
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (member.key() == "operand") {
      if (!member.value().is_string()) {
        message = "\"operand\" is not a string";
        return false;
      }
      parsed.operand = member.value().get<std::string>();
      haveOperand = true;
    } else if (member.key() == "properties") {
      if (!member.value().is_object()) {
        message = "\"properties\" is not an object";
        return false;
      }
      for (auto property = member.value().begin(); property != member.value().end(); ++property) {
        if (!property.value().is_string()) {
          message = "property \"" + property.key() + "\" is not a string";
          return false;
        }
        parsed.properties.push_back(NameValue{property.key(), property.value().get<std::string>()});
      }
    } else {
      message = "unexpected member \"" + member.key() + "\" (a request has \"operand\" and \"properties\")";
      return false;
    }
  }
  if (!haveOperand) {
    message = "\"operand\" is missing";
    return false;
  }
  request = std::move(parsed);
  return true;
}

}  // namespace CustomScanTool
