#include "Evaluation.h"

#include <sstream>

#include "JsonText.h"
#include "ResultCodeTable.h"
#include "VisibleText.h"
#include "base/ProcessDiagnostics.h"
#include "sdk/SdkStringExtras.h"

namespace CustomScanTool {

namespace {

nlohmann::ordered_json stringArray(const std::vector<std::string>& items) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const std::string& item : items) array.push_back(item);
  return array;
}

nlohmann::ordered_json processJson(const ProcessReport& report) {
  nlohmann::ordered_json out;
  out["program"] = report.program;
  if (!report.created) {
    out["created"] = false;
    if (report.creationError != 0) out["errno"] = report.creationError;
    return out;
  }
  if (!report.ended) return out;
  if (report.signal != 0) {
    out["signal"] = report.signal;
    out["signalName"] = ProcessDiagnostics::signalName(report.signal);
  } else if (!report.statusUnknown) {
    out["exitStatus"] = report.exitStatus;
  }
  if (report.timedOut) {
    out["timedOut"] = true;
    out["timeout"] = report.timeoutSeconds;
    if (report.killed) out["killed"] = true;
  }
  return out;
}

// Records beyond this many are summed up in one line of plain output.
constexpr std::size_t kShownRecords = 20;

// One line of plain output: a record or a scanner's line cannot break the
// output's lines or reach the terminal as a control sequence.
std::string printable(const std::string& text) { return VisibleText::of(text); }

// A JSON string of the narrow text, as JsonText::dump writes it.
void writeJsonString(std::ostream& out, const std::string& text) {
  bool plain = true;
  for (char c : text) {
    if (c < 0x20 || c > 0x7E || c == '"' || c == '\\') {
      plain = false;
      break;
    }
  }
  if (plain) {
    out << '"' << text << '"';
    return;
  }
  out << JsonText::dump(nlohmann::ordered_json(text));
}

}  // namespace

std::vector<std::string> Evaluation::standardErrorLines() const {
  std::vector<std::string> lines;
  if (!process || !process->standardErrorCaptured || process->standardErrorBytes == 0) return lines;
  const std::string& tail = process->standardErrorTail;
  std::size_t start = 0;
  for (;;) {
    std::size_t end = tail.find('\n', start);
    lines.push_back(tail.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

nlohmann::ordered_json Evaluation::toJson() const { return toJsonWithResult(true); }

nlohmann::ordered_json Evaluation::toJsonWithResult(bool withResult) const {
  nlohmann::ordered_json out;
  out["operand"] = operand;
  out["code"] = code;
  if (isVector) {
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    if (withResult) {
      forEachNarrowItem(vector, [&](const std::string& item) { items.push_back(item); });
    }
    out["result"] = items;
  } else {
    out["result"] = withResult ? scalar : std::string();
  }
  if (code != 0) {
    out["error"] = ResultCodeTable::nameOf(code);
    out["message"] = ResultCodeTable::meaningOf(code);
  }
  if (!reason.empty()) out["reason"] = reason;
  if (!nearNames.empty()) out["nearNames"] = stringArray(nearNames);
  if (!records.empty()) out["records"] = stringArray(records);
  if (code != 0 && process) out["process"] = processJson(*process);
  const std::vector<std::string> stderrLines = standardErrorLines();
  if (!stderrLines.empty()) {
    out["stderr"] = stringArray(stderrLines);
    // The tail holds its bytes and a line feed between lines; anything more
    // was written before it.
    if (process->standardErrorBytes > process->standardErrorTail.size() + 1)
      out["stderrTruncated"] = true;
  }
  return out;
}

void Evaluation::writeJson(std::ostream& out) const {
  // Everything but the result is made as toJson makes it; the result is
  // written where its empty form stands (the first "result" member: the
  // operand before it is a JSON string, in which a quote is escaped).
  const std::string text = JsonText::dump(toJsonWithResult(false));
  const std::string empty = isVector ? "\"result\":[]" : "\"result\":\"\"";
  const std::size_t at = text.find(empty);
  const std::size_t resultAt = at + empty.size() - (isVector ? 1 : 2);
  out.write(text.data(), static_cast<std::streamsize>(resultAt));
  if (isVector) {
    bool first = true;
    forEachNarrowItem(vector, [&](const std::string& item) {
      if (!first) out << ',';
      first = false;
      writeJsonString(out, item);
    });
    out << ']';
  } else {
    writeJsonString(out, scalar);
  }
  const std::size_t rest = at + empty.size();
  out.write(text.data() + rest, static_cast<std::streamsize>(text.size() - rest));
}

void Evaluation::writePlainText(std::ostream& out) const {
  if (code != 0) return;
  if (!isVector) {
    out << scalar << '\n';
    return;
  }
  forEachNarrowItem(vector, [&](const std::string& item) { out << item << '\n'; });
}

std::string Evaluation::toPlainText() const {
  std::ostringstream out;
  writePlainText(out);
  return out.str();
}

std::vector<std::string> Evaluation::detailLines() const {
  std::vector<std::string> lines;
  if (!reason.empty()) lines.push_back("reason: " + printable(reason));
  std::size_t shown = 0;
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (records[i] == reason) continue;
    if (shown++ == kShownRecords) {
      lines.push_back("plug-in: ... and " + std::to_string(records.size() - i) + " more records");
      break;
    }
    lines.push_back("plug-in: " + printable(records[i]));
  }
  const std::vector<std::string> stderrLines = standardErrorLines();
  if (!stderrLines.empty()) {
    lines.push_back("standard error of " + printable(process->program) + " (last lines):");
    for (const std::string& line : stderrLines) lines.push_back("| " + printable(line));
  }
  return lines;
}

}  // namespace CustomScanTool
