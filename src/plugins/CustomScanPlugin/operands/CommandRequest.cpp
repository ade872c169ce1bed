#include "operands/CommandRequest.h"

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "common/Command.h"
#include "common/CommandGate.h"
#include "common/MemoryBuffer.h"
#include "config/ZelCfg.h"

namespace CustomScanPlugin {

CommandRequest::CommandRequest(const Labels& labels)
    : m_Labels(labels), m_Directory(ZelCfg::getCustomScannerDir()) {}

TErrorCode CommandRequest::validate(const PluginSDK::Expression& expression) const {
  CS_TRACE_SCOPE(m_Labels.validate);
  if (expression.getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH) == nullptr) {
    CS_TRACE_RECORD(Trace::Error, m_Labels.validate, m_Labels.source, __LINE__)
        << "Path attribute not specified." << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND;
  }
  return 0;
}

const wchar_t* CommandRequest::optionalProperty(const PluginSDK::Expression& expression,
                                                const wchar_t* name,
                                                const wchar_t* defaultValue) const {
  CS_TRACE_SCOPE(m_Labels.optional);
  const wchar_t* value = expression.getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode CommandRequest::resolve(const String& command, String& resolved) const {
  return CommandGate::resolve(m_Directory, m_Labels.command, m_Labels.source, command, resolved);
}

TErrorCode CommandRequest::open(const PluginSDK::Expression& expression) const {
  const TErrorCode code = validate(expression);
  if (code != 0) {
    CS_TRACE_RECORD(Trace::Error, m_Labels.result, m_Labels.source, __LINE__)
        << "Properties not validated properly, error number = " << code << Trace::End;
  }
  return code;
}

TErrorCode CommandRequest::run(const PluginSDK::Expression& expression, MemoryBuffer& buffer,
                               String& resolved) const {
  TErrorCode code =
      resolve(String(expression.getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH)), resolved);
  if (code != 0) return code;
  code = Command::run(resolved, buffer);
  if (code != 0) {
    CS_TRACE_RECORD(Trace::Error, m_Labels.result, m_Labels.source, __LINE__)
        << "Error executing command, error number = " << code << Trace::End;
  }
  return code;
}

}  // namespace CustomScanPlugin
