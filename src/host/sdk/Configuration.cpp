#include "sdk/Configuration.h"

#include <functional>
#include <memory>

namespace PluginSDK {

namespace {
// Ordered by std::less<> so that a store is found, and discarded, without a
// copy of its name: cleanup needs no memory.
typedef std::map<std::wstring, std::unique_ptr<Configuration>, std::less<>> Stores;
Stores& stores() {
  static Stores all;
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
  auto& all = stores();
  const auto it = all.find(pluginName);
  if (it != all.end()) all.erase(it);
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
