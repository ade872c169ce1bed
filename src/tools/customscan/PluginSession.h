#pragma once
// One life of the plug-in, driven in a host agent's order: createPlugin,
// initializePlugin, setProperty for each plug-in property, then expressions
// (createExpression, the expression's properties, getType, the result,
// destroyExpression), and at the end cleanupPlugin and destroyPlugin.

#include <string>
#include <vector>

#include "Evaluation.h"
#include "NameValue.h"
#include "PluginLibrary.h"
#include "RequestDiagnostics.h"

namespace CustomScanTool {

class PluginSession {
 public:
  // Throws UsageError when createPlugin yields no plug-in.
  PluginSession(const PluginLibrary& library, const std::vector<NameValue>& pluginProperties);
  PluginSession(const PluginSession&) = delete;
  PluginSession& operator=(const PluginSession&) = delete;
  // cleanupPlugin, then destroyPlugin.
  ~PluginSession();

  // Evaluates one expression; a failure comes with what RequestDiagnostics
  // finds out about it.
  Evaluation evaluate(const std::string& operand, const std::vector<NameValue>& properties);

  // The plug-in properties that the plug-in did not keep in its configuration
  // (it accepts only the names and values it knows, and says so only in a trace).
  const std::vector<NameValue>& refusedProperties() const { return m_Refused; }

 private:
  Evaluation evaluateExpression(const std::string& operand,
                                const std::vector<NameValue>& properties);

  RequestDiagnostics m_Diagnostics;
  const PluginLibrary& m_Library;
  PluginSDK::Plugin* m_Plugin = nullptr;
  std::vector<NameValue> m_Refused;
};

}  // namespace CustomScanTool
