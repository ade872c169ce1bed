#pragma once
// The host configuration store of plug-ins: one store of name/value pairs per
// plug-in name, process-wide.

#include <map>
#include <string>

#include "sdk/PluginTypes.h"
#include "sdk/SdkString.h"

namespace PluginSDK {

class Configuration {
 public:
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;

  // Sets configuration to the store of the named plug-in, creating it on first
  // use. Returns 0, or PLUGIN_ERROR_INVALID_ARGUMENT (configuration null) for
  // a null name. The store lives until cleanup(name).
  static TErrorCode get(const wchar_t* pluginName, Configuration*& configuration);
  // Discards the named plug-in's store; 0 whether or not it existed,
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null name.
  static TErrorCode cleanup(const wchar_t* pluginName);

  // Whether the property is set; when it is, value receives it.
  bool getProperty(const String& name, String& value) const;
  void setProperty(const String& name, const String& value);

 private:
  Configuration() = default;
  std::map<std::wstring, String> m_Properties;
};

}  // namespace PluginSDK
