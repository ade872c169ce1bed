#include "operands/RunCommand.h"

#include <cstring>
#include <cwchar>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "common/Command.h"
#include "common/MemoryBuffer.h"
#include "common/OutOfMemory.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommand";
constexpr char kResultLabel[] = "RunCommand::getScalarResult()";
// "CustomScanRunCommand" as hosts have always filtered it.
constexpr CustomScanPlugin::CommandRequest::Labels kLabels = {
    kSourceLabel, "CustomScanRunCommand::validateProperties()", "RunCommand::getOptionalProperty()",
    "RunCommand::getCommand(const String&,String&)", kResultLabel};
// Only this exact "trim" value keeps the output untouched.
constexpr wchar_t kTrimOff[] = L"false";
}  // namespace

namespace CustomScanPlugin {

RunCommand::RunCommand() : m_Request(kLabels) { CS_TRACE_SCOPE("RunCommand::RunCommand()"); }

RunCommand::~RunCommand() = default;

void RunCommand::disposeExpression() {}

TErrorCode RunCommand::validateProperties() { return m_Request.validate(*this); }

const wchar_t* RunCommand::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  return m_Request.optionalProperty(*this, name, defaultValue);
}

TErrorCode RunCommand::getCommand(const String& command, String& resolved) {
  return m_Request.resolve(command, resolved);
}

TErrorCode RunCommand::getScalarResult(PluginSDK::String& result) try {
  CS_TRACE_SCOPE(kResultLabel);
  result = L"";
  MemoryBuffer buffer(1024, 4096);
  buffer.zero();
  TErrorCode code = m_Request.open(*this);
  if (code != 0) return code;
  const wchar_t* trim = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM);
  String resolved;
  code = m_Request.run(*this, buffer, resolved);
  if (code != 0) return code;

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
  for (char* piece = std::strtok(nullptr, "\n"); piece != nullptr;
       piece = std::strtok(nullptr, "\n")) {
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
