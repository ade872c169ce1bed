#include "PluginSession.h"

#include "PluginProperties.h"
#include "UsageError.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "sdk/Configuration.h"
#include "sdk/Expression.h"
#include "sdk/SdkStringExtras.h"

namespace CustomScanTool {

namespace {

std::wstring widen(const std::string& text) { return hostDecodeNarrow(text.data(), text.size()); }

// Hands an operand back to the plug-in on every path.
class ExpressionHolder {
 public:
  ExpressionHolder(PluginSDK::Plugin* plugin, PluginSDK::Expression* expression)
      : m_Plugin(plugin), m_Expression(expression) {}
  ExpressionHolder(const ExpressionHolder&) = delete;
  ExpressionHolder& operator=(const ExpressionHolder&) = delete;
  ~ExpressionHolder() {
    if (m_Expression != nullptr) m_Plugin->destroyExpression(m_Expression);
  }

 private:
  PluginSDK::Plugin* m_Plugin;
  PluginSDK::Expression* m_Expression;
};

}  // namespace

PluginSession::PluginSession(const PluginLibrary& library,
                             const std::vector<NameValue>& pluginProperties)
    : m_Library(library) {
  m_Plugin = m_Library.createPlugin();
  if (m_Plugin == nullptr)
    throw UsageError("the plug-in " + library.path() + " created no plug-in object");
  m_Plugin->initializePlugin();
  m_Refused = PluginProperties::apply(*m_Plugin, pluginProperties);
}

PluginSession::~PluginSession() {
  m_Plugin->cleanupPlugin();
  m_Library.destroyPlugin(m_Plugin);
}

Evaluation PluginSession::evaluate(const std::string& operand,
                                   const std::vector<NameValue>& properties) {
  m_Diagnostics.begin();
  Evaluation evaluation = evaluateExpression(operand, properties);
  m_Diagnostics.finish(evaluation, properties);
  return evaluation;
}

Evaluation PluginSession::evaluateExpression(const std::string& operand,
                                             const std::vector<NameValue>& properties) {
  Evaluation evaluation;
  evaluation.operand = operand;
  std::wstring name = widen(operand);
  PluginSDK::Expression* expression = nullptr;
  evaluation.code = m_Plugin->createExpression(name.c_str(), &expression);
  if (evaluation.code != 0 || expression == nullptr) return evaluation;
  ExpressionHolder holder(m_Plugin, expression);

  for (const NameValue& property : properties) {
    expression->setProperty(widen(property.name).c_str(), widen(property.value).c_str());
  }
  if (expression->getType() == PluginSDK::Expression::Vector) {
    evaluation.isVector = true;
    PluginSDK::StringVector result;
    evaluation.code =
        static_cast<PluginSDK::VectorExpression*>(expression)->getVectorResult(result);
    evaluation.vector = std::move(result);
    return evaluation;
  }
  PluginSDK::String result;
  evaluation.code = static_cast<PluginSDK::ScalarExpression*>(expression)->getScalarResult(result);
  evaluation.scalar = toNarrow(result);
  return evaluation;
}

}  // namespace CustomScanTool
