#include "QueryHints.h"

#include <memory>

#include "CustomScanConstants.h"
#include "MifClassIndex.h"
#include "NearNames.h"
#include "StderrTraceSink.h"
#include "base/String.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifGroup.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifGroup;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;

namespace CustomScanTool {

namespace {

// Names listed in a hint beyond the near ones.
constexpr std::size_t kListed = 10;

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// "\"a\", \"b\"", and " and N more" past max.
std::string listed(const std::vector<std::string>& names, std::size_t max) {
  std::string out;
  for (std::size_t i = 0; i < names.size() && i < max; ++i)
    out += (i > 0 ? ", " : "") + quoted(names[i]);
  if (names.size() > max) out += " and " + std::to_string(names.size() - max) + " more";
  return out;
}

std::vector<std::string> narrowAll(const std::vector<String>& texts) {
  std::vector<std::string> out;
  out.reserve(texts.size());
  for (const String& text : texts) out.push_back(text.toNarrow());
  return out;
}

QueryHint unknownClass(const MifElement* top, const std::string& className) {
  QueryHint hint;
  const std::vector<std::string> classes = MifClassIndex(top).classNames();
  hint.nearNames = NearNames::find(className, classes);
  hint.reason = "no group of class " + quoted(className) + " in the scanner's MIF text";
  if (!hint.nearNames.empty())
    hint.reason += "; near: " + listed(hint.nearNames, hint.nearNames.size());
  hint.reason +=
      classes.empty() ? "; it defines no class" : "; its classes: " + listed(classes, kListed);
  return hint;
}

QueryHint unknownField(const MifElement* top, const std::string& className,
                       const std::string& field) {
  QueryHint hint;
  MifGroup* found = nullptr;
  if (MifGroup::getMifGroup(top, String(className.c_str()), found) != 0 || found == nullptr)
    return hint;
  std::unique_ptr<MifGroup> group(found);
  std::vector<String> names;
  group->getAttributeNames(names);
  const std::vector<std::string> fields = narrowAll(names);
  hint.nearNames = NearNames::find(field, fields);
  hint.reason = "no field " + quoted(field) + " in class " + quoted(className);
  if (!hint.nearNames.empty())
    hint.reason += "; near: " + listed(hint.nearNames, hint.nearNames.size());
  hint.reason += "; its fields (attribute names, matched exactly): " + listed(fields, kListed);
  return hint;
}

QueryHint missingRow(const MifElement* top, const std::string& className, const std::string& key) {
  QueryHint hint;
  MifTable* built = nullptr;
  if (MifTable::getMifTable(top, String(className.c_str()), built) != 0 || built == nullptr)
    return hint;
  std::unique_ptr<MifTable> table(built);
  std::vector<String> keyTexts;
  table->getKeys(keyTexts);
  const std::vector<std::string> keys = narrowAll(keyTexts);
  hint.nearNames = NearNames::find(key, keys);
  hint.reason = "no row with key " + quoted(key) + " in class " + quoted(className) + " (" +
                std::to_string(keys.size()) + " row" + (keys.size() == 1 ? "" : "s");
  MifGroup* found = nullptr;
  if (MifGroup::getMifGroup(top, String(className.c_str()), found) == 0 && found != nullptr) {
    std::unique_ptr<MifGroup> group(found);
    std::vector<String> keyNames;
    group->getKeys(keyNames);
    std::string by;
    for (const String& name : keyNames) by += (by.empty() ? "" : "#") + name.toNarrow();
    if (!by.empty()) hint.reason += ", keyed by " + by;
  }
  hint.reason += ")";
  if (!hint.nearNames.empty()) {
    hint.reason += "; near: " + listed(hint.nearNames, hint.nearNames.size());
  } else if (!keys.empty()) {
    hint.reason += "; its keys include " + listed(keys, 5);
  }
  return hint;
}

}  // namespace

QueryHint QueryHints::explain(int code, const std::string& text, const std::string& className,
                              const std::string& key, const std::string& field) {
  if (code != CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND &&
      code != CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND &&
      code != CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND) {
    return QueryHint();
  }
  // The plug-in has traced its own view of this text already.
  TraceSinkScope quiet(nullptr);
  MifParser parser;
  MifElement* parsed = nullptr;
  if (parser.parseNarrow(text.c_str(), parsed) != 0 || parsed == nullptr) {
    delete parsed;
    return QueryHint();
  }
  std::unique_ptr<MifElement> top(parsed);
  if (code == CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND) return unknownClass(top.get(), className);
  if (code == CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND)
    return unknownField(top.get(), className, field);
  return missingRow(top.get(), className, key);
}

std::string QueryHints::fromStandardOutput(const std::string& bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (char c : bytes) {
    if (c != '\0' && c != '\r') text.push_back(c);
  }
  return text;
}

std::string QueryHints::fromOutputFile(const std::string& bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

}  // namespace CustomScanTool
