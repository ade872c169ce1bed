#include "InputText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "StandardStreams.h"
#include "UsageError.h"

namespace CustomScanTool {

namespace {
const std::size_t kBlockSize = std::size_t{64} * 1024;
}  // namespace

InputText::InputText(const std::string& name) : m_Name(name.empty() ? "-" : name) {
  if (m_Name == "-") return;
  m_Fd = ::open(m_Name.c_str(), O_RDONLY | O_CLOEXEC);
  if (m_Fd == -1) throw UsageError("cannot open " + m_Name + ": " + std::strerror(errno));
  m_OwnsFd = true;
  struct stat st {};
  if (::fstat(m_Fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(m_Fd);
    m_OwnsFd = false;
    throw UsageError("cannot open " + m_Name + ": it is a directory");
  }
}

InputText::~InputText() {
  if (m_OwnsFd) ::close(m_Fd);
}

void InputText::throwReadError(int error) const {
  const std::string what = m_OwnsFd ? m_Name : std::string("standard input");
  if (!m_OwnsFd && StandardStreams::wasClosed(0))
    throw UsageError("cannot read standard input: it is closed");
  throw UsageError("cannot read " + what + ": " + std::strerror(error));
}

bool InputText::fill() {
  if (m_AtEnd) return false;
  if (m_Buffer.empty()) m_Buffer.resize(kBlockSize);
  if (m_Begin > 0) {
    std::memmove(m_Buffer.data(), m_Buffer.data() + m_Begin, m_End - m_Begin);
    m_End -= m_Begin;
    m_Begin = 0;
  }
  if (m_End == m_Buffer.size()) m_Buffer.resize(m_Buffer.size() * 2);
  for (;;) {
    ssize_t n = ::read(m_Fd, m_Buffer.data() + m_End, m_Buffer.size() - m_End);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throwReadError(errno);
    if (n == 0) {
      m_AtEnd = true;
      return false;
    }
    m_End += static_cast<std::size_t>(n);
    return true;
  }
}

std::string InputText::readAll() {
  std::string text(m_Buffer.data() + m_Begin, m_End - m_Begin);
  m_Begin = m_End = 0;
  std::vector<char>().swap(m_Buffer);
  if (m_AtEnd) return text;
  char block[kBlockSize];
  for (;;) {
    ssize_t n = ::read(m_Fd, block, sizeof block);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throwReadError(errno);
    if (n == 0) break;
    text.append(block, static_cast<std::size_t>(n));
  }
  m_AtEnd = true;
  return text;
}

bool InputText::readLine(std::string& line, std::size_t maxLength, bool& tooLong) {
  line.clear();
  tooLong = false;
  std::size_t searched = m_Begin;
  for (;;) {
    const char* begin = m_Buffer.data() + m_Begin;
    const void* feed = m_End > searched
                           ? std::memchr(m_Buffer.data() + searched, '\n', m_End - searched)
                           : nullptr;
    if (feed != nullptr) {
      const std::size_t length = static_cast<std::size_t>(static_cast<const char*>(feed) - begin);
      if (!tooLong && length <= maxLength) line.assign(begin, length);
      if (length > maxLength) tooLong = true;
      m_Begin += length + 1;
      return true;
    }
    // No line feed yet. Past the limit the bytes are dropped as they come,
    // so that an endless line costs one block, not its length.
    if (m_End - m_Begin > maxLength) {
      tooLong = true;
      m_Begin = m_End;
    }
    // fill() moves the unread bytes to the front of the buffer.
    searched = m_End - m_Begin;
    const bool more = fill();
    if (!more) {
      if (m_End == m_Begin && !tooLong) return false;
      const std::size_t length = m_End - m_Begin;
      if (!tooLong && length <= maxLength) line.assign(m_Buffer.data() + m_Begin, length);
      if (length > maxLength) tooLong = true;
      m_Begin = m_End;
      return true;
    }
  }
}

}  // namespace CustomScanTool
