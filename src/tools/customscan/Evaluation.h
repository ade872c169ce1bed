#pragma once
// The outcome of one expression: what the host asked and what the plug-in
// answered.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace CustomScanTool {

struct Evaluation {
  std::string operand;
  int code = 0;
  bool isVector = false;              // getType() said vector
  std::wstring scalar;                // scalar result as the operand left it
  std::vector<std::wstring> vector;   // vector result as the operand left it

  // {"operand": NAME, "code": N, "result": "..." or [...]} plus "error" and
  // "message" when the code is not 0.
  nlohmann::ordered_json toJson() const;
  // The plain output: a scalar and a line feed, or one element a line. Empty
  // when the code is not 0.
  std::string toPlainText() const;
};

}  // namespace CustomScanTool
