#include "base/Memory.h"

#include <cstdlib>

#include "base/HostFaults.h"

namespace {
bool allocationShouldFail() {
  HostFaults& faults = HostFaults::instance();
  ++faults.allocationCount;
  if (faults.failAllocationAt < 0) return false;
  return --faults.failAllocationAt == 0;
}
}  // namespace

void* zelm_malloc(std::size_t size) {
  if (allocationShouldFail()) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

void* zelm_realloc(void* block, std::size_t size) {
  if (allocationShouldFail()) return nullptr;
  return std::realloc(block, size == 0 ? 1 : size);
}

void zelm_free(void* block) { std::free(block); }
