#include "EvalCommand.h"

#include <memory>

#include "HostSetup.h"
#include "JsonText.h"
#include "PluginProperties.h"
#include "PluginSession.h"
#include "ResultCodeTable.h"
#include "UsageError.h"

namespace CustomScanTool {

int EvalCommand::run(const ToolOptions& options, const std::string& operand,
                     const std::vector<std::string>& properties, std::ostream& out,
                     std::ostream& err) {
  std::vector<NameValue> expressionProperties;
  expressionProperties.reserve(properties.size());
  for (const std::string& text : properties)
    expressionProperties.push_back(NameValue::parse(text, "property"));
  const std::vector<NameValue> pluginProperties = options.parsedPluginProperties();
  HostSetup host(options);

  Evaluation evaluation;
  {
    PluginSession session(host.library(), pluginProperties);
    PluginProperties::reportRefused(session.refusedProperties(), err);
    evaluation = session.evaluate(operand, expressionProperties);
  }

  if (options.json) {
    evaluation.writeJson(out);
    out << "\n";
  } else {
    evaluation.writePlainText(out);
  }
  out.flush();
  if (evaluation.code == 0) return kExitOk;
  err << "customscan: " << operand << ": " << ResultCodeTable::describe(evaluation.code) << "\n";
  for (const std::string& line : evaluation.detailLines()) err << "  " << line << "\n";
  return kExitCode;
}

}  // namespace CustomScanTool
