#include "RequestDiagnostics.h"

#include <cstdio>
#include <fstream>

#include "CustomScanConstants.h"
#include "JsonText.h"
#include "QueryHints.h"
#include "TraceSupport.h"
#include "base/ProcessDiagnostics.h"

namespace CustomScanTool {

namespace {

bool isMifOperand(const std::string& operand) {
  return operand == "CustomScanInfo" || operand == "CustomScanExists" ||
         operand == "CustomScanList";
}

// The value the expression was given for name (the last one set), or "".
std::string propertyValue(const std::vector<NameValue>& properties, const char* name) {
  std::string value;
  for (const NameValue& property : properties) {
    if (property.name == name) value = property.value;
  }
  return value;
}

// Whether the plug-in's cache remembers a request that failed with code and
// answers it with CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED from
// then on: the text could not be parsed or the class's table not built.
bool remembered(int code) {
  return code <= CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF &&
         code >= CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY &&
         code != CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND &&
         code != CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND;
}

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", seconds);
  return text;
}

// Why the process made the request fail, or "" when it ran and exited 0.
std::string processReason(const ProcessReport& report) {
  if (!report.created) return report.creationFailure;
  if (!report.ended) return std::string();
  if (report.timedOut) {
    std::string reason = "the scanner timed out after " + secondsText(report.timeoutSeconds);
    if (report.killed) reason += " (SIGTERM did not end it; SIGKILL did)";
    return reason;
  }
  if (report.signal != 0) {
    return "the scanner was killed by signal " + std::to_string(report.signal) + " (" +
           ProcessDiagnostics::signalName(report.signal) + ")";
  }
  if (report.statusUnknown) return "the scanner's exit status could not be obtained";
  if (report.exitStatus > 0)
    return "the scanner exited with status " + std::to_string(report.exitStatus);
  return std::string();
}

// The first limit bytes of a file, or false when it cannot be read.
bool readFile(const std::string& path, std::size_t limit, std::string& bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes.assign(limit, '\0');
  in.read(&bytes[0], static_cast<std::streamsize>(limit));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return !in.bad();
}

}  // namespace

RequestDiagnostics::RequestDiagnostics()
    : m_Collector(TraceControl::getSink()), m_Scope(&m_Collector) {}

void RequestDiagnostics::begin() {
  m_Collector.clear();
  ProcessDiagnostics::clear();
}

void RequestDiagnostics::finish(Evaluation& evaluation, const std::vector<NameValue>& properties) {
  for (const TraceRecord& record : m_Collector.records()) {
    if (record.component == CustomScanPlugin::kTraceComponent && record.level == Trace::Error) {
      evaluation.records.push_back(JsonText::narrow(record.text));
    }
  }
  m_Collector.clear();
  evaluation.process = ProcessDiagnostics::last();
  const ProcessReport* process = evaluation.process.get();

  const bool mif = isMifOperand(evaluation.operand);
  const std::string output = propertyValue(properties, "output");
  const std::string textKey = propertyValue(properties, "command") + '\0' + output;
  const std::string className = propertyValue(properties, "class");
  const std::string requestKey = textKey + '\0' + className;
  if (mif && process != nullptr && process->ended && process->exitStatus == 0 &&
      process->outputComplete) {
    if (output.empty()) {
      keepText(textKey, QueryHints::fromStandardOutput(process->output));
    } else {
      // The plug-in has just read the file the scanner wrote.
      std::string bytes;
      if (readFile(output, kKeptOutputBytes, bytes))
        keepText(textKey, QueryHints::fromOutputFile(bytes));
    }
  }
  if (evaluation.code == 0) return;

  if (process != nullptr) evaluation.reason = processReason(*process);
  if (evaluation.reason.empty() && mif) {
    if (evaluation.code == CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED) {
      auto failure = m_Failures.find(requestKey);
      if (failure != m_Failures.end()) {
        evaluation.reason =
            "this request failed before in this plug-in life and is not run again: " +
            failure->second;
      }
    } else if (const std::string* text = keptText(textKey)) {
      QueryHint hint =
          QueryHints::explain(evaluation.code, *text, className, propertyValue(properties, "code"),
                              propertyValue(properties, "field"));
      evaluation.reason = std::move(hint.reason);
      evaluation.nearNames = std::move(hint.nearNames);
    }
  }
  if (evaluation.reason.empty() && !evaluation.records.empty())
    evaluation.reason = evaluation.records.front();
  if (mif && remembered(evaluation.code) && !evaluation.reason.empty()) {
    m_Failures.emplace(requestKey, evaluation.reason);
  }
}

void RequestDiagnostics::keepText(const std::string& key, std::string text) {
  for (auto it = m_Texts.begin(); it != m_Texts.end(); ++it) {
    if (it->first != key) continue;
    m_TextBytes -= it->second.size();
    m_Texts.erase(it);
    break;
  }
  if (text.size() > kKeptTextBytes) return;
  m_TextBytes += text.size();
  m_Texts.emplace_back(key, std::move(text));
  while (m_TextBytes > kKeptTextBytes) {
    m_TextBytes -= m_Texts.front().second.size();
    m_Texts.pop_front();
  }
}

const std::string* RequestDiagnostics::keptText(const std::string& key) const {
  for (const auto& entry : m_Texts) {
    if (entry.first == key) return &entry.second;
  }
  return nullptr;
}

}  // namespace CustomScanTool
