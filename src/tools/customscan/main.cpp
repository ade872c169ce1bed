// customscan: the command-line host of the CustomScan plug-in.

#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "BatchCommand.h"
#include "DescriptorOutputBuffer.h"
#include "DoctorCommand.h"
#include "EvalCommand.h"
#include "InputText.h"
#include "MifCommand.h"
#include "ProcessSettingsScope.h"
#include "StandardStreams.h"
#include "ToolOptions.h"
#include "UsageError.h"

using namespace CustomScanTool;

namespace {

// Where the reference lives once installed: the manual pages, and the guides
// in the documentation directory (/usr/share/doc/customscan from the package).
#define CUSTOMSCAN_REFERENCE \
  "customscan(1), customscan-mif(5) and " CUSTOMSCAN_DOC_DIR "/customscan.md"

const char kFooter[] =
    "Exit status: 0 when the plug-in answered with code 0, 1 when it returned\n"
    "another code (standard error names it), 2 for a usage error or input that\n"
    "cannot be read, 3 when the output cannot be written (full device, closed\n"
    "standard output, broken pipe).\n"
    "Environment: CUSTOMSCAN_SCANNER_DIR is the default of --scanner-dir,\n"
    "CUSTOMSCAN_PLUGIN the default of --plugin.\n"
    "Reference: " CUSTOMSCAN_REFERENCE ".";

const char kUsageHint[] = "Run with --help for more information, or see " CUSTOMSCAN_REFERENCE ".";

std::string failureMessage(const CLI::App* app, const CLI::Error& error) {
  return std::string(error.what()) + "\n" + kUsageHint + "\n";
}

// Shows the flag "--trace{3}" as "--trace[=LEVEL]".
class ToolFormatter : public CLI::Formatter {
 public:
  std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
    std::string name = CLI::Formatter::make_option_name(option, isPositional);
    std::string::size_type brace = name.find('{');
    if (brace == std::string::npos) return name;
    std::string::size_type close = name.find('}', brace);
    return name.substr(0, brace) + "[=LEVEL]" +
           (close == std::string::npos ? "" : name.substr(close + 1));
  }
};

// Puts a stream on another buffer while it lives.
class OutputRedirect {
 public:
  OutputRedirect(std::ostream& stream, std::streambuf* buffer)
      : m_Stream(stream), m_Previous(stream.rdbuf(buffer)) {}
  OutputRedirect(const OutputRedirect&) = delete;
  OutputRedirect& operator=(const OutputRedirect&) = delete;
  ~OutputRedirect() {
    m_Stream.flush();
    m_Stream.rdbuf(m_Previous);
  }

 private:
  std::ostream& m_Stream;
  std::streambuf* m_Previous;
};

void addPluginOption(CLI::App* command, ToolOptions& options) {
  command
      ->add_option("--plugin", options.pluginPath,
                   "The plug-in library to load (default: $CUSTOMSCAN_PLUGIN, else the one "
                   "installed or built "
                   "beside the tool)")
      ->type_name("PATH");
}

void addScannerDirOption(CLI::App* command, ToolOptions& options) {
  command
      ->add_option("--scanner-dir", options.scannerDir,
                   "The custom scanner directory (default: $CUSTOMSCAN_SCANNER_DIR)")
      ->type_name("DIR");
}

void addPluginPropertyOption(CLI::App* command, ToolOptions& options) {
  command
      ->add_option("--plugin-property", options.pluginProperties,
                   "A plug-in property, passed to setProperty before any expression (repeatable), "
                   "e.g. onDuplicatedKeys=error")
      ->type_name("NAME=VALUE")
      ->expected(1)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addTraceOption(CLI::App* command, ToolOptions& options) {
  command
      ->add_flag("--trace{3}", options.traceLevel,
                 "Write the trace records of LEVEL and below to standard error, one a line: "
                 "1 errors, 2 warnings, 3 details (the default), 4 also scopes")
      ->check(CLI::Range(1, 4))
      ->option_text(" ");
}

void addProcessOptions(CLI::App* command, ToolOptions& options) {
  command
      ->add_option("--timeout", options.timeout,
                   "End a scanner that runs longer than SECONDS, with its whole process group "
                   "(SIGTERM, then SIGKILL 2 s later); the expression then fails with -14202. "
                   "Default 0: no limit, as in an agent; e.g. --timeout 60")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 1e9));
  command->add_flag(
      "--require-safe-scanners", options.requireSafeScanners,
      "Refuse to start a scanner that a user other than root and you could have changed "
      "(the file, or a directory on its path, writable by group or others, or owned by "
      "another user); the expression then fails with -14200 and the reason");
}

