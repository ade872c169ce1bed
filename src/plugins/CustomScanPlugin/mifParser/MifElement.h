#pragma once
// The element tree of a parsed MIF text. A tree is owned by its top element:
// deleting the top element frees every element below it. Trees may be
// arbitrarily deep (the text comes from programs we do not control), so no
// walk recurses: MifTreeWalk.h is the walk; the destructor and validate()
// keep their own, the one needing no memory, the other reporting on the way
// back up.

#include <cstddef>
#include <vector>

#include "base/String.h"

namespace CustomScanPlugin {

class MifElement {
 public:
  enum ElementType { Scope = 0, Variable = 1, Row = 2 };

  // The dump buffer keeps at most this many characters; what would go past it
  // is dropped and one truncation line is written instead. Without a bound a
  // deep tree (one tab per level on every line) or a long-lived process
  // (the buffer is never cleared) would exhaust memory.
  static const std::size_t kDumpBufferLimit = std::size_t(1) << 23;
  static const wchar_t kDumpTruncatedLine[];

  MifElement();
  MifElement(const MifElement&) = delete;
  MifElement& operator=(const MifElement&) = delete;
  // Deletes every child, and so the whole subtree, without recursing.
  virtual ~MifElement();

  virtual ElementType getType() const = 0;
  // Nonzero when the element (with its subtree) is valid; each failure writes
  // a level 1 trace record.
  virtual int validate() const = 0;
  // Appends this element's own line of the debug dump.
  virtual void appendDumpBuffer(String& buffer) = 0;

  unsigned int childrenSize() const { return static_cast<unsigned int>(m_Children.size()); }
  // The child at index, or null when index is not less than childrenSize().
  MifElement* getChildAt(unsigned int index) const;
  // Appends child and takes ownership of it. Neither null nor the child's
  // kind is checked here; validate() enforces the kind rules. Without room
  // to append it (std::bad_alloc) the child stays the caller's.
  void addChild(MifElement* child);

  // Appends the subtree to the process-wide dump buffer, one line per
  // element indented by a tab per level, and writes the whole buffer as a
  // level 3 trace record. The buffer is never cleared: every dump repeats
  // everything dumped before it. Not safe on two threads at once.
  void dump();

  // Read and set directly by the parser and the table code.
  String m_Name;
  int m_LineNumber;
  std::vector<MifElement*> m_Children;
};

}  // namespace CustomScanPlugin
