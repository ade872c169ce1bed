#include "operands/RunCommandEx.h"

#include <cwchar>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "common/Command.h"
#include "common/CommandGate.h"
#include "common/MemoryBuffer.h"
#include "common/OutOfMemory.h"
#include "config/ZelCfg.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommandEx";
constexpr char kResultLabel[] = "RunCommandEx::getVectorResult()";
// Only this exact "trim" value returns the lines raw.
constexpr wchar_t kTrimOff[] = L"false";
constexpr wchar_t kTrimDefault[] = L"true";
constexpr char kLineBreak = '\n';
}  // namespace

namespace CustomScanPlugin {

RunCommandEx::RunCommandEx() {
  CS_TRACE_SCOPE("RunCommandEx::RunCommandEx()");
  customScannerDir = ZelCfg::getCustomScannerDir();
}

RunCommandEx::~RunCommandEx() { CS_TRACE_SCOPE("RunCommandEx::~RunCommandEx()"); }

void RunCommandEx::disposeExpression() {}

TErrorCode RunCommandEx::validateProperties() {
  constexpr char kLabel[] = "RunCommandEx::validateProperties()";
  CS_TRACE_SCOPE(kLabel);
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH) == nullptr) {
    CS_TRACE(Trace::Error, kLabel) << "Path attribute not specified." << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND;
  }
  return 0;
}

const wchar_t* RunCommandEx::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  // The label reads "CustomScanRunCommandEx" as hosts have always filtered it.
  CS_TRACE_SCOPE("CustomScanRunCommandEx::getOptionalProperty()");
  const wchar_t* value = getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode RunCommandEx::getCommand(const String& command, String& resolved) {
  return CommandGate::resolve(customScannerDir, "RunCommandEx::getCommand(const String&,String&)", kSourceLabel,
                              command, resolved);
}

TErrorCode RunCommandEx::getVectorResult(PluginSDK::StringVector& result) try {
  CS_TRACE_SCOPE(kResultLabel);
  MemoryBuffer buffer(1024, 4096);
  buffer.zero();
  result.removeAll();

  TErrorCode code = validateProperties();
  if (code != 0) {
    CS_TRACE(Trace::Error, kResultLabel) << "Properties not validated properly, error number = " << code
                                         << Trace::End;
    return code;
  }
  const wchar_t* path = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH);
  const bool raw = std::wcscmp(getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, kTrimDefault), kTrimOff) == 0;

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
  // Adjacent line breaks give empty lines. When trimming, the first line is
  // kept even when empty, every later empty one is dropped.
  PluginSDK::String line;
  char* piece = gettoken(text, kLineBreak, 0);
  // Every text has a first line, if only an empty one. None means gettoken
  // had no storage for its copy; that must not pass for empty output.
  if (piece == nullptr) {
    CS_TRACE(Trace::Error, kResultLabel) << "Unable to split the output of command " << resolved << Trace::End;
    return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
  }
  line = piece;
  if (!raw) line.trim();
  result.addString(line.c_str());
  for (piece = gettoken(nullptr, kLineBreak, 0); piece != nullptr; piece = gettoken(nullptr, kLineBreak, 0)) {
    if (!raw && (piece[0] == 0 || (piece[0] == kLineBreak && piece[1] == 0))) continue;
    line = piece;
    if (!raw) line.trim();
    result.addString(line.c_str());
  }
  return 0;
} catch (...) {
  result.removeAll();
  return outOfMemory(kResultLabel, kSourceLabel, __LINE__);
}

}  // namespace CustomScanPlugin
