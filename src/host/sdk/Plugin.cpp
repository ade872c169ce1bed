#include "sdk/Plugin.h"

namespace PluginSDK {

Plugin::Plugin() = default;
Plugin::~Plugin() = default;

TErrorCode Plugin::addExpression(const wchar_t* name) {
  if (name == nullptr) return PLUGIN_ERROR_INVALID_ARGUMENT;
  m_ExpressionNames.emplace_back(name);
  return PLUGIN_OK;
}

}  // namespace PluginSDK
