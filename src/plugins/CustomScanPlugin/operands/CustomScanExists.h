#pragma once
// The scalar operand that tells whether a MIF class has a row with a given
// key, as PLUGIN_RESULT_TRUE or PLUGIN_RESULT_FALSE.
// Properties: "command", "class", "code" (required), "output".

#include "sdk/Expression.h"

namespace CustomScanPlugin {

class CustomScanExists : public PluginSDK::ScalarOperand {
 public:
  CustomScanExists();
  ~CustomScanExists() override;
  void disposeExpression() override;
  // On 0, result is PLUGIN_RESULT_TRUE or PLUGIN_RESULT_FALSE; on any other
  // code it is empty. A missing row is not a failure.
  TErrorCode getScalarResult(PluginSDK::String& result) override;
  // The code of the first required property not set, in the order command,
  // class, code; else 0.
  TErrorCode validateProperties();
  const wchar_t* getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue);
};

}  // namespace CustomScanPlugin
