// The whole MIF road after the text is read: widen, parse, build the table of
// the class named on the input's first line, query it, free everything. The
// outcome is 0 or one of the parser's and table builder's codes; a built
// table answers consistently for every key it lists. The text is also parsed
// a line at a time from its narrow bytes, as the cache does, and its table
// taken from that tree: both roads must agree in every respect.
//   line 1   the class to ask for ("!error " before it sets
//            onDuplicatedKeys=error)
//   the rest the MIF text

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "CustomScanConstants.h"
#include "FuzzSupport.h"
#include "MifTableText.h"
#include "base/Memory.h"
#include "base/String.h"
#include "base/WideText.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"
#include "sdk/Configuration.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;

namespace {

constexpr std::size_t kMaxInput = 256 * 1024;

bool isTableCode(TErrorCode code) {
  for (TErrorCode c :
       {CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND, CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED,
        CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED, CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE,
        CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE,
        CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND,
        CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND,
        CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED,
        CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND, CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY}) {
    if (code == c) return true;
  }
  return false;
}

// Every element's dump line and line number, depth first, with its depth.
std::wstring treeText(MifElement* top) {
  std::wstring out;
  std::vector<std::pair<MifElement*, std::size_t>> pending;
  if (top != nullptr) pending.emplace_back(top, 0);
  while (!pending.empty()) {
    auto current = pending.back();
    pending.pop_back();
    String line;
    current.first->appendDumpBuffer(line);
    out += std::to_wstring(current.second) + L" " + std::to_wstring(current.first->m_LineNumber) +
           L" " + toWideString(line) + L"\n";
    const auto& children = current.first->m_Children;
    for (auto it = children.rbegin(); it != children.rend(); ++it)
      pending.emplace_back(*it, current.second + 1);
  }
  return out;
}

// Every key and its row; nothing for no table.
std::vector<std::wstring> tableText(const MifTable* table) {
  return table == nullptr ? std::vector<std::wstring>() : cstest::tableText(*table);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  bytes.resize(std::strlen(bytes.c_str()));
  std::size_t eol = bytes.find('\n');
  std::string classLine = eol == std::string::npos ? bytes : bytes.substr(0, eol);
  const std::string text = eol == std::string::npos ? std::string() : bytes.substr(eol + 1);

  bool errorMode = classLine.rfind("!error ", 0) == 0;
  if (errorMode) classLine.erase(0, 7);
  PluginSDK::Configuration* configuration = nullptr;
  PluginSDK::Configuration::get(CUSTOM_SCAN_PLUGIN_NAME, configuration);
  configuration->setProperty(
      PluginSDK::String(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS),
      PluginSDK::String(errorMode ? CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR
                                  : CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN));

  wchar_t* wide = i_mbstowcs(text.c_str());
  CSFUZZ_CHECK(wide != nullptr, "i_mbstowcs");
  MifParser parser;
  MifElement* top = nullptr;
  const TErrorCode parsed = parser.parse(wide, top);
  zelm_free(wide);
  CSFUZZ_CHECK(parsed == 0 || parsed == CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF,
               csfuzz::escape(bytes));
  CSFUZZ_CHECK((parsed == 0) == (top != nullptr), csfuzz::escape(bytes));

  MifParser lineParser;
  MifElement* lineTop = nullptr;
  const TErrorCode lineParsed = lineParser.parseNarrow(text.c_str(), lineTop);
  CSFUZZ_CHECK(lineParsed == parsed, csfuzz::escape(bytes));
  CSFUZZ_CHECK(lineParser.getLineNumber() == parser.getLineNumber(), csfuzz::escape(bytes));
  CSFUZZ_CHECK(treeText(lineTop) == treeText(top), csfuzz::escape(bytes));
  if (parsed != 0) return 0;

  const String className(classLine.c_str());
  MifTable* table = nullptr;
  const TErrorCode built = MifTable::getMifTable(top, className, table);
  delete top;
  CSFUZZ_CHECK(built == 0 || isTableCode(built),
               csfuzz::escape(bytes) + " code " + std::to_string(built));
  CSFUZZ_CHECK((built == 0) == (table != nullptr), csfuzz::escape(bytes));

  MifTable* taken = nullptr;
  const TErrorCode takenCode = MifTable::takeMifTable(lineTop, className, taken);
  delete lineTop;
  CSFUZZ_CHECK(takenCode == built, csfuzz::escape(bytes));
  CSFUZZ_CHECK(tableText(taken) == tableText(table), csfuzz::escape(bytes));
  delete taken;
  if (table == nullptr) return 0;

  std::vector<String> keys;
  CSFUZZ_CHECK(table->getKeys(keys) == 0, csfuzz::escape(bytes));
  CSFUZZ_CHECK(keys.size() == table->getRowNumber(), csfuzz::escape(bytes));
  std::size_t width = 0;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (i > 0) CSFUZZ_CHECK(keys[i - 1].compareTo(keys[i], 0) < 0, csfuzz::escape(bytes));
    bool exists = false;
    CSFUZZ_CHECK(table->rowExists(keys[i], exists) == 0 && exists, csfuzz::escape(bytes));
    std::vector<String> row;
    CSFUZZ_CHECK(table->getRow(keys[i], row) == 0, csfuzz::escape(bytes));
    if (i == 0) width = row.size();
    CSFUZZ_CHECK(row.size() == width, csfuzz::escape(bytes));
    String value;
    CSFUZZ_CHECK(table->getField(keys[i], String(L"\xD800"), value) ==
                     CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND,
                 csfuzz::escape(bytes));
  }
  bool exists = true;
  table->rowExists(String(L"\xD800"), exists);
  CSFUZZ_CHECK(!exists, csfuzz::escape(bytes));
  delete table;
  return 0;
}
