#include "MifCommand.h"

#include <algorithm>
#include <map>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

#include "CollectingTraceSink.h"
#include "CustomScanPlugin.h"
#include "JsonText.h"
#include "MifClassIndex.h"
#include "MifHints.h"
#include "MifTreeOutput.h"
#include "PluginProperties.h"
#include "ResultCodeTable.h"
#include "StderrTraceSink.h"
#include "TableFormatter.h"
#include "UsageError.h"
#include "VisibleText.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"
#include "sdk/Configuration.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;
using Json = nlohmann::ordered_json;

namespace CustomScanTool {

namespace {

std::string narrow(const String& text) { return text.toNarrow(); }

// The trace sinks of one mif subcommand: --trace's, if asked for, behind the
// collector of messages.
class MifTrace {
 public:
  explicit MifTrace(int traceLevel)
      : m_Stderr(traceLevel),
        m_Collector(traceLevel > 0 ? &m_Stderr : nullptr),
        m_Scope(&m_Collector) {}
  CollectingTraceSink& collector() { return m_Collector; }

 private:
  StderrTraceSink m_Stderr;
  CollectingTraceSink m_Collector;
  TraceSinkScope m_Scope;
};

// A parsed text: the element tree (owned) and the parser's code.
struct ParsedMif {
  int code = 0;
  std::unique_ptr<MifElement> top;
};

// text is what the agent parses (MifRoute::agentBytes): it holds no zero
// byte, so the plug-in's narrow entry reads all of it.
ParsedMif parseText(const std::string& text) {
  ParsedMif parsed;
  MifParser parser;
  MifElement* top = nullptr;
  parsed.code = parser.parseNarrow(text.c_str(), top);
  parsed.top.reset(top);
  return parsed;
}

ParsedMif parseInput(InputText& input, MifRoute::Kind route) {
  return parseText(MifRoute::agentBytes(input.readAll(), route));
}

void addCode(Json& object, int code) {
  object["code"] = code;
  if (code == 0) return;
  object["error"] = ResultCodeTable::nameOf(code);
  object["message"] = ResultCodeTable::meaningOf(code);
}

Json stringArray(const std::vector<std::string>& items) {
  Json array = Json::array();
  for (const std::string& item : items) array.push_back(item);
  return array;
}

Json hintArray(const std::vector<MifHint>& hints) {
  Json array = Json::array();
  for (const MifHint& hint : hints) {
    Json object;
    object["line"] = hint.line;
    object["kind"] = hint.kind;
    object["message"] = hint.message;
    array.push_back(object);
  }
  return array;
}

// The plug-in object of the linked core, so that --plugin-property reaches
// the table code through the same host configuration store as in an agent.
class LinkedPlugin {
 public:
  LinkedPlugin(const ToolOptions& options, std::ostream& err) {
    m_Plugin.initializePlugin();
    PluginProperties::reportRefused(
        PluginProperties::apply(m_Plugin, options.parsedPluginProperties()), err);
  }
  LinkedPlugin(const LinkedPlugin&) = delete;
  LinkedPlugin& operator=(const LinkedPlugin&) = delete;
  ~LinkedPlugin() { m_Plugin.cleanupPlugin(); }

