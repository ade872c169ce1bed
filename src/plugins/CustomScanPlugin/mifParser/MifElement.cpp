#include "mifParser/MifElement.h"

#include <utility>

#include "TraceSupport.h"
#include "mifParser/MifTreeWalk.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/MifElement";
}  // namespace

namespace CustomScanPlugin {

const std::size_t MifElement::kDumpBufferLimit;
const wchar_t MifElement::kDumpTruncatedLine[] = L"[dump buffer full, further lines dropped]\n";

MifElement::MifElement() : m_LineNumber(0) {}

MifElement::~MifElement() {
  // The subtree is deleted depth first without recursion and without
  // memory of its own (a destructor must not fail for want of it): on the
  // way down, the slot of the child being entered holds the way back up
  // (the parent of the element it belongs to). Every element is deleted
  // once its children are gone, so no destructor below this one has
  // anything to free.
  MifElement* parent = nullptr;
  MifElement* element = this;
  for (;;) {
    while (!element->m_Children.empty()) {
      MifElement* child = element->m_Children.back();
      if (child == nullptr || child->m_Children.empty()) {
        element->m_Children.pop_back();
        delete child;
        continue;
      }
      element->m_Children.back() = parent;
      parent = element;
      element = child;
    }
    if (element == this) break;
    MifElement* grandparent = parent->m_Children.back();
    parent->m_Children.pop_back();
    delete element;
    element = parent;
    parent = grandparent;
  }
}

MifElement* MifElement::getChildAt(unsigned int index) const {
  if (index >= m_Children.size()) return nullptr;
  return m_Children[index];
}

void MifElement::addChild(MifElement* child) { m_Children.push_back(child); }

void MifElement::dump() {
  // Process-wide on purpose: every dump repeats all earlier ones.
  static String buffer;
  static bool full = false;

  String line;
  bool cut = false;
  if (!full) {
    walkMifTree(this, [&](const MifElement* element, std::size_t depth) {
      const std::size_t used = static_cast<std::size_t>(buffer.length());
      if (used + depth > kDumpBufferLimit) {
        cut = true;
        return MifWalkStep::Stop;
      }
      line = String();
      for (std::size_t i = 0; i < depth; ++i) line.concat(L'\t');
      // The walk hands out const elements; appending a line reads only.
      const_cast<MifElement*>(element)->appendDumpBuffer(line);
      if (used + static_cast<std::size_t>(line.length()) > kDumpBufferLimit) {
        cut = true;
        return MifWalkStep::Stop;
      }
      buffer.concat(line);
      return MifWalkStep::Continue;
    });
  }
  if (cut) {
    // Said once; from now on dumps only repeat what the buffer holds.
    buffer.concat(kDumpTruncatedLine);
    full = true;
  }
  CS_TRACE(Trace::Detail, "MifElement::dump()") << "\n" << buffer << Trace::End;
}

}  // namespace CustomScanPlugin
