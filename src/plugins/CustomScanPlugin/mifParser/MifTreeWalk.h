#pragma once
// The one walk over an element tree: every element in document order, with
// a stack of its own, since a tree may be as deep as its text is long. It
// holds one frame per open level, never a frame per child.

#include <cstddef>
#include <vector>

#include "mifParser/MifElement.h"

namespace CustomScanPlugin {

// What the walk does after an element is entered.
enum class MifWalkStep { Continue, SkipChildren, Stop };

// Calls enter(element, depth) for top (depth 0) and every element below it,
// in document order; each element's subtree is walked unless enter said
// SkipChildren, and then leave(element) is called. Stop ends the walk at
// once, without leaving. A null child is passed over, or, with enterNulls,
// entered (as a null element) but neither walked nor left.
template <typename Enter, typename Leave>
void walkMifTree(const MifElement* top, Enter&& enter, Leave&& leave, bool enterNulls = false) {
  if (top == nullptr) return;
  struct Frame {
    const MifElement* element;
    std::size_t next;  // the child to enter next
    bool skipChildren;
  };
  std::vector<Frame> frames;
  const MifElement* element = top;
  while (element != nullptr) {
    const MifWalkStep step = enter(element, frames.size());
    if (step == MifWalkStep::Stop) return;
    frames.push_back(Frame{element, 0, step == MifWalkStep::SkipChildren});
    element = nullptr;
    while (element == nullptr && !frames.empty()) {
      Frame& frame = frames.back();
      const std::vector<MifElement*>& children = frame.element->m_Children;
      if (frame.skipChildren) frame.next = children.size();
      while (frame.next < children.size() && children[frame.next] == nullptr) {
        ++frame.next;
        if (enterNulls && enter(nullptr, frames.size()) == MifWalkStep::Stop) return;
      }
      if (frame.next < children.size()) {
        element = children[frame.next++];
      } else {
        const MifElement* done = frame.element;
        frames.pop_back();
        leave(done);
      }
    }
  }
}

// The same without a leave step.
template <typename Enter>
void walkMifTree(const MifElement* top, Enter&& enter) {
  walkMifTree(top, enter, [](const MifElement*) {});
}

}  // namespace CustomScanPlugin
