#include "MifCommand.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "CollectingTraceSink.h"
#include "CustomScanPlugin.h"
#include "JsonText.h"
#include "ResultCodeTable.h"
#include "StderrTraceSink.h"
#include "TableFormatter.h"
#include "UsageError.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifGroup.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"
#include "mifParser/RowElement.h"
#include "mifParser/VariableElement.h"
#include "sdk/Configuration.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifGroup;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;
using CustomScanPlugin::RowElement;
using CustomScanPlugin::VariableElement;
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

ParsedMif parseInput(InputText& input) {
  // The same reading as the plug-in's cache: a zero byte ends the text.
  std::string bytes = input.readAll();
  ParsedMif parsed;
  MifParser parser;
  MifElement* top = nullptr;
  parsed.code = parser.parseNarrow(bytes.c_str(), top);
  parsed.top.reset(top);
  return parsed;
}

const VariableElement* asVariable(const MifElement* element) {
  if (element == nullptr || element->getType() != MifElement::Variable) return nullptr;
  return dynamic_cast<const VariableElement*>(element);
}

// A group scope and one class it answers for, in document order.
struct GroupClass {
  std::string className;
  int line;
};

// A tree may be arbitrarily deep (the text comes from a program), so the walks
// below keep their own stack instead of recursing.
struct Visit {
  const MifElement* element;
  int depth;
};

// Calls visit(element, depth) for every element, in document order (pre-order).
template <typename Visitor>
void walk(const MifElement* top, Visitor visit) {
  std::vector<Visit> stack;
  if (top != nullptr) stack.push_back(Visit{top, 0});
  while (!stack.empty()) {
    Visit current = stack.back();
    stack.pop_back();
    visit(current.element, current.depth);
    for (unsigned int i = current.element->childrenSize(); i > 0; --i) {
      const MifElement* child = current.element->getChildAt(i - 1);
      if (child != nullptr) stack.push_back(Visit{child, current.depth + 1});
    }
  }
}

void findGroupClasses(const MifElement* top, std::vector<GroupClass>& found,
                      std::vector<int>& unnamed) {
  walk(top, [&](const MifElement* element, int) {
    if (element->getType() != MifElement::Scope ||
        element->m_Name.compareTo(String(L"group"), 0) != 0)
      return;
    bool named = false;
    for (unsigned int i = 0; i < element->childrenSize(); ++i) {
      const VariableElement* variable = asVariable(element->getChildAt(i));
      if (variable == nullptr || variable->m_Name.compareTo(String(L"class"), 1) != 0) continue;
      found.push_back(GroupClass{narrow(variable->m_Value), element->m_LineNumber});
      named = true;
    }
    if (!named) unnamed.push_back(element->m_LineNumber);
  });
}

