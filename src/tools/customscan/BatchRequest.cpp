#include "BatchRequest.h"

#include <nlohmann/json.hpp>

#include "JsonText.h"

namespace CustomScanTool {

namespace {

// nlohmann's messages start with "[json.exception.parse_error.101] "; the
// bracket says nothing to a user.
std::string withoutExceptionTag(const std::string& what) {
  if (what.empty() || what[0] != '[') return what;
  std::string::size_type close = what.find("] ");
  return close == std::string::npos ? what : what.substr(close + 2);
}

// Each line is parsed on its own, so the parser places every error on its
// line 1; the message gets the line's place in the input instead.
std::string atLine(std::string message, long lineNumber) {
  static const std::string kParsersLine = " line 1, column ";
  std::string::size_type at = message.find(kParsersLine);
  if (at == std::string::npos) return message;
  return message.replace(at, kParsersLine.size(),
                         " line " + std::to_string(lineNumber) + ", column ");
}

// A name as JSON writes it, so that a NUL or a quote in it can be seen.
std::string jsonQuoted(const std::string& text) {
  return JsonText::dump(nlohmann::ordered_json(text));
}

// The plug-in takes names and values as zero-terminated wide texts: a NUL
// would cut one short and another request would run than the one written.
bool holdsNul(const std::string& text) { return text.find('\0') != std::string::npos; }

const char kNulRefused[] =
    " holds a NUL character (\\u0000), which the plug-in would take as its end; the request is "
    "not run";

}  // namespace

bool BatchRequest::isBlank(const std::string& line) {
  return line.find_first_not_of(" \t\r") == std::string::npos;
}

bool BatchRequest::parse(const std::string& line, BatchRequest& request, std::string& message,
                         long lineNumber) {
  // The JSON parser takes a NUL byte for the end of its input and would
  // ignore what follows it.
  const std::string::size_type nul = line.find('\0');
  if (nul != std::string::npos) {
    message = "the line holds a NUL byte (column " + std::to_string(nul + 1) +
              "), which JSON does not allow";
    return false;
  }
  nlohmann::ordered_json value;
  try {
    value = nlohmann::ordered_json::parse(line);
  } catch (const nlohmann::ordered_json::exception& e) {
    message = atLine(withoutExceptionTag(e.what()), lineNumber);
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
      if (holdsNul(parsed.operand)) {
        message = "the operand " + jsonQuoted(parsed.operand) + kNulRefused;
        return false;
      }
      haveOperand = true;
    } else if (member.key() == "properties") {
      if (!member.value().is_object()) {
        message = "\"properties\" is not an object";
        return false;
      }
      for (auto property = member.value().begin(); property != member.value().end(); ++property) {
        const std::string& name = property.key();
        if (name.empty()) {
          message = "a property has an empty name";
          return false;
        }
        if (holdsNul(name)) {
          message = "the property name " + jsonQuoted(name) + kNulRefused;
          return false;
        }
        if (!property.value().is_string()) {
          message = "property " + jsonQuoted(name) + " is not a string";
          return false;
        }
        std::string text = property.value().get<std::string>();
        if (holdsNul(text)) {
          message = "the value of property " + jsonQuoted(name) + kNulRefused;
          return false;
        }
        parsed.properties.push_back(NameValue{name, std::move(text)});
      }
    } else {
      message = "unexpected member " + jsonQuoted(member.key()) +
                " (a request has \"operand\" and \"properties\")";
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
