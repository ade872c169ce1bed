#pragma once

#include "base/String.h"
#include "mifParser/MifElement.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

// Searches over a parsed MIF tree.
class MifUtil {
 public:
  MifUtil() = delete;

  // Finds the first scope, in pre-order (an enclosing scope before its
  // contents, earlier siblings with their whole contents before later ones),
  // whose name equals scopeType exactly and which has a direct "class"
  // variable (name in any case) whose value equals className exactly. result
  // is null when there is none. Returns 0 whether or not one was found, or
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null top (result untouched). Works at
  // any depth: the search keeps its own stack.
  static TErrorCode getScopeElement(const String& scopeType, const String& className,
                                    const MifElement* top, const MifElement*& result);
};

}  // namespace CustomScanPlugin
