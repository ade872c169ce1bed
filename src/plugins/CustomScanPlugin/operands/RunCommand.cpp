#include "operands/RunCommand.h"

#include <cstring>
#include <cwchar>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "common/Command.h"
#include "common/CommandGate.h"
#include "common/MemoryBuffer.h"
#include "common/OutOfMemory.h"
#include "config/ZelCfg.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommand";
constexpr char kResultLabel[] = "RunCommand::getScalarResult()";
// Only this exact "trim" value keeps the output untouched.
constexpr wchar_t kTrimOff[] = L"false";
}  // namespace

namespace CustomScanPlugin {

RunCommand::RunCommand() {
  CS_TRACE_SCOPE("RunCommand::RunCommand()");
  customScannerDir = ZelCfg::getCustomScannerDir();
}

RunCommand::~RunCommand() = default;

void RunCommand::disposeExpression() {}

TErrorCode RunCommand::validateProperties() {
  // The label reads "CustomScanRunCommand" as hosts have always filtered it.
  constexpr char kLabel[] = "CustomScanRunCommand::validateProperties()";
  CS_TRACE_SCOPE(kLabel);
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH) == nullptr) {
    CS_TRACE(Trace::Error, kLabel) << "Path attribute not specified." << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND;
  }
  return 0;
}

const wchar_t* RunCommand::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  CS_TRACE_SCOPE("RunCommand::getOptionalProperty()");
  const wchar_t* value = getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode RunCommand::getCommand(const String& command, String& resolved) {
  return CommandGate::resolve(customScannerDir, "RunCommand::getCommand(const String&,String&)", kSourceLabel,
                              command, resolved);
}

TErrorCode RunCommand::getScalarResult(PluginSDK::String& result) try {
  CS_TRACE_SCOPE(kResultLabel);
  result = L"";
  MemoryBuffer buffer(1024, 4096);
  buffer.zero();

  TErrorCode code = validateProperties();
  if (code != 0) {
    CS_TRACE(Trace::Error, kResultLabel) << "Properties not validated properly, error number = " << code
                                         << Trace::End;
    return code;
  }
  const wchar_t* path = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH);
  const wchar_t* trim = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM);

  String resolved;
  code = getCommand(String(path), resolved);
  if (code != 0) return code;

  code = Command::run(resolved, buffer);
  if (code != 0) {
    CS_TRACE(Trace::Error, kResultLabel) << "Error executing command, error number = " << code << Trace::End;
    return code;
  }

  char empty[1] = {0};
  char* text = buffer.getData() != nullptr ? reinterpret_cast<char*>(buffer.getData()) : empty;
  if (trim != nullptr && std::wcscmp(trim, kTrimOff) == 0) {
    result = text;
    CS_TRACE(Trace::Detail, kResultLabel) << "Result: " << result.c_str() << Trace::End;
    return 0;
  }

  // Runs of line breaks count as one; each line is trimmed, and only the
  // lines after the first are traced as they are added.
  PluginSDK::String line;
  line = std::strtok(text, "\n");
  line.trim();
  result = line;
  for (char* piece = std::strtok(nullptr, "\n"); piece != nullptr; piece = std::strtok(nullptr, "\n")) {
    line = piece;
    line.trim();
    result.append(L"\n");
    result.append(line.c_str());
    CS_TRACE(Trace::Detail, kResultLabel) << "Result: " << result.c_str() << Trace::End;
  }
  return 0;
} catch (...) {
  result = L"";
  return outOfMemory(kResultLabel, kSourceLabel, __LINE__);
}

}  // namespace CustomScanPlugin