std::string dumpLine(const MifElement* element) {
  String line;
  const_cast<MifElement*>(element)->appendDumpBuffer(line);
  std::string text = narrow(line);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::string printTree(const MifElement* top) {
  int lastLine = 0;
  walk(top, [&](const MifElement* element, int) {
    lastLine = std::max(lastLine, element->m_LineNumber);
  });
  const std::size_t numberWidth = std::to_string(lastLine).size();
  std::string out;
  walk(top, [&](const MifElement* element, int depth) {
    std::string number = std::to_string(element->m_LineNumber);
    out.append(numberWidth - std::min(numberWidth, number.size()), ' ');
    out += number + "  " + std::string(2 * static_cast<std::size_t>(depth), ' ') +
           dumpLine(element) + "\n";
  });
  return out;
}

int treeDepth(const MifElement* top) {
  int deepest = 0;
  walk(top, [&](const MifElement*, int depth) { deepest = std::max(deepest, depth); });
  return deepest;
}

// Nested JSON is written by a recursive routine; deeper trees are refused.
const int kMaxJsonTreeDepth = 1000;

Json treeJson(const MifElement* element) {
  Json node;
  if (element == nullptr) return node;
  switch (element->getType()) {
    case MifElement::Scope: {
      node["type"] = "scope";
      node["name"] = narrow(element->m_Name);
      node["line"] = element->m_LineNumber;
      Json children = Json::array();
      for (unsigned int i = 0; i < element->childrenSize(); ++i)
        children.push_back(treeJson(element->getChildAt(i)));
      node["children"] = children;
      break;
    }
    case MifElement::Variable: {
      const VariableElement* variable = dynamic_cast<const VariableElement*>(element);
      node["type"] = "variable";
      node["name"] = narrow(element->m_Name);
      node["value"] = variable != nullptr ? narrow(variable->m_Value) : std::string();
      node["line"] = element->m_LineNumber;
      break;
    }
    case MifElement::Row: {
      const RowElement* row = dynamic_cast<const RowElement*>(element);
      node["type"] = "row";
      node["line"] = element->m_LineNumber;
      Json values = Json::array();
      if (row != nullptr) {
        for (const RowElement::RowElementStruct& item : row->m_Values) {
          Json value;
          value["value"] = narrow(item.value);
          value["empty"] = item.isEmpty;
          values.push_back(value);
        }
      }
      node["values"] = values;
      break;
    }
  }
  return node;
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

// The plug-in object of the linked core, so that --plugin-property reaches
// the table code through the same host configuration store as in an agent.
class LinkedPlugin {
 public:
  LinkedPlugin(const ToolOptions& options, std::ostream& err) {
    m_Plugin.initializePlugin();
    for (const NameValue& property : options.parsedPluginProperties()) {
      std::wstring name = hostDecodeNarrow(property.name.data(), property.name.size());
      std::wstring value = hostDecodeNarrow(property.value.data(), property.value.size());
      m_Plugin.setProperty(name.c_str(), value.c_str());
      PluginSDK::Configuration* configuration = nullptr;
      PluginSDK::String stored;
      if (PluginSDK::Configuration::get(m_Plugin.getName(), configuration) != 0 ||
          configuration == nullptr ||
          !configuration->getProperty(PluginSDK::String(name.c_str()), stored) ||
          stored.wstr() != value) {
        err << "customscan: warning: the plug-in did not accept the plug-in property "
            << property.name << "=" << property.value << " (--trace=2 shows its reason)\n";
      }
    }
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
  std::vector<std::string> attributeNames;
  std::vector<std::string> keyNames;
  bool isScalar = false;
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

ClassTable buildClassTable(const MifElement* top, const std::string& className,
                           CollectingTraceSink& collector) {
  ClassTable result;
  collector.clear();
  MifTable* table = nullptr;
  result.code = MifTable::getMifTable(top, String(className.c_str()), table);
  result.table.reset(table);
  result.errors = collector.texts(Trace::Error);
  result.warnings = collector.texts(Trace::Warning);
  if (result.code != 0) return result;
  // The table does not show its attribute names; its group does. It is built
  // a second time, with the trace off, as it cannot fail where the table did not.
  TraceSinkScope quiet(nullptr);
  MifGroup* group = nullptr;
  if (MifGroup::getMifGroup(top, String(className.c_str()), group) == 0 && group != nullptr) {
    std::vector<String> names;
    group->getAttributeNames(names);
    for (const String& name : names) result.attributeNames.push_back(narrow(name));
    std::vector<String> keys;
    group->getKeys(keys);
    for (const String& key : keys) result.keyNames.push_back(narrow(key));
    result.isScalar = group->isScalar();
    delete group;
  }
  return result;
}

std::string joined(const std::vector<std::string>& items, const std::string& separator) {
  std::string out;
  for (std::size_t i = 0; i < items.size(); ++i)
    out += (i > 0 ? separator : std::string()) + items[i];
  return out;
}

}  // namespace

int MifCommand::check(const ToolOptions& options, InputText& input, std::ostream& out,
                      std::ostream& err) {
  MifTrace trace(options.traceLevel);
  LinkedPlugin plugin(options, err);
  ParsedMif parsed = parseInput(input);
  std::vector<std::string> parseMessages = trace.collector().texts(Trace::Error);
  const std::string& name = input.displayName();

  Json report;
  report["file"] = name;
  if (parsed.code != 0) {
    report["valid"] = false;
    addCode(report, parsed.code);
    report["messages"] = stringArray(parseMessages);
    report["classes"] = Json::array();
    if (options.json) {
      out << JsonText::dump(report) << "\n";
    } else {
      for (const std::string& message : parseMessages) out << message << "\n";
      out << name << ": invalid\n";
    }
    out.flush();
    err << "customscan: mif check: " << name << ": " << ResultCodeTable::describe(parsed.code)
        << "\n";
    return kExitCode;
  }

  std::vector<GroupClass> classes;
  std::vector<int> unnamedGroups;
  findGroupClasses(parsed.top.get(), classes, unnamedGroups);

  bool valid = true;
  Json classReports = Json::array();
  std::vector<std::string> lines;
  std::vector<std::string> notes;
  notes.reserve(unnamedGroups.size());
  for (int line : unnamedGroups) {
    notes.push_back("warning: the group at line " + std::to_string(line) +
                    " has no \"class\" variable; no expression can ask for it");
  }
  std::vector<std::string> seen;
  std::vector<std::string> failures;
  for (const GroupClass& groupClass : classes) {
    bool repeated = false;
    for (const std::string& s : seen) repeated = repeated || s == groupClass.className;
    if (repeated) {
      notes.push_back("warning: the group at line " + std::to_string(groupClass.line) +
                      " repeats class \"" + groupClass.className +
                      "\"; only the first group of a class answers");
      continue;
    }
    seen.push_back(groupClass.className);
    ClassTable built = buildClassTable(parsed.top.get(), groupClass.className, trace.collector());
    Json classReport;
    classReport["class"] = groupClass.className;
    classReport["line"] = groupClass.line;
    addCode(classReport, built.code);
    std::string summary =
        "class \"" + groupClass.className + "\" (line " + std::to_string(groupClass.line) + "): ";
    if (built.code == 0) {
      classReport["type"] = built.isScalar ? "scalar" : "template";
      classReport["rows"] = built.table->getRowNumber();
      classReport["keys"] = stringArray(built.keyNames);
      classReport["attributes"] = stringArray(built.attributeNames);
      summary += std::string(built.isScalar ? "scalar" : "template") + " group, " +
                 std::to_string(built.table->getRowNumber()) + " row(s), key " +
                 joined(built.keyNames, ",");
    } else {
      valid = false;
      summary += "error " + ResultCodeTable::describe(built.code);
      failures.push_back("customscan: mif check: " + name + ": class \"" + groupClass.className +
                         "\": " + ResultCodeTable::describe(built.code));
    }
    classReport["messages"] = stringArray(built.errors);
    classReport["warnings"] = stringArray(built.warnings);
    classReports.push_back(classReport);
    lines.push_back(summary);
    for (const std::string& message : built.errors) lines.push_back("  " + message);
    for (const std::string& warning : built.warnings) lines.push_back("  warning: " + warning);
  }

  report["valid"] = valid;
  addCode(report, 0);
  report["messages"] = stringArray(parseMessages);
  report["classes"] = classReports;
  report["warnings"] = stringArray(notes);
  if (options.json) {
    out << JsonText::dump(report) << "\n";
  } else {
    for (const std::string& line : lines) out << line << "\n";
    for (const std::string& note : notes) out << note << "\n";
    if (classes.empty()) out << "warning: the text defines no group with a class\n";
    out << name << ": " << (valid ? "valid" : "invalid") << "\n";
  }
  out.flush();
  for (const std::string& failure : failures) err << failure << "\n";
  return valid ? kExitOk : kExitCode;
}

int MifCommand::tree(const ToolOptions& options, InputText& input, std::ostream& out,
                     std::ostream& err) {
  MifTrace trace(options.traceLevel);
  ParsedMif parsed = parseInput(input);
  if (parsed.code != 0) {
    for (const std::string& message : trace.collector().texts(Trace::Error)) err << message << "\n";
    err << "customscan: mif tree: " << input.displayName() << ": "
        << ResultCodeTable::describe(parsed.code) << "\n";
    return kExitCode;
  }
  if (!options.json) {
    out << printTree(parsed.top.get());
    return kExitOk;
  }
  int depth = treeDepth(parsed.top.get());
  if (depth > kMaxJsonTreeDepth) {
    throw UsageError("the tree is " + std::to_string(depth) +
                     " levels deep; --json writes at most " + std::to_string(kMaxJsonTreeDepth));
  }
  out << JsonText::dump(treeJson(parsed.top.get())) << "\n";
  return kExitOk;
}

int MifCommand::table(const ToolOptions& options, InputText& input, const std::string& className,
                      const std::string& format, std::ostream& out, std::ostream& err) {
  MifTrace trace(options.traceLevel);
  LinkedPlugin plugin(options, err);
  ParsedMif parsed = parseInput(input);
  if (parsed.code != 0) {
    for (const std::string& message : trace.collector().texts(Trace::Error)) err << message << "\n";
    err << "customscan: mif table: " << input.displayName() << ": "
        << ResultCodeTable::describe(parsed.code) << "\n";
    return kExitCode;
  }
  ClassTable built = buildClassTable(parsed.top.get(), className, trace.collector());
  for (const std::string& warning : built.warnings)
    err << "customscan: warning: " << warning << "\n";
  if (built.code != 0) {
    for (const std::string& message : built.errors) err << message << "\n";
    err << "customscan: mif table: class \"" << className
        << "\": " << ResultCodeTable::describe(built.code) << "\n";
    return kExitCode;
  }

  std::vector<String> keys;
  built.table->getKeys(keys);
  TableFormatter::Row header = {"key"};
  header.insert(header.end(), built.attributeNames.begin(), built.attributeNames.end());
  std::vector<TableFormatter::Row> rows;
  Json array = Json::array();
  for (const String& key : keys) {
    std::vector<String> values;
    built.table->getRow(key, values);
    TableFormatter::Row row = {narrow(key)};
    Json fields = Json::object();
    for (std::size_t i = 0; i < values.size(); ++i) {
      row.push_back(narrow(values[i]));
      // Of two attributes with one name, the first answers, as in a query.
      if (i < built.attributeNames.size() && !fields.contains(built.attributeNames[i])) {
        fields[built.attributeNames[i]] = narrow(values[i]);
      }
    }
    rows.push_back(row);
    Json object;
    object["key"] = narrow(key);
    object["values"] = fields;
    array.push_back(object);
  }
  if (format == "json") {
    out << JsonText::dump(array) << "\n";
  } else if (format == "csv") {
    out << TableFormatter::csv(header, rows);
  } else {
    out << TableFormatter::text(header, rows);
  }
  return kExitOk;
}

}  // namespace CustomScanTool
