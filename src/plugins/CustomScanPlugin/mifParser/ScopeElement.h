#pragma once

#include "mifParser/MifElement.h"

namespace CustomScanPlugin {

// A block between a start line and its end line. Its name is stored
// lower-cased by the parser.
class ScopeElement : public MifElement {
 public:
  ScopeElement();
  ~ScopeElement() override;

  ElementType getType() const override { return Scope; }
  // Validates the children in order and stops at the first failure. A failure
  // deep in the tree yields one record from the failing element and one from
  // every scope above it, innermost first. Walks nested scopes with its own
  // stack, so any depth is safe.
  int validate() const override;
  void appendDumpBuffer(String& buffer) override;

  // Variables are valid in every scope; rows only in a scope named "table";
  // nested scopes only in the others. A null child is never valid.
  bool isValidChild(const MifElement* child) const;

 private:
  // Writes this scope's failure record.
  void traceFailure(const String& message) const;
};

}  // namespace CustomScanPlugin
