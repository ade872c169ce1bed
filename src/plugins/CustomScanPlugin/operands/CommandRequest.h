#pragma once
// What the two command operands share: the scanner directory, read when the
// operand is made; the one required property "path"; and the steps of a
// request: validate, then confine the command to the directory and run it.
// Each operand passes its own labels, which hosts have always filtered on.

#include "base/String.h"
#include "sdk/Expression.h"

namespace CustomScanPlugin {

class MemoryBuffer;

class CommandRequest {
 public:
  struct Labels {
    const char* source;    // the operand's source label
    const char* validate;  // scope and record of its validateProperties()
    const char* optional;  // scope of its getOptionalProperty()
    const char* command;   // the command gate's label, for its getCommand()
    const char* result;    // records of its result operation
  };

  // Reads the custom scanner directory from the host configuration and keeps
  // a copy of labels (the texts they point to must outlive the request).
  explicit CommandRequest(const Labels& labels);

  // CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND when "path" is not
  // set, else 0; an empty value counts as set.
  TErrorCode validate(const PluginSDK::Expression& expression) const;
  // The property's value, or defaultValue itself when it is not set.
  const wchar_t* optionalProperty(const PluginSDK::Expression& expression, const wchar_t* name,
                                  const wchar_t* defaultValue) const;
  // The command gate, confined to the directory.
  TErrorCode resolve(const String& command, String& resolved) const;
  // The first step of a request: validate, a failure recorded under the
  // result label.
  TErrorCode open(const PluginSDK::Expression& expression) const;
  // The second: resolves the validated expression's "path" and runs it, its
  // output in buffer; resolved is the command line. A failure is the code of
  // the step that failed; a failed run is recorded under the result label.
  TErrorCode run(const PluginSDK::Expression& expression, MemoryBuffer& buffer,
                 String& resolved) const;

 private:
  Labels m_Labels;
  String m_Directory;
};

}  // namespace CustomScanPlugin
