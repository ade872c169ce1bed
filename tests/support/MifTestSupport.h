#pragma once
// Helpers for the MIF tests: MIF text in, element tree out, and a compact
// dump of a tree to compare against.

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "mifParser/MifElement.h"
#include "mifParser/RowElement.h"
#include "mifParser/ScopeElement.h"
#include "mifParser/VariableElement.h"
#include "sdk/PluginTypes.h"

namespace cstest {

// Lines joined with line feeds (no line feed after the last one).
std::wstring mifLines(std::initializer_list<const wchar_t*> lines);

// Parses a copy of text with a fresh MifParser and owns the resulting tree.
class MifTree {
 public:
  explicit MifTree(const std::wstring& text);
  MifTree(const MifTree&) = delete;
  MifTree& operator=(const MifTree&) = delete;
  TErrorCode code() const { return m_Code; }
  CustomScanPlugin::MifElement* top() const { return m_Top.get(); }
  // Hands the tree over; the caller deletes it.
  CustomScanPlugin::MifElement* release() { return m_Top.release(); }

 private:
  TErrorCode m_Code;
  std::unique_ptr<CustomScanPlugin::MifElement> m_Top;
};

// The tree as the elements' own dump lines (appendDumpBuffer), each indented
// by two blanks per level, narrow. Walks with its own stack.
std::string treeDump(CustomScanPlugin::MifElement* top);

// Builders for trees made by hand; each returns a new element the caller owns.
CustomScanPlugin::ScopeElement* newScope(const wchar_t* name,
                                         std::initializer_list<CustomScanPlugin::MifElement*> children = {},
                                         int line = 0);
CustomScanPlugin::VariableElement* newVariable(const wchar_t* name, const wchar_t* value, int line = 0);
// An empty text makes an item marked empty.
CustomScanPlugin::RowElement* newRow(std::initializer_list<const wchar_t*> values, int line = 0);

}  // namespace cstest
