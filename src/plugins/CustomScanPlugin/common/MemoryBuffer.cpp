#include "common/MemoryBuffer.h"

#include <cstring>

#include "base/Memory.h"

namespace CustomScanPlugin {

MemoryBuffer::MemoryBuffer(unsigned i_Size, unsigned i_Step) : step(i_Step == 0 ? 1 : i_Step) {
  resize(i_Size);
}

MemoryBuffer::~MemoryBuffer() { resize(0); }

void* MemoryBuffer::resize(unsigned n) {
  if (n == 0) {
    if (data != nullptr) zelm_free(data);
    data = nullptr;
    size = 0;
    return nullptr;
  }
  const std::uint64_t rounded64 =
      n % step == 0 ? n : (static_cast<std::uint64_t>(n / step) + 1) * step;
  if (rounded64 > kMaxSize) return nullptr;
  const auto rounded = static_cast<std::uint32_t>(rounded64);

  if (size == 0) {
    auto* fresh = static_cast<std::uint8_t*>(zelm_malloc(rounded));
    if (fresh == nullptr) return nullptr;
    data = fresh;
    std::memset(data, 0, rounded);
    size = rounded;
    return data;
  }

  auto* moved = static_cast<std::uint8_t*>(zelm_realloc(data, rounded));
  if (moved == nullptr) return nullptr;
  data = moved;
  if (rounded > size) std::memset(data + size, 0, rounded - size);
  size = rounded;
  // A shrink clears everything past n, even within the same step.
  if (rounded > n) std::memset(data + n, 0, rounded - n);
  return data;
}

void* MemoryBuffer::zero() {
  if (size != 0 && data != nullptr) std::memset(data, 0, size);
  return data;
}

int MemoryBuffer::dump() const { return dump(stdout); }

int MemoryBuffer::dump(std::FILE* stream) const {
  std::fprintf(stream, "size: %d (step %d)\n", static_cast<int>(size), static_cast<int>(step));
  for (std::uint32_t i = 0; i < size; ++i) {
    std::fprintf(stream, "%02x (%c) ", data[i], data[i]);
    // The first line carries indexes 0 to 8, every later line eight bytes.
    if (i != 0 && i % 8 == 0) std::fprintf(stream, "\n");
  }
  return std::fprintf(stream, "\n");
}

}  // namespace CustomScanPlugin
