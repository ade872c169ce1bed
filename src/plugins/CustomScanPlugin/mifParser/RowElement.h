#pragma once

#include <vector>

#include "mifParser/MifElement.h"

namespace CustomScanPlugin {

// A line of comma-separated values in braces: one row of a table.
class RowElement : public MifElement {
 public:
  struct RowElementStruct {
    // The value was empty or blank in the text; the table puts the column's
    // default in its place.
    bool isEmpty = false;
    // Trimmed, outer quotes removed and unescaped; empty when isEmpty is set.
    String value;
  };

  RowElement();
  ~RowElement() override;

  ElementType getType() const override { return Row; }
  // Valid when the row holds at least one value.
  int validate() const override;
  void appendDumpBuffer(String& buffer) override;

  std::vector<RowElementStruct> m_Values;
};

}  // namespace CustomScanPlugin
