#pragma once
// A growable array of plain items (pointers, numbers) with power-of-two
// allocation and numeric error returns. Items past the length, up to the
// allocation, are always zero.

#include <climits>
#include <cstdlib>
#include <cstring>

#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

// The C allocator; the default storage of PlainArray. Tests substitute one
// that fails on demand.
struct MallocAllocator {
  static void* allocate(std::size_t bytes) { return std::malloc(bytes); }
  static void* reallocate(void* block, std::size_t bytes) { return std::realloc(block, bytes); }
  static void release(void* block) { std::free(block); }
};

template <class T, class Allocator = MallocAllocator>
class PlainArray {
 public:
  // The largest allocation, in items: a power of two that an int still holds.
  static const int kMaxAllocated = 1 << 30;

  // Starts empty, then setLength(i_Length); a failure there leaves it empty.
  explicit PlainArray(int i_Length) { setLength(i_Length); }
  PlainArray(const PlainArray&) = delete;
  PlainArray& operator=(const PlainArray&) = delete;
  ~PlainArray() { Allocator::release(items); }

  // The item at index; no bounds check.
  T& operator[](int index) { return items[index]; }
  const T& operator[](int index) const { return items[index]; }

  // Sets the number of items in use. Growing past the allocation, or
  // shrinking below half of it, reallocates to the smallest power of two that
  // holds length (0 frees the storage); new items are zero. Returns 0,
  // PLUGIN_ERROR_OUT_OF_MEMORY (-100: storage not obtained; nothing changed)
  // or PLUGIN_ERROR_INVALID_ARGUMENT (-101: negative length; nothing changed).
  int setLength(int n) {
    int code = PluginSDK::PLUGIN_OK;
    if (n > 0) {
      if (n <= allocated && n >= allocated / 2) {
        length = n;
        return PluginSDK::PLUGIN_OK;
      }
      code = reallocate(n);
    } else if (n == 0) {
      Allocator::release(items);
      items = nullptr;
      allocated = 0;
    } else {
      code = PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
    }
    if (code == PluginSDK::PLUGIN_OK) length = n;
    return code;
  }

  int getLength() const { return length; }
  int getAllocated() const { return allocated; }
  // The item storage (null when nothing is allocated).
  T* getItems() { return items; }
  const T* getItems() const { return items; }

 protected:
  T* items = nullptr;
  int length = 0;
  int allocated = 0;

 private:
  // Moves the storage to the smallest power of two not less than n (n > 0).
  // On failure the array is left exactly as it was, so that the allocation
  // never claims more items than the storage holds.
  int reallocate(int n) {
    if (n > kMaxAllocated) return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
    int target = 1;
    while (target < n) target <<= 1;
    // T is often itself a pointer (the items of an ObjectArray).
    const std::size_t bytes =
        static_cast<std::size_t>(target) * sizeof(T);  // NOLINT(bugprone-sizeof-expression)
    void* storage =
        items != nullptr ? Allocator::reallocate(items, bytes) : Allocator::allocate(bytes);
    if (storage == nullptr) return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
    items = static_cast<T*>(storage);
    allocated = target;
    if (length < allocated) {
      std::memset(static_cast<void*>(items + length), 0,
                  static_cast<std::size_t>(allocated - length) *
                      sizeof(T));  // NOLINT(bugprone-sizeof-expression)
    }
    return PluginSDK::PLUGIN_OK;
  }
};

}  // namespace CustomScanPlugin
