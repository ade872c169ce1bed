#pragma once

#include <map>
#include <vector>

#include "base/String.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifGroup.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

// The keyed rows of one MIF class, built once from a parsed tree and then
// only read. A scalar class gives one row; a template class gives the rows of
// the "table" scope of the same class, a blank item taking the template's
// value. The built table needs the tree no more.
class MifTable {
 public:
  // Builds the table of className from the tree below top. On success the
  // caller owns *table and deletes it; on any failure table is null. Returns
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null top, or the code of the step
  // that failed (group lookup, attributes, table scope, rows, duplicate keys).
  static TErrorCode getMifTable(const MifElement* top, const String& className, MifTable*& table);
  // The same for a tree that the caller deletes right afterwards without
  // reading it again: row values are moved out of the tree instead of being
  // copied, and each row element of the class's table scope is deleted once
  // its values are taken (its slot among the scope's children is nulled, which
  // the deletion of the tree passes over). The table, the codes and the trace
  // records are those of getMifTable.
  static TErrorCode takeMifTable(MifElement* top, const String& className, MifTable*& table);

  explicit MifTable(const String& className);
  MifTable(const MifTable&) = delete;
  MifTable& operator=(const MifTable&) = delete;
  virtual ~MifTable();

  // Reads the group of the class and builds its rows. On failure nothing of a
  // partial table is kept.
  TErrorCode initialize(const MifElement* i_TopElement);

  // value = the field named field of the row keyed code. Fields are matched by
  // attribute name, exactly; the first of equal names answers.
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND or
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND leave value untouched.
  TErrorCode getField(const String& code, const String& field, String& value) const;
  // exists = whether a row has exactly the key code. Always 0.
  TErrorCode rowExists(const String& code, bool& exists) const;
  // keys = every row key, in the map's order (ascending code points). Always 0.
  TErrorCode getKeys(std::vector<String>& keys) const;

  // Not used by the operands; for the tool and the tests.
  // row = a copy of the row keyed code, in attribute order;
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND leaves row untouched.
  TErrorCode getRow(const String& code, std::vector<String>& row) const;
  unsigned int getRowNumber() const { return static_cast<unsigned int>(m_Rows.size()); }
  // What the built table holds of its group: the attribute names in document
  // order, the key attributes' names in key order, and the group's kind.
  const std::vector<String>& attributeNames() const { return m_AttributeNames; }
  const std::vector<String>& keyNames() const { return m_Keys; }
  bool isScalar() const { return m_MifGroup != nullptr && m_MifGroup->isScalar(); }

 private:
  // Keys in the order of String::compareTo(other, 0).
  struct KeyLess {
    bool operator()(const String& a, const String& b) const { return a.compareTo(b, 0) < 0; }
  };
  typedef std::map<String, std::vector<String>, KeyLess> RowMap;

  static TErrorCode build(const MifElement* top, const String& className, bool takeValues,
                          MifTable*& table);
  TErrorCode parseScalarTable();
  TErrorCode parseTemplateTable(const MifElement* topElement);
  TErrorCode parseRows(unsigned int attributeCount);
  // The column of each key attribute, in key order: the first attribute of
  // the key's name. A name that no attribute has gives no column.
  std::vector<std::size_t> findKeyColumns() const;
  // The values of the key columns (m_KeyColumns), "#" between them but never
  // after an empty prefix. Cannot fail.
  TErrorCode getKey(const std::vector<String>& i_Row, String& key) const;

  String m_ClassName;
  const MifElement* m_TableElement;  // borrowed; template classes only
  MifGroup* m_MifGroup;              // owned
  std::vector<String> m_Keys;
  std::vector<String> m_AttributeNames;
  std::vector<String> m_DefaultRowValues;
  RowMap m_Rows;
  std::vector<std::size_t> m_KeyColumns;  // found once per build, for getKey
  bool m_TakeValues = false;  // move row values out of the tree and free its rows (takeMifTable)
};

}  // namespace CustomScanPlugin
