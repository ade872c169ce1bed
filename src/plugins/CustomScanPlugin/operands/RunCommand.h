#pragma once
// The scalar operand "RunCommand": runs a program from the custom scanner
// directory and answers with its output as one string, cleaned line by line
// unless "trim" is exactly "false".

#include "base/String.h"
#include "operands/CommandRequest.h"
#include "sdk/Expression.h"

namespace CustomScanPlugin {

class RunCommand : public PluginSDK::ScalarOperand {
 public:
  // Reads the custom scanner directory from the host configuration.
  RunCommand();
  ~RunCommand() override;

  void disposeExpression() override;
  // The output of the program named by "path". On any failure result stays
  // empty and the code of the failing step is returned:
  // CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND, a command gate code,
  // or a process runner code.
  TErrorCode getScalarResult(PluginSDK::String& result) override;

  // CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND when "path" is not
  // set, else 0; an empty value counts as set.
  TErrorCode validateProperties();
  // The property's value, or defaultValue itself when it is not set.
  const wchar_t* getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue);
  // The command gate, confined to this operand's directory.
  TErrorCode getCommand(const String& command, String& resolved);

 private:
  CommandRequest m_Request;
};

}  // namespace CustomScanPlugin