 private:
  PluginSDK::CustomScanPlugin m_Plugin;
};

// What one class yields: its table, or the code and messages of the failure.
struct ClassTable {
  int code = 0;
  std::unique_ptr<MifTable> table;
  unsigned int rows = 0;
  std::vector<std::string> attributeNames;
  std::vector<std::string> keyNames;
  bool isScalar = false;
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

// Builds the table of className as the plug-in's cache does, below top.
ClassTable buildClassTable(const MifElement* top, const std::string& className,
                           CollectingTraceSink& collector) {
  ClassTable result;
  collector.clear();
  const String wideClass(className.c_str());
  MifTable* table = nullptr;
  result.code = MifTable::getMifTable(top, wideClass, table);
  result.table.reset(table);
  result.errors = collector.texts(Trace::Error);
  result.warnings = collector.texts(Trace::Warning);
  if (result.code != 0) return result;
  result.rows = result.table->getRowNumber();
  for (const String& name : result.table->attributeNames())
    result.attributeNames.push_back(narrow(name));
  for (const String& key : result.table->keyNames()) result.keyNames.push_back(narrow(key));
  result.isScalar = result.table->isScalar();
  return result;
}

// What buildClassTable gave for builtFor, as it gives it for className when
// both classes name the same group and table scopes: the same table, and the
// same messages but for the class that they name. The table itself is not
// copied.
ClassTable sameTableFor(const ClassTable& built, const std::string& builtFor,
                        const std::string& className) {
  ClassTable copy;
  copy.code = built.code;
  copy.rows = built.rows;
  copy.attributeNames = built.attributeNames;
  copy.keyNames = built.keyNames;
  copy.isScalar = built.isScalar;
  const std::string from = "(class = " + builtFor + ")";
  const std::string to = "(class = " + className + ")";
  const auto renamed = [&from, &to](std::vector<std::string> messages) {
    for (std::string& message : messages) {
      for (std::size_t at = message.find(from); at != std::string::npos;
           at = message.find(from, at + to.size())) {
        message.replace(at, from.size(), to);
      }
    }
    return messages;
  };
  copy.errors = renamed(built.errors);
  copy.warnings = renamed(built.warnings);
  return copy;
}

std::string joined(const std::vector<std::string>& items, const std::string& separator) {
  std::string out;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += separator;
    out += items[i];
  }
  return out;
}

std::string lowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// For an unknown class: the classes that the text does define.
std::string knownClasses(const std::vector<std::string>& names, const std::string& asked) {
  if (names.empty()) return "the text defines no group with a class";
  for (const std::string& name : names) {
    if (lowerAscii(name) == lowerAscii(asked)) {
      return "class names are case-sensitive: the text has \"" + VisibleText::of(name) + "\"";
    }
  }
  const std::size_t kShown = 20;
  std::string list;
  for (std::size_t i = 0; i < names.size() && i < kShown; ++i) {
    if (i > 0) list += ", ";
    list += "\"" + VisibleText::of(names[i]) + "\"";
  }
  if (names.size() > kShown) list += " and " + std::to_string(names.size() - kShown) + " more";
  return std::string("the text defines the class") + (names.size() > 1 ? "es " : " ") + list;
}

// What checking one text found: the parser's code and messages, the hints,
// and the table (or failure) of every class the text defines.
struct CheckReport {
  struct ClassCheck {
    std::string className;
    int line = 0;
    ClassTable built;
  };
  std::string name;
  MifRoute::Kind route = MifRoute::Kind{};
  int parseCode = 0;
  std::vector<std::string> parseMessages;
  std::vector<MifHint> hints;
  std::vector<ClassCheck> classes;
  std::vector<std::string> notes;  // warnings about the text as a whole
  bool valid = false;
};

CheckReport collectCheck(const std::string& name, const std::string& raw, MifRoute::Kind route,
                         CollectingTraceSink& collector) {
  CheckReport report;
  report.name = name;
  report.route = route;
  collector.clear();
  ParsedMif parsed = parseText(MifRoute::agentBytes(raw, route));
  report.parseCode = parsed.code;
  report.parseMessages = collector.texts(Trace::Error);
  report.hints = MifHints::find(raw, route);
  report.valid = parsed.code == 0;
  if (parsed.code != 0) return report;

  const MifClassIndex index(parsed.top.get());
  std::map<std::pair<const MifElement*, const MifElement*>, std::pair<std::string, ClassTable>>
      builtScopes;
  for (int line : index.unnamedGroups()) {
    report.notes.push_back("warning: the group at line " + std::to_string(line) +
                           " has no \"class\" variable; no expression can ask for it");
  }
  bool anyClass = false;
  for (const MifClassIndex::GroupClass& groupClass : index.groupClasses()) {
    anyClass = true;
    if (!groupClass.first) {
      report.notes.push_back("warning: the group at line " + std::to_string(groupClass.line) +
                             " repeats class \"" + VisibleText::of(groupClass.className) +
                             "\"; only the first group of a class answers");
      continue;
    }
    // Built below a top that holds only the class's own scopes: the same
    // table as below the whole tree, at the cost of the class alone. A
    // group that names many classes is read once for all of them that
    // share its table scope (or have none).
    const auto scopes = index.scopesOf(groupClass.className);
    const auto earlier = builtScopes.find(scopes);
    ClassTable built;
    if (earlier != builtScopes.end()) {
      built = sameTableFor(earlier->second.second, earlier->second.first, groupClass.className);
    } else {
      const std::unique_ptr<MifElement> classTop = index.classTop(groupClass.className);
      built = buildClassTable(classTop.get(), groupClass.className, collector);
      builtScopes.emplace(
          scopes, std::make_pair(groupClass.className,
                                 sameTableFor(built, groupClass.className, groupClass.className)));
    }
    if (built.code != 0) report.valid = false;
    report.classes.push_back(
        CheckReport::ClassCheck{groupClass.className, groupClass.line, std::move(built)});
  }
  if (!anyClass) report.notes.push_back("warning: the text defines no group with a class");
  return report;
}

void writeCheckJson(const CheckReport& report, std::ostream& out) {
  Json json;
  json["file"] = report.name;
  json["route"] = MifRoute::name(report.route);
  json["valid"] = report.valid;
  addCode(json, report.parseCode);
  json["messages"] = stringArray(report.parseMessages);
  Json classes = Json::array();
  for (const CheckReport::ClassCheck& check : report.classes) {
    const ClassTable& built = check.built;
    Json classReport;
    classReport["class"] = check.className;
    classReport["line"] = check.line;
    addCode(classReport, built.code);
    if (built.code == 0) {
      classReport["type"] = built.isScalar ? "scalar" : "template";
      classReport["rows"] = built.rows;
      classReport["keys"] = stringArray(built.keyNames);
      classReport["attributes"] = stringArray(built.attributeNames);
    }
    classReport["messages"] = stringArray(built.errors);
    classReport["warnings"] = stringArray(built.warnings);
    classes.push_back(std::move(classReport));
  }
  json["classes"] = std::move(classes);
  json["warnings"] = stringArray(report.notes);
  json["hints"] = hintArray(report.hints);
  out << JsonText::dump(json) << "\n";
}

void writeCheckText(const CheckReport& report, std::ostream& out) {
  for (const std::string& message : report.parseMessages) out << VisibleText::of(message) << "\n";
  for (const CheckReport::ClassCheck& check : report.classes) {
    const ClassTable& built = check.built;
    out << "class \"" << VisibleText::of(check.className) << "\" (line " << check.line << "): ";
    if (built.code == 0) {
      out << (built.isScalar ? "scalar" : "template") << " group, " << built.rows << " row(s), key "
          << VisibleText::of(joined(built.keyNames, ",")) << "\n";
    } else {
      out << "error " << ResultCodeTable::describe(built.code) << "\n";
    }
    for (const std::string& message : built.errors) out << "  " << VisibleText::of(message) << "\n";
    for (const std::string& warning : built.warnings)
      out << "  warning: " << VisibleText::of(warning) << "\n";
  }
  for (const std::string& note : report.notes) out << note << "\n";
  for (const MifHint& hint : report.hints) {
    out << report.name << ":" << hint.line << ": hint: " << hint.message << "\n";
  }
  out << report.name << ": " << (report.valid ? "valid" : "invalid") << "\n";
}

// What failed, for standard error: the parse, or each class that has no table.
void writeCheckFailures(const CheckReport& report, std::ostream& err) {
  if (report.parseCode != 0) {
    err << "customscan: mif check: " << report.name << ": "
        << ResultCodeTable::describe(report.parseCode) << "\n";
  }
  for (const CheckReport::ClassCheck& check : report.classes) {
    if (check.built.code == 0) continue;
    err << "customscan: mif check: " << report.name << ": class \""
        << VisibleText::of(check.className) << "\": " << ResultCodeTable::describe(check.built.code)
        << "\n";
  }
}

// Checks one text; the messages of its failures go to err. Returns its exit
// status.
int checkText(const std::string& name, const std::string& raw, MifRoute::Kind route,
              const ToolOptions& options, CollectingTraceSink& collector, std::ostream& out,
              std::ostream& err) {
  const CheckReport report = collectCheck(name, raw, route, collector);
  if (options.json) {
    writeCheckJson(report, out);
  } else {
    writeCheckText(report, out);
  }
  out.flush();
  writeCheckFailures(report, err);
  return report.valid ? kExitOk : kExitCode;
}

// A text that does not parse: the parser's records, then what failed.
int reportParseFailure(const char* subcommand, int code, const InputText& input, MifTrace& trace,
                       std::ostream& err) {
  for (const std::string& message : trace.collector().texts(Trace::Error))
    err << VisibleText::of(message) << "\n";
  err << "customscan: mif " << subcommand << ": " << input.displayName() << ": "
      << ResultCodeTable::describe(code) << "\n";
  return kExitCode;
}

}  // namespace

int MifCommand::check(const ToolOptions& options, MifRoute::Kind route,
                      const std::vector<std::string>& files, std::ostream& out, std::ostream& err) {
  if (std::count_if(files.begin(), files.end(),
                    [](const std::string& file) { return file == "-" || file.empty(); }) > 1) {
    throw UsageError("standard input (-) can be checked only once");
  }
  MifTrace trace(options.traceLevel);
  LinkedPlugin plugin(options, err);
  int worst = kExitOk;
  for (const std::string& file : files) {
    std::string raw;
    std::string name = file.empty() ? std::string("-") : file;
    try {
      InputText input(file);
      name = input.displayName();
      raw = input.readAll();
    } catch (const UsageError& e) {
      if (options.json) {
        Json report;
        report["file"] = name;
        report["valid"] = false;
        report["error"] = "unreadable";
        report["message"] = e.what();
        out << JsonText::dump(report) << "\n";
      }
      out.flush();
      err << "customscan: error: " << e.what() << "\n";
      worst = std::max<int>(worst, kExitUsage);
      continue;
    }
    worst = std::max(worst, checkText(name, raw, route, options, trace.collector(), out, err));
  }
  return worst;
}

int MifCommand::tree(const ToolOptions& options, MifRoute::Kind route, InputText& input,
                     std::ostream& out, std::ostream& err) {
  MifTrace trace(options.traceLevel);
  ParsedMif parsed = parseInput(input, route);
  if (parsed.code != 0) return reportParseFailure("tree", parsed.code, input, trace, err);
  if (options.json) {
    MifTreeOutput::json(parsed.top.get(), out);
  } else {
    MifTreeOutput::text(parsed.top.get(), out);
  }
  return kExitOk;
}

int MifCommand::table(const ToolOptions& options, MifRoute::Kind route, InputText& input,
                      const std::string& className, const std::string& format, std::ostream& out,
                      std::ostream& err) {
  MifTrace trace(options.traceLevel);
  LinkedPlugin plugin(options, err);
  ParsedMif parsed = parseInput(input, route);
  if (parsed.code != 0) return reportParseFailure("table", parsed.code, input, trace, err);
  ClassTable built = buildClassTable(parsed.top.get(), className, trace.collector());
  for (const std::string& warning : built.warnings)
    err << "customscan: warning: " << VisibleText::of(warning) << "\n";
  if (built.code != 0) {
    for (const std::string& message : built.errors) err << VisibleText::of(message) << "\n";
    err << "customscan: mif table: class \"" << VisibleText::of(className)
        << "\": " << ResultCodeTable::describe(built.code) << "\n";
    if (built.code == CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND) {
      err << "customscan: mif table: "
          << knownClasses(MifClassIndex(parsed.top.get()).classNames(), className) << "\n";
    }
    return kExitCode;
  }

  std::vector<String> keys;
  built.table->getKeys(keys);
  const std::vector<std::string>& names = built.attributeNames;
  if (format == "json") {
    // Of two attributes with one name the first answers, as in a query; the
    // columns that do are found once, not per row.
    std::vector<bool> answers(names.size(), false);
    std::unordered_set<std::string> seen;
    for (std::size_t i = 0; i < names.size(); ++i) answers[i] = seen.insert(names[i]).second;
    std::vector<std::string> quotedNames;
    quotedNames.reserve(names.size());
    for (const std::string& name : names) quotedNames.push_back(JsonText::dump(Json(name)));
    std::string line;
    out << "[";
    for (std::size_t k = 0; k < keys.size(); ++k) {
      std::vector<String> values;
      built.table->getRow(keys[k], values);
      line.assign(k > 0 ? "," : "");
      line += "{\"key\":" + JsonText::dump(Json(narrow(keys[k]))) + ",\"values\":{";
      bool first = true;
      for (std::size_t i = 0; i < values.size() && i < names.size(); ++i) {
        if (!answers[i]) continue;
        if (!first) line += ',';
        first = false;
        line += quotedNames[i] + ":" + JsonText::dump(Json(narrow(values[i])));
      }
      line += "}}";
      out << line;
    }
    out << "]\n";
    return kExitOk;
  }

  TableFormatter::Row header = {"key"};
  header.insert(header.end(), names.begin(), names.end());
  std::vector<TableFormatter::Row> rows;
  rows.reserve(keys.size());
  for (const String& key : keys) {
    std::vector<String> values;
    built.table->getRow(key, values);
    TableFormatter::Row row;
    row.reserve(values.size() + 1);
    row.push_back(narrow(key));
    for (const String& value : values) row.push_back(narrow(value));
    rows.push_back(std::move(row));
  }
  out << (format == "csv" ? TableFormatter::csv(header, rows) : TableFormatter::text(header, rows));
  return kExitOk;
}

}  // namespace CustomScanTool
