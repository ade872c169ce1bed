#pragma once
// The scalar operand that returns one field of one row of a MIF class.
// Properties: "command", "class", "code", "field" (required), "output".

#include "sdk/Expression.h"

namespace CustomScanPlugin {

class CustomScanInfo : public PluginSDK::ScalarOperand {
 public:
  CustomScanInfo();
  ~CustomScanInfo() override;
  void disposeExpression() override;
  // On 0, result holds the field's value; on any other code it is empty.
  TErrorCode getScalarResult(PluginSDK::String& result) override;
  // The code of the first required property not set, in the order command,
  // class, code, field; else 0. An empty value counts as set.
  TErrorCode validateProperties();
  // The property's value, or the very defaultValue pointer when it is not set.
  const wchar_t* getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue);
};

}  // namespace CustomScanPlugin
