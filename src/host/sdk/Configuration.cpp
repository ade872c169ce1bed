#include "sdk/Configuration.h"

#include <memory>

namespace PluginSDK {

namespace {
std::map<std::wstring, std::unique_ptr<Configuration>>& stores() {
  static std::map<std::wstring, std::unique_ptr<Configuration>> all;
  return all;
}
}  // namespace

TErrorCode Configuration::get(const wchar_t* pluginName, Configuration*& configuration) {
  configuration = nullptr;
  if (pluginName == nullptr) return PLUGIN_ERROR_INVALID_ARGUMENT;
  auto& all = stores();
  auto it = all.find(pluginName);
  if (it == all.end()) {
    it = all.emplace(pluginName, std::unique_ptr<Configuration>(new Configuration())).first;
  }
  configuration = it->second.get();
  return PLUGIN_OK;
}

TErrorCode Configuration::cleanup(const wchar_t* pluginName) {
  if (pluginName == nullptr) return PLUGIN_ERROR_INVALID_ARGUMENT;
  stores().erase(pluginName);
  return PLUGIN_OK;
}

bool Configuration::getProperty(const String& name, String& value) const {
  auto it = m_Properties.find(name.wstr());
  if (it == m_Properties.end()) return false;
  value = it->second;
  return true;
}

void Configuration::setProperty(const String& name, const String& value) {
  m_Properties[name.wstr()] = value;
}

}  // namespace PluginSDK
