// A stand-in for a plug-in that breaks the host contract: it imports a host
// operation that no agent offers and takes a lock. The contract check must
// refuse it.

#include <mutex>

#include "base/WideTextExtras.h"

std::mutex g_Lock;

extern "C" __attribute__((visibility("default"))) int violate(const char* text) {
  std::lock_guard<std::mutex> hold(g_Lock);
  return hostIsAscii(text, 1) ? 1 : 0;
}
