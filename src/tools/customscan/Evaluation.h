#pragma once
// The outcome of one expression: what the host asked and what the plug-in
// answered.

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "sdk/SdkString.h"

namespace CustomScanTool {

struct Evaluation {
  std::string operand;
  int code = 0;
  bool isVector = false;  // getType() said vector
  // The results as the operand left them, kept as compactly as the host
  // keeps them: an answer may be a scanner's whole output.
  std::string scalar;  // narrow, as the host narrows wide text
  PluginSDK::StringVector vector;

  // {"operand": NAME, "code": N, "result": "..." or [...]} plus "error" and
  // "message" when the code is not 0.
  nlohmann::ordered_json toJson() const;
  // toJson's text (JsonText::dump), written with the result streamed: a list
  // of millions of lines is never made into JSON values.
  void writeJson(std::ostream& out) const;
  // The plain output: a scalar and a line feed, or one element a line. Empty
  // when the code is not 0.
  std::string toPlainText() const;
  void writePlainText(std::ostream& out) const;

 private:
  // toJson with an empty result, for writeJson to put the result into.
  nlohmann::ordered_json toJsonWithResult(bool withResult) const;
};

}  // namespace CustomScanTool
