#include "BatchCommand.h"

#include <string>
#include <vector>

#include "BatchRequest.h"
#include "HostSetup.h"
#include "JsonText.h"
#include "PluginProperties.h"
#include "PluginSession.h"
#include "UsageError.h"

namespace CustomScanTool {

namespace {

// The line numbers of one kind of answer, for the summary on standard error:
// how many, and the first few (the answers themselves name every line).
class LineList {
 public:
  void add(long line) {
    if (m_First.size() < kShown) m_First.push_back(line);
    ++m_Count;
  }
  bool empty() const { return m_Count == 0; }
  // Writes "customscan: batch: N WHAT: L1 L2 ...".
  void summarise(std::ostream& err, const char* what) const {
    err << "customscan: batch: " << m_Count << " " << what << ":";
    for (long line : m_First) err << " " << line;
    err << (m_Count > m_First.size() ? " ...\n" : "\n");
  }

 private:
  static constexpr std::size_t kShown = 20;
  std::vector<long> m_First;
  unsigned long m_Count = 0;
};

}  // namespace

int BatchCommand::run(const ToolOptions& options, InputText& input, std::ostream& out,
                      std::ostream& err) {
  const std::vector<NameValue> pluginProperties = options.parsedPluginProperties();
  HostSetup host(options);
  // One plug-in life for the whole batch, so the MIF cache serves every request.
  PluginSession session(host.library(), pluginProperties);
  PluginProperties::reportRefused(session.refusedProperties(), err);

  LineList invalidLines;
  LineList failedLines;
  std::string line;
  bool tooLong = false;
  for (long lineNumber = 1; input.readLine(line, kMaxRequestBytes, tooLong); ++lineNumber) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!tooLong && BatchRequest::isBlank(line)) continue;
    BatchRequest request;
    std::string message;
    if (tooLong) {
      message = "the line is longer than " + std::to_string(kMaxRequestBytes) +
                " bytes, the most a request may have";
    }
    if (tooLong || !BatchRequest::parse(line, request, message, lineNumber)) {
      invalidLines.add(lineNumber);
      nlohmann::ordered_json invalid;
      invalid["line"] = lineNumber;
      invalid["error"] = "invalid request";
      invalid["message"] = message;
      out << JsonText::dump(invalid) << "\n";
    } else {
      Evaluation evaluation = session.evaluate(request.operand, request.properties);
      if (evaluation.code != 0) failedLines.add(lineNumber);
      evaluation.writeJson(out);
      out << "\n";
    }
    // An answer that cannot be written ends the batch: the requests after it
    // would run for nobody. The caller reports the reason.
    if (!out.flush()) return kExitOutput;
  }
  if (!invalidLines.empty()) invalidLines.summarise(err, "invalid request line(s)");
  if (options.failOnError && !failedLines.empty()) {
    failedLines.summarise(err, "request(s) answered with a non-zero code, on line(s)");
  }
  if (!invalidLines.empty()) return kExitUsage;
  if (options.failOnError && !failedLines.empty()) return kExitCode;
  return kExitOk;
}

}  // namespace CustomScanTool
