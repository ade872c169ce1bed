#include "DoctorCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <vector>

#include "JsonText.h"
#include "UsageError.h"

namespace CustomScanTool {

namespace {

std::string printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = scannerUtf8Length(text, i);
    const auto c = static_cast<unsigned char>(text[i]);
    if (n == 0 || (n == 1 && (c < 0x20 || c == 0x7F))) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", c);
      out += escape;
      ++i;
    } else {
      out.append(text, i, n);
      i += n;
    }
  }
  return out;
}

}  // namespace

CLI::App* DoctorCommand::addTo(CLI::App& app, ToolOptions& options) {
  CLI::App* doctor = app.add_subcommand(
      "doctor",
      "Check who can change what the plug-in runs from the scanner directory, and what keeps a "
      "scanner from running");
  doctor
      ->add_option("--scanner-dir", options.scannerDir,
                   "The custom scanner directory to check (default: $CUSTOMSCAN_SCANNER_DIR)")
      ->type_name("DIR");
  doctor->add_flag("--json", options.json,
                   "Print one JSON object a finding: {\"path\", \"kind\", \"problem\", \"why\", "
                   "\"fix\"}, with \"target\" for a link or an interpreter");
  doctor->footer(
      "Checks the directory, every entry below it, every directory on the path to it and the\n"
      "entries beside it that its prefix admits. Each finding is printed as PATH: WHAT IS WRONG,\n"
      "then why it matters and the command that fixes it; nothing is printed when all is well.\n"
      "Run it as the user the agent runs as (usually root): owners other than root and that\n"
      "user are findings.\n"
      "Exit status: 0 when nothing was found, 1 when something was, 2 for a usage error.");
  return doctor;
}

std::string DoctorCommand::toPlainText(const ScannerFinding& finding) {
  return printable(finding.path) + ": " + printable(finding.problem) +
         "\n  why: " + printable(finding.risk) + "\n  fix: " + printable(finding.fix) + "\n";
}

nlohmann::ordered_json DoctorCommand::toJson(const ScannerFinding& finding) {
  nlohmann::ordered_json json;
  json["path"] = finding.path;
  json["kind"] = scannerFindingKindName(finding.kind);
  json["problem"] = finding.problem;
  json["why"] = finding.risk;
  json["fix"] = finding.fix;
  if (!finding.target.empty()) json["target"] = finding.target;
  return json;
}

int DoctorCommand::run(const ToolOptions& options, std::ostream& out, std::ostream& err) {
  const std::string directory = options.resolvedScannerDir();
  const std::vector<ScannerFinding> findings = auditScannerDirectory(directory);
  for (const ScannerFinding& finding : findings) {
    if (options.json) {
      out << JsonText::dump(toJson(finding)) << "\n";
    } else {
      out << toPlainText(finding);
    }
  }
  out.flush();
  if (findings.empty()) return kExitOk;
  err << "customscan: doctor: " << findings.size()
      << (findings.size() == 1 ? " finding" : " findings") << " for the scanner directory "
      << printable(directory) << "\n";
  return kExitCode;
}

}  // namespace CustomScanTool