void addJsonOption(CLI::App* command, ToolOptions& options, const std::string& description) {
  command->add_flag("--json", options.json, description);
}

void addRouteOption(CLI::App* command, std::string& route) {
  command
      ->add_option("--route", route,
                   "How the agent gets the text: stdout (the default), a scanner's standard "
                   "output, which loses "
                   "every zero byte and CR; file, an \"output\" file, kept as written up to its "
                   "first zero byte")
      ->check(CLI::IsMember({"stdout", "file"}))
      ->type_name("stdout|file");
}

int runTool(int argc, char** argv) {
  CLI::App app("customscan " CUSTOMSCAN_VERSION
               ": evaluates CustomScan expressions by loading the plug-in as a host agent does,\n"
               "and checks the MIF text that custom scanners write.",
               "customscan");
  app.formatter(std::make_shared<ToolFormatter>());
  app.set_version_flag("--version", "customscan " CUSTOMSCAN_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);
  app.failure_message(failureMessage);

  ToolOptions options;

  CLI::App* eval = app.add_subcommand("eval", "Evaluate one expression and print its result");
  std::string operand;
  std::vector<std::string> properties;
  eval->add_option("OPERAND", operand,
                   "The operand: RunCommand, RunCommandEx, CustomScanInfo, CustomScanExists or "
                   "CustomScanList")
      ->required();
  eval->add_option(
          "properties", properties,
          "The expression's properties, each split at its first \"=\", e.g. path=kernel.sh")
      ->type_name("NAME=VALUE");
  addPluginOption(eval, options);
  addScannerDirOption(eval, options);
  addPluginPropertyOption(eval, options);
  addTraceOption(eval, options);
  addProcessOptions(eval, options);
  addJsonOption(
      eval, options,
      "Print one JSON object: {\"operand\", \"code\", \"result\"}, with \"error\" and \"message\" "
      "when the code is not 0, and what is known of the cause (\"reason\", \"records\", "
      "\"process\", "
      "\"stderr\"); the scanner's standard error is then captured, not passed through");
  eval->footer(
      "Plain output: a scalar result and a line feed, or a vector result one element a line.\n"
      "A failure is told on standard error: the code, its name and meaning, then the reason\n"
      "and the plug-in's error records; the scanner's own standard error passes through.\n"
      "Example: customscan eval --scanner-dir examples/scanners --timeout 60 CustomScanInfo \\\n"
      "           command=os-release.sh class=OperatingSystem code=Linux field=PrettyName");

  CLI::App* batch = app.add_subcommand(
      "batch", "Evaluate JSON Lines requests in one plug-in life and print one JSON object a line");
  std::string batchInput = "-";
  batch->add_option("FILE", batchInput, "The requests, one a line (default: standard input)")
      ->type_name("FILE|-");
  addPluginOption(batch, options);
  addScannerDirOption(batch, options);
  addPluginPropertyOption(batch, options);
  addTraceOption(batch, options);
  addProcessOptions(batch, options);
  addJsonOption(batch, options, "Accepted for symmetry; batch output is always JSON");
  batch->add_flag("--fail-on-error", options.failOnError,
                  "Exit with status 1 when any request was answered with a code other than 0");
  batch->footer(
      "A request: {\"operand\": NAME, \"properties\": {NAME: VALUE, ...}}. Each answer has the "
      "form of\n"
      "eval --json, the scanner's standard error captured into \"stderr\". A line that is not a\n"
      "valid request (a NUL in a name or value, a line of more than 1 MiB included) is answered "
      "with\n"
      "{\"line\": N, \"error\": \"invalid request\", \"message\": ...}, and the exit status is "
      "then 2.\n"
      "Otherwise it is 0 whatever the codes, or 1 with --fail-on-error when any code was not 0.");

  CLI::App* mif = app.add_subcommand("mif", "Check a MIF text with the plug-in's own parser");
  mif->require_subcommand(1);
  std::string mifInput;
  std::vector<std::string> mifFiles;
  std::string mifRoute = "stdout";
  std::string mifClass;
  std::string mifFormat = "text";

  CLI::App* check = mif->add_subcommand("check",
                                        "Parse and validate MIF texts and build the table of every "
                                        "class; print the line-numbered messages and hints");
  check->add_option("FILE", mifFiles, "The MIF texts (- for standard input)")
      ->required()
      ->type_name("FILE|-");
  addRouteOption(check, mifRoute);
  addPluginPropertyOption(check, options);
  addTraceOption(check, options);
  addJsonOption(check, options,
                "Print one JSON object per FILE, one a line, with the messages, classes and hints");
  check->footer("Exit status: the worst of the files: 0 valid, 1 invalid, 2 unreadable.");

  CLI::App* table = mif->add_subcommand("table", "Build the table of one class and print it");
  table->add_option("FILE", mifInput, "The MIF text (- for standard input)")
      ->required()
      ->type_name("FILE|-");
  addRouteOption(table, mifRoute);
  table->add_option("--class", mifClass, "The MIF class whose table to print")
      ->required()
      ->type_name("CLASS");
  table
      ->add_option("--format", mifFormat,
                   "text: an aligned grid; json: an array of objects; csv: RFC 4180")
      ->check(CLI::IsMember({"text", "json", "csv"}))
      ->type_name("text|json|csv");
  addPluginPropertyOption(table, options);
  addTraceOption(table, options);
  addJsonOption(table, options, "The same as --format json");
  table->footer("Rows come in key order, the row key (the \"code\" of an expression) first.");

  CLI::App* tree =
      mif->add_subcommand("tree", "Print the element tree of a MIF text, with line numbers");
  tree->add_option("FILE", mifInput, "The MIF text (- for standard input)")
      ->required()
      ->type_name("FILE|-");
  addRouteOption(tree, mifRoute);
  addTraceOption(tree, options);
  addJsonOption(tree, options, "Print the tree as nested JSON objects");

  CLI::App* doctor = DoctorCommand::addTo(app, options);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int status = app.exit(e);
    return status == 0 ? kExitOk : kExitUsage;
  }

  if (eval->parsed()) {
    // A person reading plain output sees a scanner's standard error as it
    // comes; JSON answers carry it instead.
    options.captureStandardError = options.json;
    return EvalCommand::run(options, operand, properties, std::cout, std::cerr);
  }
  if (doctor->parsed()) return DoctorCommand::run(options, std::cout, std::cerr);
  if (batch->parsed()) {
    options.captureStandardError = true;
    InputText input(batchInput);
    return BatchCommand::run(options, input, std::cout, std::cerr);
  }
  const MifRoute::Kind route = MifRoute::parse(mifRoute);
  if (check->parsed()) return MifCommand::check(options, route, mifFiles, std::cout, std::cerr);
  InputText input(mifInput);
  if (tree->parsed()) return MifCommand::tree(options, route, input, std::cout, std::cerr);
  if (table->parsed()) {
    if (options.json && table->count("--format") > 0 && mifFormat != "json") {
      throw UsageError("--json and --format " + mifFormat + " contradict each other");
    }
    return MifCommand::table(options, route, input, mifClass, options.json ? "json" : mifFormat,
                             std::cout, std::cerr);
  }
  return kExitUsage;
}

