#pragma once
// The buffer under the tool's standard output: writes to a descriptor with
// write(2) and remembers the first failure with its errno, so that an answer
// lost to a full device, a closed descriptor or a broken pipe is reported
// with its reason instead of being taken for success. After a failure it
// takes nothing more, and the stream on it goes bad.

#include <cstddef>
#include <streambuf>
#include <string>
#include <vector>

namespace CustomScanTool {

class DescriptorOutputBuffer : public std::streambuf {
 public:
  // The descriptor is not owned.
  explicit DescriptorOutputBuffer(int fd, std::size_t capacity = 64 * 1024);
  DescriptorOutputBuffer(const DescriptorOutputBuffer&) = delete;
  DescriptorOutputBuffer& operator=(const DescriptorOutputBuffer&) = delete;
  ~DescriptorOutputBuffer() override;

  // Whether a write failed; error() is its errno.
  bool failed() const { return m_Error != 0; }
  int error() const { return m_Error; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* data, std::streamsize count) override;
  int sync() override;

 private:
  // Writes the buffered bytes; false once a write has failed.
  bool drain();
  bool writeAll(const char* data, std::size_t size);

  int m_Fd;
  std::vector<char> m_Buffer;
  int m_Error = 0;
};

}  // namespace CustomScanTool
