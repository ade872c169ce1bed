#include "PluginHarness.h"

#include "CustomScanPlugin.h"
#include "TestSupport.h"
#include "base/HostFaults.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace cstest {

PluginHarness::PluginHarness() : m_Plugin(new PluginSDK::CustomScanPlugin()) {
  m_Plugin->initializePlugin();
}

PluginHarness::~PluginHarness() {
  if (!m_CleanedUp) m_Plugin->cleanupPlugin();
  delete m_Plugin;
}

TErrorCode PluginHarness::cleanup() {
  m_CleanedUp = true;
  return m_Plugin->cleanupPlugin();
}

Evaluation PluginHarness::resultOf(PluginSDK::Expression* expression) {
  Evaluation e;
  if (expression->getType() == PluginSDK::Expression::Scalar) {
    PluginSDK::String result(L"(unset)");
    e.code = static_cast<PluginSDK::ScalarExpression*>(expression)->getScalarResult(result);
    e.scalar = toWideString(result);
  } else {
    PluginSDK::StringVector result;
    {
      // The list grows through the host allocator: this host's own item must
      // not take the fault a countdown means for the plug-in.
      const long failAt = HostFaults::instance().failAllocationAt;
      HostFaults::instance().failAllocationAt = -1;
      result.addString(L"(stale)");
      HostFaults::instance().failAllocationAt = failAt;
    }
    e.code = static_cast<PluginSDK::VectorExpression*>(expression)->getVectorResult(result);
    for (std::size_t i = 0; i < result.size(); ++i) e.vector.push_back(toWideString(result[i]));
  }
  return e;
}

Evaluation PluginHarness::evaluate(const std::wstring& operand, const Properties& properties) {
  return evaluateTwice(operand, properties).first;
}

Evaluation PluginHarness::evaluateOnce(const std::wstring& operand, const Properties& properties) {
  PluginSDK::Expression* expression = nullptr;
  Evaluation e;
  e.code = m_Plugin->createExpression(operand.c_str(), &expression);
  if (e.code != 0) return e;
  for (const auto& p : properties) expression->setProperty(p.first.c_str(), p.second.c_str());
  e = resultOf(expression);
  m_Plugin->destroyExpression(expression);
  return e;
}

std::pair<Evaluation, Evaluation> PluginHarness::evaluateTwice(const std::wstring& operand,
                                                               const Properties& properties) {
  PluginSDK::Expression* expression = nullptr;
  TErrorCode rc = m_Plugin->createExpression(operand.c_str(), &expression);
  if (rc != 0) {
    Evaluation e;
    e.code = rc;
    return {e, e};
  }
  for (const auto& p : properties) expression->setProperty(p.first.c_str(), p.second.c_str());
  Evaluation first = resultOf(expression);
  Evaluation second = resultOf(expression);
  m_Plugin->destroyExpression(expression);
  return {first, second};
}

}  // namespace cstest
