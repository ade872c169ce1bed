#include "mifParser/MifTable.h"

#include <iterator>
#include <memory>
#include <typeinfo>
#include <utility>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "mifParser/MifUtil.h"
#include "mifParser/RowElement.h"
#include "sdk/Configuration.h"
#include "sdk/SdkString.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/MifTable";
constexpr char kGetMifTableLabel[] = "MifTable::getMifTable(MifElement *, String &, MifTable *&)";
constexpr char kParseRowsLabel[] = "MifTable::parseRows(unsigned int)";
const wchar_t kTableScopeName[] = L"table";
const wchar_t kKeySeparator[] = L"#";
}  // namespace

namespace CustomScanPlugin {

TErrorCode MifTable::getMifTable(const MifElement* top, const String& className, MifTable*& table) {
  return build(top, className, false, table);
}

TErrorCode MifTable::takeMifTable(MifElement* top, const String& className, MifTable*& table) {
  return build(top, className, true, table);
}

TErrorCode MifTable::build(const MifElement* top, const String& className, bool takeValues,
                           MifTable*& table) {
  CS_TRACE_SCOPE(kGetMifTableLabel);
  table = nullptr;
  if (top == nullptr) {
    CS_TRACE(Trace::Error, kGetMifTableLabel) << "Invalid input parameters." << Trace::End;
    return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  }
  // A half-built table goes if building it fails or runs out of room.
  std::unique_ptr<MifTable> made(new MifTable(className));
  made->m_TakeValues = takeValues;
  const TErrorCode rc = made->initialize(top);
  if (rc != 0) {
    CS_TRACE(Trace::Error, kGetMifTableLabel)
        << "Failure initializing the MIF table (class = " << className << ")" << Trace::End;
    return rc;
  }
  table = made.release();
  return 0;
}

MifTable::MifTable(const String& className)
    : m_ClassName(className), m_TableElement(nullptr), m_MifGroup(nullptr) {}

MifTable::~MifTable() {
  delete m_MifGroup;
  m_MifGroup = nullptr;
}

TErrorCode MifTable::initialize(const MifElement* i_TopElement) {
  CS_ASSERT(i_TopElement != 0);
  TErrorCode rc = MifGroup::getMifGroup(i_TopElement, m_ClassName, m_MifGroup);
  if (rc == 0) {
    CS_ASSERT(m_MifGroup->isScalar() || m_MifGroup->isTemplate());
    rc = m_MifGroup->isScalar() ? parseScalarTable() : parseTemplateTable(i_TopElement);
    if (rc == 0) return 0;
  }
  m_Keys.clear();
  m_AttributeNames.clear();
  m_Rows.clear();
  delete m_MifGroup;
  m_MifGroup = nullptr;
  return rc;
}

TErrorCode MifTable::parseScalarTable() {
  TErrorCode rc = m_MifGroup->getKeys(m_Keys);
  if (rc != 0) return rc;
  rc = m_MifGroup->getAttributeNames(m_AttributeNames);
  if (rc != 0) return rc;
  std::vector<String> values;
  rc = m_MifGroup->getAttributeValues(values);
  if (rc != 0) return rc;
  // The key is the first value itself; the group's key is the first
  // attribute's name, so the two agree.
  String key = values.front();
  m_Rows.emplace(std::move(key), std::move(values));
  return 0;
}

TErrorCode MifTable::parseTemplateTable(const MifElement* topElement) {
  // The table belongs to its template through the class value alone. With a
  // non-null top the lookup cannot fail; only the element found counts.
  MifUtil::getScopeElement(String(kTableScopeName), m_ClassName, topElement, m_TableElement);
  if (m_TableElement == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND;
  TErrorCode rc = m_MifGroup->getKeys(m_Keys);
  if (rc != 0) return rc;
  rc = m_MifGroup->getAttributeNames(m_AttributeNames);
  if (rc != 0) return rc;
  rc = m_MifGroup->getAttributeValues(m_DefaultRowValues);
  if (rc != 0) return rc;
  return parseRows(m_MifGroup->getAttributeNumber());
}

TErrorCode MifTable::parseRows(unsigned int attributeCount) {
  CS_TRACE_SCOPE(kParseRowsLabel);
  m_Rows.clear();
  CS_ASSERT(m_TableElement != 0);

  // The policy is the plug-in's, read afresh for every table built.
  PluginSDK::Configuration* configuration = nullptr;
  PluginSDK::Configuration::get(CUSTOM_SCAN_PLUGIN_NAME, configuration);
  CS_ASSERT(configuration != 0);
  PluginSDK::String policy;
  const bool failOnDuplicates =
      configuration->getProperty(PluginSDK::String(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS),
                                 policy) &&
      policy == CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR;

  m_KeyColumns = findKeyColumns();
  TErrorCode rc = 0;
  RowMap::iterator last = m_Rows.end();
  const unsigned int count = m_TableElement->childrenSize();
  for (unsigned int i = 0; i < count && rc == 0; ++i) {
    const MifElement* element = m_TableElement->getChildAt(i);
    CS_ASSERT(element != 0);
    if (element->getType() != MifElement::Row) continue;
    // Only a row element says it is a row. The exact type is checked first,
    // as it is cheap; the cast that follows is then known to be right.
    CS_ASSERT(typeid(*element) == typeid(RowElement) ||
              dynamic_cast<const RowElement*>(element) != 0);
    const RowElement* mifRow = static_cast<const RowElement*>(element);
    const std::vector<RowElement::RowElementStruct>& rowElements = mifRow->m_Values;
    if (rowElements.size() != attributeCount) {
      rc = CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED;
      break;
    }
    CS_ASSERT(rowElements.size() == m_DefaultRowValues.size());
    std::vector<String> row;
    row.reserve(rowElements.size());
    // The tree was made with new and not as const; a tree that is given up
    // hands its values over.
    RowElement* takenRow = m_TakeValues ? const_cast<RowElement*>(mifRow) : nullptr;
    for (std::size_t j = 0; j < rowElements.size(); ++j) {
      if (rowElements[j].isEmpty) {
        row.push_back(m_DefaultRowValues[j]);
      } else if (takenRow != nullptr) {
        row.push_back(std::move(takenRow->m_Values[j].value));
      } else {
        row.push_back(rowElements[j].value);
      }
    }
    if (takenRow != nullptr) {
      // Nothing reads a taken row again: it goes at once, so that the tree
      // shrinks as the table grows instead of both being whole at the end.
      // Its slot is nulled for the deletion of the tree.
      const_cast<MifElement*>(m_TableElement)->m_Children[i] = nullptr;
      delete takenRow;
    }
    String key;
    getKey(row, key);
    // Scanners mostly write their rows in key order, or in long runs of it,
    // so the place right after the row stored last is offered first: a key
    // that belongs there goes in without a search (one comparison at the end
    // of the map, two elsewhere), any other is searched for. A key already
    // present inserts nothing: the first row of a key is the one kept.
    const std::size_t before = m_Rows.size();
    // The place after the last row of the map is its end, known without
    // stepping there: the step from the rightmost row climbs the whole tree.
    RowMap::iterator hint = m_Rows.end();
    if (last != hint && last != std::prev(hint)) hint = std::next(last);
    const RowMap::iterator at = m_Rows.emplace_hint(hint, std::move(key), std::move(row));
    if (m_Rows.size() != before) {
      last = at;
      continue;
    }
    // The key stored is the same text as the one refused.
    if (failOnDuplicates) {
      CS_TRACE(Trace::Error, kParseRowsLabel)
          << "Duplicated row with key " << at->first << " found" << Trace::End;
      rc = CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY;
    } else {
      // The first row of a key wins.
      CS_TRACE(Trace::Warning, kParseRowsLabel)
          << "Duplicated row with key " << at->first << " found, skipping row" << Trace::End;
    }
  }
  if (rc != 0) m_Rows.clear();
  return rc;
}

std::vector<std::size_t> MifTable::findKeyColumns() const {
  std::vector<std::size_t> columns;
  columns.reserve(m_Keys.size());
  for (const String& keyName : m_Keys) {
    for (std::size_t j = 0; j < m_AttributeNames.size(); ++j) {
      if (m_AttributeNames[j].compareTo(keyName, 0) != 0) continue;
      columns.push_back(j);
      break;
    }
  }
  return columns;
}

TErrorCode MifTable::getKey(const std::vector<String>& i_Row, String& key) const {
  CS_ASSERT(i_Row.size() == m_AttributeNames.size());
  // The common single column is its value as it is.
  if (m_KeyColumns.size() == 1) {
    key = i_Row[m_KeyColumns.front()];
    return 0;
  }
  key = String();
  for (const std::size_t column : m_KeyColumns) {
    // No separator after an empty prefix: kept so, keys depend on it.
    if (key.length() != 0) key.concat(kKeySeparator);
    key.concat(i_Row[column]);
  }
  return 0;
}

// ----------------------------------------------------------------- queries

TErrorCode MifTable::getField(const String& code, const String& field, String& value) const {
  const RowMap::const_iterator row = m_Rows.find(code);
  if (row == m_Rows.end()) return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND;
  for (std::size_t j = 0; j < m_AttributeNames.size(); ++j) {
    if (field.compareTo(m_AttributeNames[j], 0) != 0) continue;
    if (j >= row->second.size()) break;
    value = row->second[j];
    return 0;
  }
  return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND;
}

TErrorCode MifTable::rowExists(const String& code, bool& exists) const {
  exists = m_Rows.find(code) != m_Rows.end();
  return 0;
}

TErrorCode MifTable::getRow(const String& code, std::vector<String>& row) const {
  const RowMap::const_iterator found = m_Rows.find(code);
  if (found == m_Rows.end()) return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND;
  row = found->second;
  return 0;
}

TErrorCode MifTable::getKeys(std::vector<String>& keys) const {
  keys.clear();
  keys.reserve(m_Rows.size());
  for (const RowMap::value_type& entry : m_Rows) keys.push_back(entry.first);
  return 0;
}

}  // namespace CustomScanPlugin
