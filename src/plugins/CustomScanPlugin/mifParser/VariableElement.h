#pragma once

#include "mifParser/MifElement.h"

namespace CustomScanPlugin {

// A line of a name, an equals sign and a value.
class VariableElement : public MifElement {
 public:
  VariableElement();
  ~VariableElement() override;

  ElementType getType() const override { return Variable; }
  // Valid when the name is not empty; the value may be empty.
  int validate() const override;
  void appendDumpBuffer(String& buffer) override;

  // Trimmed, outer quotes removed, escapes kept as written.
  String m_Value;
};

}  // namespace CustomScanPlugin
