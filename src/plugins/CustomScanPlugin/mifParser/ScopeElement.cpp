#include "mifParser/ScopeElement.h"

#include <vector>

#include "TraceSupport.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/ScopeElement";
// The one scope name that holds rows, compared exactly: the parser has
// lower-cased it already.
const wchar_t kTableScopeName[] = L"table";
}  // namespace

namespace CustomScanPlugin {

ScopeElement::ScopeElement() = default;

ScopeElement::~ScopeElement() = default;

bool ScopeElement::isValidChild(const MifElement* child) const {
  if (child == nullptr) return false;
  const ElementType type = child->getType();
  if (type == Variable) return true;
  if (m_Name.compareTo(kTableScopeName) == 0) return type == Row;
  return type == Scope;
}

void ScopeElement::traceFailure(const String& message) const {
  CS_TRACE(Trace::Error, "ScopeElement::validate()")
      << "Validation (line " << m_LineNumber << ") "
      << "scope = " << m_Name << " " << message << Trace::End;
}

int ScopeElement::validate() const {
  // One frame per open scope: the scope and the index of the child it is at.
  // A nested scope is entered instead of recursed into; when it fails, its
  // parent resumes on the same child and reports it as not valid, and so on
  // up to this scope, which gives the records innermost first.
  struct Frame {
    const ScopeElement* scope;
    std::size_t next;
  };
  std::vector<Frame> frames{{this, 0}};
  bool childFailed = false;
  while (!frames.empty()) {
    Frame& frame = frames.back();
    const std::vector<MifElement*>& children = frame.scope->m_Children;
    const ScopeElement* nested = nullptr;
    bool failed = false;
    String message;
    if (childFailed) {
      failed = true;
      message =
          String(L"The child ").concat(children[frame.next]->m_Name).concat(L" is not valid.");
    }
    while (!failed && nested == nullptr && frame.next < children.size()) {
      const MifElement* child = children[frame.next];
      if (child == nullptr) {
        failed = true;
        message = String(L"unexpected empty child");
      } else if (!frame.scope->isValidChild(child)) {
        failed = true;
        message = String(L"The child ").concat(child->m_Name).concat(L" is of an expected type.");
      } else if (child->getType() == Scope &&
                 (nested = dynamic_cast<const ScopeElement*>(child)) != nullptr) {
        // Entered below.
      } else if (child->validate() == 0) {
        failed = true;
        message = String(L"The child ").concat(child->m_Name).concat(L" is not valid.");
      } else {
        ++frame.next;
      }
    }
    if (nested != nullptr) {
      frames.push_back(Frame{nested, 0});  // invalidates frame
      continue;
    }
    if (failed) {
      frame.scope->traceFailure(message);
      frames.pop_back();
      childFailed = true;
      continue;
    }
    frames.pop_back();
    childFailed = false;
    if (!frames.empty()) ++frames.back().next;
  }
  return childFailed ? 0 : 1;
}

void ScopeElement::appendDumpBuffer(String& buffer) {
  buffer.concat(L"Scope <").concat(m_Name).concat(L">\n");
}

}  // namespace CustomScanPlugin
