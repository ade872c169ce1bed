#pragma once
// Plug-in properties as a host agent sets them: each one is handed to
// setProperty, and the plug-in keeps only the names and values it knows,
// saying so only in a trace. Every subcommand that sets them tells the user.

#include <ostream>
#include <vector>

#include "NameValue.h"
#include "sdk/Plugin.h"

namespace CustomScanTool {

class PluginProperties {
 public:
  // Sets each property on plugin, in order; returns those that the plug-in
  // did not keep in its configuration.
  static std::vector<NameValue> apply(PluginSDK::Plugin& plugin,
                                      const std::vector<NameValue>& properties);
  // One warning line on err for each refused property.
  static void reportRefused(const std::vector<NameValue>& refused, std::ostream& err);
};

}  // namespace CustomScanTool
