#pragma once
// An array of owning pointers to heap objects. The item storage is a plain
// array of T*, so an ObjectArray<String> hands its items straight to the
// host's process creation as its environment.

#include <new>
#include <utility>

#include "common/PlainArray.h"

namespace CustomScanPlugin {

// One slot of an ObjectArray: an owning pointer, null for an empty slot.
template <class T>
using OAItem = T*;

template <class T, class Allocator = MallocAllocator>
class ObjectArray : public PlainArray<OAItem<T>, Allocator> {
  using Base = PlainArray<OAItem<T>, Allocator>;

 public:
  // i_Length empty slots.
  explicit ObjectArray(int i_Length) : Base(i_Length) {}
  // Deletes every object the array holds.
  ~ObjectArray() {
    for (int k = 0; k < this->length; ++k) {
      delete this->items[k];
      this->items[k] = nullptr;
    }
  }

  // Appends a heap copy of object. Returns 0, or the code of setLength
  // (-100, -101) with the array unchanged. When position is not null the new
  // item's index is written there on success.
  int add(const T& object, int* position) { return place(object, position); }
  // The same, for an object about to be discarded: its contents move into the
  // heap copy instead of being copied.
  int add(T&& object, int* position) { return place(std::move(object), position); }

 private:
  template <class Source>
  int place(Source&& object, int* position) {
    int code = Base::setLength(this->length + 1);
    if (code != PluginSDK::PLUGIN_OK) return code;
    const int index = this->length - 1;
    delete this->items[index];
    this->items[index] = new (std::nothrow) T(std::forward<Source>(object));
    if (this->items[index] == nullptr) {
      Base::setLength(index);
      return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
    }
    if (position != nullptr) *position = index;
    return PluginSDK::PLUGIN_OK;
  }
};

}  // namespace CustomScanPlugin
