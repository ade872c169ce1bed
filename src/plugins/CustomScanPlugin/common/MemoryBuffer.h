#pragma once
// A zero-filled byte buffer whose size is always a whole number of steps. It
// carries a child's output (or an output file's bytes) as one zero-terminated
// narrow string: every byte not written since the last resize or zero is 0.

#include <cstdint>
#include <cstdio>

namespace CustomScanPlugin {

class MemoryBuffer {
 public:
  // The largest size a buffer can have.
  static const std::uint32_t kMaxSize = UINT32_MAX;

  // An empty buffer with the given step (a step of 0 is taken as 1), then
  // resize(i_Size).
  MemoryBuffer(unsigned i_Size, unsigned i_Step);
  MemoryBuffer(const MemoryBuffer&) = delete;
  MemoryBuffer& operator=(const MemoryBuffer&) = delete;
  virtual ~MemoryBuffer();

  // Sets the size to n rounded up to a whole number of steps; 0 frees the
  // storage. Bytes gained by growing and every byte from n on are zero; the
  // bytes before n keep their values. Returns the storage (null for 0). When
  // the storage cannot be had (allocator failure, or a rounded size past
  // kMaxSize) the buffer is left exactly as it was and null is returned.
  void* resize(unsigned n);
  // Sets every byte to 0; frees nothing. Returns the storage.
  void* zero();
  // Writes the size, the step and every byte as "hh (c) " to standard output,
  // nine bytes on the first line and eight on each later one. Returns the
  // result of the last fprintf.
  int dump() const;
  // The same, to stream.
  int dump(std::FILE* stream) const;

  std::uint8_t* getData() { return data; }
  const std::uint8_t* getData() const { return data; }
  std::uint32_t getSize() const { return size; }
  std::uint32_t getStep() const { return step; }

 private:
  std::uint8_t* data = nullptr;
  std::uint32_t size = 0;
  std::uint32_t step;
};

}  // namespace CustomScanPlugin
