#include "DescriptorOutputBuffer.h"

#include <unistd.h>

#include <cerrno>

namespace CustomScanTool {

DescriptorOutputBuffer::DescriptorOutputBuffer(int fd, std::size_t capacity)
    : m_Fd(fd), m_Buffer(capacity == 0 ? 1 : capacity) {
  setp(m_Buffer.data(), m_Buffer.data() + m_Buffer.size());
}

DescriptorOutputBuffer::~DescriptorOutputBuffer() { drain(); }

bool DescriptorOutputBuffer::writeAll(const char* data, std::size_t size) {
  if (m_Error != 0) return false;
  while (size > 0) {
    ssize_t n = ::write(m_Fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      // write(2) returns 0 only for a count of 0; treat it as a full device.
      m_Error = n < 0 ? errno : ENOSPC;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

bool DescriptorOutputBuffer::drain() {
  const std::size_t pending = static_cast<std::size_t>(pptr() - pbase());
  setp(m_Buffer.data(), m_Buffer.data() + m_Buffer.size());
  if (pending == 0) return m_Error == 0;
  return writeAll(m_Buffer.data(), pending);
}

DescriptorOutputBuffer::int_type DescriptorOutputBuffer::overflow(int_type c) {
  if (!drain()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

std::streamsize DescriptorOutputBuffer::xsputn(const char* data, std::streamsize count) {
  if (m_Error != 0 || count <= 0) return 0;
  const std::size_t size = static_cast<std::size_t>(count);
  if (size <= static_cast<std::size_t>(epptr() - pptr())) {
    traits_type::copy(pptr(), data, size);
    pbump(static_cast<int>(size));
    return count;
  }
  // Larger than the room left: the buffer first, then the data directly.
  if (!drain() || !writeAll(data, size)) return 0;
  return count;
}

int DescriptorOutputBuffer::sync() { return drain() ? 0 : -1; }

}  // namespace CustomScanTool
