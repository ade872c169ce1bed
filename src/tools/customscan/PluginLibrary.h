#pragma once
// The plug-in library, opened with dlopen exactly as a host agent opens it,
// and its two entry points.

#include <string>
#include <vector>

#include "sdk/Plugin.h"

namespace CustomScanTool {

class PluginLibrary {
 public:
  // Opens the library at path and looks up createPlugin and destroyPlugin.
  // Throws UsageError, with dlerror's reason, when either fails.
  explicit PluginLibrary(const std::string& path);
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;
  ~PluginLibrary();

  PluginSDK::Plugin* createPlugin() const { return m_Create(); }
  void destroyPlugin(PluginSDK::Plugin* plugin) const { m_Destroy(plugin); }
  const std::string& path() const { return m_Path; }

  // The plug-in to load when --plugin is not given: $CUSTOMSCAN_PLUGIN when
  // set, else the first of candidatePaths() that exists. Throws UsageError
  // naming the places searched when there is none.
  static std::string defaultPath();
  // Where a plug-in built or installed beside the tool would be: the tool's
  // own directory, then the library directories of an installation.
  static std::vector<std::string> candidatePaths();

 private:
  std::string m_Path;
  void* m_Handle = nullptr;
  PluginSDK::CreatePluginFunction m_Create = nullptr;
  PluginSDK::DestroyPluginFunction m_Destroy = nullptr;
};

}  // namespace CustomScanTool
