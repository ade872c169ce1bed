#include "mifParser/VariableElement.h"

#include "TraceSupport.h"

namespace {
constexpr char kSourceLabel[] =
    "../../../../src/plugins/CustomScanPlugin/mifParser/VariableElement";
}  // namespace

namespace CustomScanPlugin {

VariableElement::VariableElement() = default;

VariableElement::~VariableElement() = default;

int VariableElement::validate() const {
  if (m_Name.length() != 0) return 1;
  CS_TRACE(Trace::Error, "VariableElement::validate()")
      << "Validation (line " << m_LineNumber << ") "
      << "name = " << m_Name << " "
      << "value = " << m_Value << Trace::End;
  return 0;
}

void VariableElement::appendDumpBuffer(String& buffer) {
  buffer.concat(L"Variable <").concat(m_Name).concat(L" = ").concat(m_Value).concat(L">\n");
}

}  // namespace CustomScanPlugin
