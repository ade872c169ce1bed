#pragma once
// Helpers for the MIF tests: MIF text in, element tree out, and a compact
// dump of a tree to compare against.

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "base/StringExtras.h"
#include "mifParser/MifElement.h"
#include "mifParser/RowElement.h"
#include "mifParser/ScopeElement.h"
#include "mifParser/VariableElement.h"
#include "sdk/PluginTypes.h"
#include "trace/TraceSink.h"

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

// What one parse entry made of a text: everything a caller can observe.
struct ParseOutcome {
  TErrorCode code = 0;
  std::vector<TraceRecord> records;
  std::vector<std::string> scopes;  // "+label" on entry, "-label" on exit
  // Every element, depth first, as its depth, its line number and its dump
  // line (appendDumpBuffer); "<null>" for no tree.
  std::string dump;
  unsigned int lineNumber = 0;  // the parser's line count afterwards
};
// bytes decoded whole with i_mbstowcs (which ends them at a zero byte) and
// parsed with MifParser::parse.
ParseOutcome parseWholeWide(const std::string& bytes);
// bytes (up to a zero byte) parsed with MifParser::parseNarrow.
ParseOutcome parseNarrowLines(const std::string& bytes);
// Empty when a and b agree in everything; otherwise the first difference.
std::string parseDifference(const ParseOutcome& a, const ParseOutcome& b);

// The tree as the elements' own dump lines (appendDumpBuffer), each indented
// by two blanks per level, narrow. Walks with its own stack.
std::string treeDump(CustomScanPlugin::MifElement* top);

// Builders for trees made by hand; each returns a new element the caller owns.
CustomScanPlugin::ScopeElement* newScope(
    const wchar_t* name, std::initializer_list<CustomScanPlugin::MifElement*> children = {},
    int line = 0);
CustomScanPlugin::VariableElement* newVariable(const wchar_t* name, const wchar_t* value,
                                               int line = 0);
// An empty text makes an item marked empty.
CustomScanPlugin::RowElement* newRow(std::initializer_list<const wchar_t*> values, int line = 0);

}  // namespace cstest