// Runs the tool with std::cout on a buffer that keeps the first write error,
// and turns an answer that could not be written into status 3 with the reason.
int runWithCheckedOutput(int argc, char** argv) {
  if (StandardStreams::wasClosed(1)) {
    // Whatever ran, its answer would be lost: run nothing.
    std::cerr << "customscan: error: cannot write the output: standard output is closed\n";
    return kExitOutput;
  }
  DescriptorOutputBuffer output(1);
  OutputRedirect redirect(std::cout, &output);
  int status = kExitUsage;
  try {
    status = runTool(argc, argv);
  } catch (const std::exception& e) {
    // A UsageError, or what the tool's own libraries throw (an allocation
    // that failed, among them): reported, never let out of main().
    std::cout.flush();
    std::cerr << "customscan: error: " << e.what() << "\n"
              << "customscan: " << kUsageHint << "\n";
    status = kExitUsage;
  }
  std::cout.flush();
  if (!output.failed()) return status;
  std::cerr << "customscan: error: cannot write the output: " << std::strerror(output.error())
            << "\n";
  return kExitOutput;
}

}  // namespace

// A tool interrupted while a scanner ran with a time limit has answered the
// request and released everything; its status then tells the signal, as a
// shell would: 128 + its number.
int endedBySignal(int status) {
  const int signal = ProcessSettingsScope::receivedSignal();
  return signal == 0 ? status : 128 + signal;
}

int main(int argc, char** argv) {
  StandardStreams::hold();
  const int status = endedBySignal(runWithCheckedOutput(argc, argv));
  StandardStreams::release();
  return status;
}
