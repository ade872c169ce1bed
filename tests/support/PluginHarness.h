#pragma once
// Drives the plug-in through the SDK's virtual interface, as a host agent
// does: one plug-in lifetime per harness object.

#include <string>
#include <utility>
#include <vector>

#include "sdk/Plugin.h"

namespace cstest {

struct Evaluation {
  TErrorCode code = 0;
  std::wstring scalar;
  std::vector<std::wstring> vector;
};

typedef std::vector<std::pair<std::wstring, std::wstring>> Properties;

class PluginHarness {
 public:
  // Creates and initialises the plug-in.
  PluginHarness();
  PluginHarness(const PluginHarness&) = delete;
  PluginHarness& operator=(const PluginHarness&) = delete;
  // Cleans up and destroys the plug-in (unless cleanup() was called).
  ~PluginHarness();

  PluginSDK::Plugin& plugin() { return *m_Plugin; }
  // Creates the operand, sets the properties, asks for its result once and
  // destroys it. The code of a failing createExpression is returned as is.
  Evaluation evaluate(const std::wstring& operand, const Properties& properties);
  // The same, asking for the result exactly once (for tests that count runs
  // or inject one fault).
  Evaluation evaluateOnce(const std::wstring& operand, const Properties& properties);
  // Asks the same operand object for its result twice.
  std::pair<Evaluation, Evaluation> evaluateTwice(const std::wstring& operand,
                                                  const Properties& properties);
  TErrorCode cleanup();

 private:
  Evaluation resultOf(PluginSDK::Expression* expression);
  PluginSDK::Plugin* m_Plugin;
  bool m_CleanedUp = false;
};

}  // namespace cstest
