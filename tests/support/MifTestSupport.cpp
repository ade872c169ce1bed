#include "MifTestSupport.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "TestSupport.h"
#include "base/Memory.h"
#include "base/WideText.h"
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

namespace {

// Each element's dump line, depth first. Indented: two blanks a level.
// Flat: each line led by the element's depth and line number instead, for
// the catalogue's trees a million scopes deep.
std::string dumpElements(MifElement* top, bool flat) {
  if (top == nullptr) return "<null>\n";
  std::string out;
  std::vector<std::pair<MifElement*, std::size_t>> pending{{top, 0}};
  while (!pending.empty()) {
    auto current = pending.back();
    pending.pop_back();
    if (flat) {
      out += std::to_string(current.second) + " ";
    } else {
      out.append(2 * current.second, ' ');
    }
    if (current.first == nullptr) {
      out += "<null>\n";
      continue;
    }
    String line;
    current.first->appendDumpBuffer(line);
    if (flat) out += std::to_string(current.first->m_LineNumber) + " ";
    out += narrow(toWideString(line));
    const auto& children = current.first->m_Children;
    for (auto it = children.rbegin(); it != children.rend(); ++it)
      pending.emplace_back(*it, current.second + 1);
  }
  return out;
}

std::string flatDump(MifElement* top) { return dumpElements(top, true); }

// Runs one entry with a trace capture around it and fills in what it made.
template <typename Entry>
ParseOutcome observe(Entry entry) {
  ParseOutcome outcome;
  TraceCapture trace;
  CustomScanPlugin::MifParser parser;
  MifElement* top = nullptr;
  outcome.code = entry(parser, top);
  outcome.lineNumber = parser.getLineNumber();
  outcome.records = trace.records();
  for (const auto& event : trace.scopes())
    outcome.scopes.push_back((event.entering ? "+" : "-") + event.label);
  outcome.dump = flatDump(top);
  delete top;
  return outcome;
}

std::string recordText(const TraceRecord& r) {
  return std::to_string(r.component) + "/" + std::to_string(r.level) + " " + r.label + " " +
         r.file + ":" + std::to_string(r.line) + " " + narrow(r.text);
}

}  // namespace

ParseOutcome parseWholeWide(const std::string& bytes) {
  return observe([&bytes](CustomScanPlugin::MifParser& parser, MifElement*& top) {
    wchar_t* wide = i_mbstowcs(bytes.c_str());
    const TErrorCode code = parser.parse(wide, top);
    zelm_free(wide);
    return code;
  });
}

ParseOutcome parseNarrowLines(const std::string& bytes) {
  return observe([&bytes](CustomScanPlugin::MifParser& parser, MifElement*& top) {
    return parser.parseNarrow(bytes.c_str(), top);
  });
}

std::string parseDifference(const ParseOutcome& a, const ParseOutcome& b) {
  if (a.code != b.code)
    return "code " + std::to_string(a.code) + " against " + std::to_string(b.code);
  if (a.lineNumber != b.lineNumber) {
    return "line count " + std::to_string(a.lineNumber) + " against " +
           std::to_string(b.lineNumber);
  }
  if (a.dump != b.dump) {
    if (a.dump.size() + b.dump.size() > 4096) return "tree";
    return "tree\n" + a.dump + "against\n" + b.dump;
  }
  if (a.scopes != b.scopes) return "trace scopes";
  const std::size_t n = std::min(a.records.size(), b.records.size());
  for (std::size_t i = 0; i < n; ++i) {
    const std::string ra = recordText(a.records[i]);
    const std::string rb = recordText(b.records[i]);
    if (ra != rb || a.records[i].text != b.records[i].text)
      return "trace record " + std::to_string(i) + ": " + ra + " against " + rb;
  }
  if (a.records.size() != b.records.size()) {
    return std::to_string(a.records.size()) + " trace records against " +
           std::to_string(b.records.size());
  }
  return std::string();
}

std::string treeDump(MifElement* top) { return dumpElements(top, false); }

CustomScanPlugin::ScopeElement* newScope(const wchar_t* name,
                                         std::initializer_list<MifElement*> children, int line) {
  auto* scope = new CustomScanPlugin::ScopeElement();
  scope->m_Name = String(name);
  scope->m_LineNumber = line;
  for (MifElement* child : children) scope->addChild(child);
  return scope;
}

CustomScanPlugin::VariableElement* newVariable(const wchar_t* name, const wchar_t* value,
                                               int line) {
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
    item.isEmpty = isEmpty(item.value);
    row->m_Values.push_back(item);
  }
  return row;
}

}  // namespace cstest
