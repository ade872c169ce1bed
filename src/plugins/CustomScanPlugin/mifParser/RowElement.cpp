#include "mifParser/RowElement.h"

#include "TraceSupport.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/RowElement";
}  // namespace

namespace CustomScanPlugin {

RowElement::RowElement() = default;

RowElement::~RowElement() = default;

int RowElement::validate() const {
  if (!m_Values.empty()) return 1;
  CS_TRACE(Trace::Error, "RowElement::validate()") << "Validation (line " << m_LineNumber << ") "
                                                   << "unexpected empty row." << Trace::End;
  return 0;
}

void RowElement::appendDumpBuffer(String& buffer) {
  buffer.concat(L"Row <");
  for (std::size_t i = 0; i < m_Values.size(); ++i) {
    if (i != 0) buffer.concat(L" | ");
    buffer.concat(m_Values[i].value);
  }
  buffer.concat(L">\n");
}

}  // namespace CustomScanPlugin
