#pragma once
// The vector operand that returns the row keys of a MIF class, in key order.
// Properties: "command", "class" (required), "output".

#include "sdk/Expression.h"

namespace CustomScanPlugin {

class CustomScanList : public PluginSDK::VectorOperand {
 public:
  CustomScanList();
  ~CustomScanList() override;
  void disposeExpression() override;
  // On 0, result holds the table's keys; on any other code it is empty.
  TErrorCode getVectorResult(PluginSDK::StringVector& result) override;
  // The code of the first required property not set, in the order command,
  // class; else 0.
  TErrorCode validateProperties();
  const wchar_t* getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue);
};

}  // namespace CustomScanPlugin
