#include "operands/RunCommandEx.h"

#include <cwchar>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "common/Command.h"
#include "common/MemoryBuffer.h"
#include "common/OutOfMemory.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommandEx";
constexpr char kResultLabel[] = "RunCommandEx::getVectorResult()";
// "CustomScanRunCommandEx" as hosts have always filtered it.
constexpr CustomScanPlugin::CommandRequest::Labels kLabels = {
    kSourceLabel, "RunCommandEx::validateProperties()",
    "CustomScanRunCommandEx::getOptionalProperty()",
    "RunCommandEx::getCommand(const String&,String&)", kResultLabel};
// Only this exact "trim" value returns the lines raw.
constexpr wchar_t kTrimOff[] = L"false";
constexpr wchar_t kTrimDefault[] = L"true";
constexpr char kLineBreak = '\n';
}  // namespace

namespace CustomScanPlugin {

RunCommandEx::RunCommandEx() : m_Request(kLabels) {
  CS_TRACE_SCOPE("RunCommandEx::RunCommandEx()");
}

RunCommandEx::~RunCommandEx() { CS_TRACE_SCOPE("RunCommandEx::~RunCommandEx()"); }

void RunCommandEx::disposeExpression() {}

TErrorCode RunCommandEx::validateProperties() { return m_Request.validate(*this); }

const wchar_t* RunCommandEx::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  return m_Request.optionalProperty(*this, name, defaultValue);
}

TErrorCode RunCommandEx::getCommand(const String& command, String& resolved) {
  return m_Request.resolve(command, resolved);
}

TErrorCode RunCommandEx::getVectorResult(PluginSDK::StringVector& result) try {
  CS_TRACE_SCOPE(kResultLabel);
  MemoryBuffer buffer(1024, 4096);
  buffer.zero();
  result.removeAll();
  TErrorCode code = m_Request.open(*this);
  if (code != 0) return code;
  const bool raw = std::wcscmp(getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, kTrimDefault),
                               kTrimOff) == 0;
  String resolved;
  code = m_Request.run(*this, buffer, resolved);
  if (code != 0) return code;

  char empty[1] = {0};
  char* text = buffer.getData() != nullptr ? reinterpret_cast<char*>(buffer.getData()) : empty;
  // Adjacent line breaks give empty lines. When trimming, the first line is
  // kept even when empty, every later empty one is dropped.
  PluginSDK::String line;
  char* piece = gettoken(text, kLineBreak, 0);
  // Every text has a first line, if only an empty one. None means gettoken
  // had no storage for its copy; that must not pass for empty output.
  if (piece == nullptr) {
    CS_TRACE(Trace::Error, kResultLabel)
        << "Unable to split the output of command " << resolved << Trace::End;
    return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
  }
  line = piece;
  if (!raw) line.trim();
  result.addString(line.c_str());
  for (piece = gettoken(nullptr, kLineBreak, 0); piece != nullptr;
       piece = gettoken(nullptr, kLineBreak, 0)) {
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
