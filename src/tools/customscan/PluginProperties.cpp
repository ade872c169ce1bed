#include "PluginProperties.h"

#include <string>

#include "base/WideTextExtras.h"
#include "sdk/Configuration.h"
#include "sdk/SdkStringExtras.h"

namespace CustomScanTool {

namespace {

std::wstring widen(const std::string& text) { return hostDecodeNarrow(text.data(), text.size()); }

bool keptInConfiguration(const wchar_t* pluginName, const std::wstring& name,
                         const std::wstring& value) {
  PluginSDK::Configuration* configuration = nullptr;
  if (PluginSDK::Configuration::get(pluginName, configuration) != 0 || configuration == nullptr)
    return false;
  PluginSDK::String stored;
  if (!configuration->getProperty(PluginSDK::String(name.c_str()), stored)) return false;
  return stored.wstr() == value;
}

}  // namespace

std::vector<NameValue> PluginProperties::apply(PluginSDK::Plugin& plugin,
                                               const std::vector<NameValue>& properties) {
  std::vector<NameValue> refused;
  for (const NameValue& property : properties) {
    const std::wstring name = widen(property.name);
    const std::wstring value = widen(property.value);
    plugin.setProperty(name.c_str(), value.c_str());
    if (!keptInConfiguration(plugin.getName(), name, value)) refused.push_back(property);
  }
  return refused;
}

void PluginProperties::reportRefused(const std::vector<NameValue>& refused, std::ostream& err) {
  for (const NameValue& property : refused) {
    err << "customscan: warning: the plug-in did not accept the plug-in property " << property.name
        << "=" << property.value << " (--trace=2 shows its reason)\n";
  }
}

}  // namespace CustomScanTool
