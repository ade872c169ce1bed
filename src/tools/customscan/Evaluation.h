#pragma once
// The outcome of one expression: what the host asked, what the plug-in
// answered, and what the tool found out about why it failed.

#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "sdk/SdkString.h"

struct ProcessReport;

namespace CustomScanTool {

struct Evaluation {
  std::string operand;
  int code = 0;
  bool isVector = false;  // getType() said vector
  // The results as the operand left them, kept as compactly as the host
  // keeps them: an answer may be a scanner's whole output.
  std::string scalar;  // narrow, as the host narrows wide text
  PluginSDK::StringVector vector;

  // Filled by RequestDiagnostics.
  std::string reason;                            // why it failed, one line; empty if not known
  std::vector<std::string> nearNames;            // of a class, field or row key not found
  std::vector<std::string> records;              // the plug-in's error records for the request
  std::shared_ptr<const ProcessReport> process;  // the process it ran, or null

  // {"operand": NAME, "code": N, "result": "..." or [...]} plus "error" and
  // "message" when the code is not 0, then each of "reason", "nearNames",
  // "records", "process" (when the code is not 0) and "stderr" that has
  // something to say.
  nlohmann::ordered_json toJson() const;
  // toJson's text (JsonText::dump), written with the result streamed: a list
  // of millions of lines is never made into JSON values.
  void writeJson(std::ostream& out) const;
  // The plain output: a scalar and a line feed, or one element a line. Empty
  // when the code is not 0.
  std::string toPlainText() const;
  void writePlainText(std::ostream& out) const;
  // The details of a failure for plain output, one line each, without a
  // prefix: the reason, the plug-in's records, the captured standard error.
  std::vector<std::string> detailLines() const;
  // The captured standard error of the process, one line each; empty when
  // it was not captured or said nothing.
  std::vector<std::string> standardErrorLines() const;

 private:
  // toJson, with an empty result unless withResult, for writeJson to put the
  // result into.
  nlohmann::ordered_json toJsonWithResult(bool withResult) const;
};

}  // namespace CustomScanTool
