// The plug-in library's two entry points, the only functions it exports.

#include "CustomScanPlugin.h"
#include "common/OutOfMemory.h"

#define CUSTOM_SCAN_EXPORT __attribute__((visibility("default")))

namespace {
constexpr char kSourceLabel[] = "../../../src/plugins/CustomScanPlugin/EntryPoints";
}  // namespace

// Without room for the plug-in object the host gets null, and the record.
extern "C" CUSTOM_SCAN_EXPORT PluginSDK::Plugin* createPlugin() try {
  return new PluginSDK::CustomScanPlugin();
} catch (...) {
  CustomScanPlugin::outOfMemory("createPlugin", kSourceLabel, __LINE__);
  return nullptr;
}

extern "C" CUSTOM_SCAN_EXPORT void destroyPlugin(PluginSDK::Plugin* plugin) { delete plugin; }
