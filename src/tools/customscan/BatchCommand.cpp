#include "BatchCommand.h"

#include <algorithm>
#include <string>

#include "BatchRequest.h"
#include "EvalCommand.h"
#include "JsonText.h"
#include "HostSetup.h"
#include "PluginSession.h"
#include "UsageError.h"

namespace CustomScanTool {

int BatchCommand::run(const ToolOptions& options, std::istream& input, std::ostream& out, std::ostream& err) {
  const std::vector<NameValue> pluginProperties = options.parsedPluginProperties();
  HostSetup host(options);
  // One plug-in life for the whole batch, so the MIF cache serves every request.
  PluginSession session(host.library(), pluginProperties);
  EvalCommand::reportRefusedProperties(session, err);

  std::vector<long> invalidLines;
  std::string line;
  for (long lineNumber = 1; std::getline(input, line); ++lineNumber) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (BatchRequest::isBlank(line)) continue;
    BatchRequest request;
    std::string message;
    if (!BatchRequest::parse(line, request, message)) {
      invalidLines.push_back(lineNumber);
      nlohmann::ordered_json invalid;
      invalid["line"] = lineNumber;
      invalid["error"] = "invalid request";
      invalid["message"] = message;
      out << JsonText::dump(invalid) << "\n";
      out.flush();
      continue;
    }
    Evaluation evaluation = session.evaluate(request.operand, request.properties);
    evaluation.writeJson(out);
    out << "\n";
    out.flush();
  }
  if (input.bad()) throw UsageError("cannot read the batch input");
  if (invalidLines.empty()) return kExitOk;
  // The answers on standard output name every line; this is the summary.
  const std::size_t shown = std::min<std::size_t>(invalidLines.size(), 20);
  err << "customscan: batch: " << invalidLines.size() << " invalid request line(s):";
  for (std::size_t i = 0; i < shown; ++i) err << " " << invalidLines[i];
  err << (shown < invalidLines.size() ? " ...\n" : "\n");
  return kExitUsage;
}

}  // namespace CustomScanTool
