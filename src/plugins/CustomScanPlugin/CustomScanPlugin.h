#pragma once
// The plug-in object the host receives from createPlugin. It registers the
// five operand names, keeps the one plug-in-level setting in the host's
// configuration store, and creates and destroys operands by name.

#include "CustomScanConstants.h"
#include "sdk/Plugin.h"

namespace PluginSDK {

class CustomScanPlugin : public Plugin {
 public:
  CustomScanPlugin();
  ~CustomScanPlugin() override;

  // Accepts only "onDuplicatedKeys" with "error" or "warn"; anything else is
  // traced as a warning and dropped.
  void setProperty(const wchar_t* name, const wchar_t* value) override;
  // 1.1.1.1
  Version getVersion() const override;
  // CUSTOM_SCAN_PLUGIN_NAME
  const wchar_t* getName() const override;
  // Always null: the plug-in reports no unknown software.
  UnknownSoftware* getUnknownSoftware() override;
  void initializePlugin() override;
  // Destroys the MIF cache, then the plug-in's configuration; returns the
  // configuration clean-up's result.
  TErrorCode cleanupPlugin() override;
  // Creates the operand of that exact name into *expression; the host owns it
  // until destroyExpression. -101 for a null argument (*expression untouched),
  // -10008 for an unknown name (*expression set to null).
  TErrorCode createExpression(const wchar_t* name, Expression** expression) override;
  // Deletes the operand; null is ignored. Always 0.
  TErrorCode destroyExpression(Expression* expression) override;
};

}  // namespace PluginSDK
