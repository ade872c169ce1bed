#pragma once
// Allocation failures at the plug-in's boundary. What the plug-in calls
// reports a failure to allocate by throwing: new, the standard containers
// and the host's strings throw std::bad_alloc, and a text or container asked
// to grow past its largest size throws std::length_error. The host must only
// ever see a code, so every entry point and operand operation ends in
//
//   } catch (...) {
//     return outOfMemory(label, kSourceLabel, __LINE__);
//   }
//
// after releasing whatever a partial result holds. Deeper code catches only
// to undo a half-made state (a half-built tree, table or cache entry) and
// throws on.

#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

// Called from a catch handler: for an allocation failure, writes its error
// record (level 1, labelled label: "Out of memory: " and what the exception
// says) and returns PLUGIN_ERROR_OUT_OF_MEMORY. Any other exception is thrown
// on unchanged: nothing the plug-in calls throws one, and a broken invariant
// is not turned into a code.
TErrorCode outOfMemory(const char* label, const char* source, int line);

}  // namespace CustomScanPlugin
