#include "MifTestSupport.h"

#include <cstddef>
#include <utility>

#include "TestSupport.h"
#include "mifParser/MifParser.h"

namespace cstest {

using CustomScanPlugin::MifElement;

std::wstring mifLines(std::initializer_list<const wchar_t*> lines) {
  std::wstring text;
  bool first = true;
  for (const wchar_t* line : lines) {
    if (!first) text.push_back(L'\n');
    text.append(line);
    first = false;
  }
  return text;
}

MifTree::MifTree(const std::wstring& text) : m_Code(0) {
  std::vector<wchar_t> buffer(text.begin(), text.end());
  buffer.push_back(L'\0');
  CustomScanPlugin::MifParser parser;
  MifElement* top = nullptr;
  m_Code = parser.parse(buffer.data(), top);
  m_Top.reset(top);
}

std::string treeDump(MifElement* top) {
  if (top == nullptr) return "<null>\n";
  std::string out;
  std::vector<std::pair<MifElement*, std::size_t>> pending{{top, 0}};
  while (!pending.empty()) {
    auto current = pending.back();
    pending.pop_back();
    out.append(2 * current.second, ' ');
    if (current.first == nullptr) {
      out.append("<null>\n");
      continue;
    }
    String line;
    current.first->appendDumpBuffer(line);
    out.append(narrow(line.wstr()));
    const auto& children = current.first->m_Children;
    for (auto it = children.rbegin(); it != children.rend(); ++it) pending.emplace_back(*it, current.second + 1);
  }
  return out;
}

CustomScanPlugin::ScopeElement* newScope(const wchar_t* name, std::initializer_list<MifElement*> children,
                                         int line) {
  auto* scope = new CustomScanPlugin::ScopeElement();
  scope->m_Name = String(name);
  scope->m_LineNumber = line;
  for (MifElement* child : children) scope->addChild(child);
  return scope;
}

CustomScanPlugin::VariableElement* newVariable(const wchar_t* name, const wchar_t* value, int line) {
  auto* variable = new CustomScanPlugin::VariableElement();
  variable->m_Name = String(name);
  variable->m_Value = String(value);
  variable->m_LineNumber = line;
  return variable;
}

CustomScanPlugin::RowElement* newRow(std::initializer_list<const wchar_t*> values, int line) {
  auto* row = new CustomScanPlugin::RowElement();
  row->m_Name = String(L"row");
  row->m_LineNumber = line;
  for (const wchar_t* value : values) {
    CustomScanPlugin::RowElement::RowElementStruct item;
    item.value = String(value);
    item.isEmpty = item.value.isEmpty();
    row->m_Values.push_back(item);
  }
  return row;
}

}  // namespace cstest
