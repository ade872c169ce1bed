// The plug-in library's two entry points, the only functions it exports.

#include "CustomScanPlugin.h"

#define CUSTOM_SCAN_EXPORT __attribute__((visibility("default")))

extern "C" CUSTOM_SCAN_EXPORT PluginSDK::Plugin* createPlugin() {
  return new PluginSDK::CustomScanPlugin();
}

extern "C" CUSTOM_SCAN_EXPORT void destroyPlugin(PluginSDK::Plugin* plugin) { delete plugin; }
