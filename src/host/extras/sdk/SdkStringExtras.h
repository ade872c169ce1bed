#pragma once
// What the host reads of a plug-in's results beyond the SDK's own operations:
// the narrow text of a result string and of every item of a result list,
// made without a wide copy of the whole. Plug-in code cannot include this
// header.

#include <cstddef>
#include <string>

#include "sdk/SdkString.h"

struct SdkStringAccess {
  static const ::String& text(const PluginSDK::String& s) { return s.m_Data; }
  // Appends the narrow text of the item that begins at position (0 for the
  // first item, then what the previous call returned) and returns where the
  // next item begins.
  static std::size_t appendNarrowItem(const PluginSDK::StringVector& v, std::size_t position,
                                      std::string& out);
};

// The result string's text as the base library's String holds it (shared,
// not copied).
inline const ::String& baseString(const PluginSDK::String& s) { return SdkStringAccess::text(s); }
// Appends the narrow text (as String::toNarrow makes it) to out.
void appendNarrow(const PluginSDK::String& s, std::string& out);
// The narrow text (as String::toNarrow makes it).
std::string toNarrow(const PluginSDK::String& s);

// Calls visit(const std::string& narrowText) for every item of v, in order;
// the text passed is only valid during the call. One pass, no search per item.
template <typename Visit>
void forEachNarrowItem(const PluginSDK::StringVector& v, Visit&& visit) {
  std::string item;
  std::size_t position = 0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    item.clear();
    position = SdkStringAccess::appendNarrowItem(v, position, item);
    visit(static_cast<const std::string&>(item));
  }
}
