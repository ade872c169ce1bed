#pragma once
// customscan doctor [--scanner-dir DIR] [--json]: who can change what the
// plug-in runs from the scanner directory, and what keeps a scanner there
// from running, each finding with why it matters and the command that fixes
// it.

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "ToolOptions.h"
#include "base/ScannerSafety.h"

namespace CLI {
class App;
}

namespace CustomScanTool {

class DoctorCommand {
 public:
  // Adds the subcommand to app; its options are written to options. The
  // subcommand belongs to app.
  static CLI::App* addTo(CLI::App& app, ToolOptions& options);

  // Audits the scanner directory (--scanner-dir, else $CUSTOMSCAN_SCANNER_DIR)
  // and prints every finding; nothing when there is none. Returns 0 when
  // nothing was found, 1 otherwise. Throws UsageError for a missing or
  // unusable directory.
  static int run(const ToolOptions& options, std::ostream& out, std::ostream& err);

  // "PATH: PROBLEM", then "  why: ..." and "  fix: ...", each line ended;
  // control characters and bytes that are not UTF-8 as \xHH, so that one
  // finding is always three lines.
  static std::string toPlainText(const ScannerFinding& finding);
  // {"path", "kind", "problem", "why", "fix"}, and "target" when there is one.
  static nlohmann::ordered_json toJson(const ScannerFinding& finding);
};

}  // namespace CustomScanTool
