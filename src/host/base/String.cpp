#include "base/String.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "base/Memory.h"
#include "base/WideText.h"

String::String(const wchar_t* text)
    : m_Data(text != nullptr ? std::wstring(text) : std::wstring()) {}

String::String(const wchar_t* text, std::size_t count)
    : m_Data(text != nullptr ? std::wstring(text, count) : std::wstring()) {}

String::String(const char* text) {
  if (text != nullptr) hostDecodeNarrowAppend(m_Data, text, std::strlen(text));
}

wchar_t String::charAt(int index) const {
  if (index < 0 || index >= length()) return 0;
  return m_Data[static_cast<std::size_t>(index)];
}

int String::indexOf(wchar_t c, int from) const {
  if (from < 0) from = 0;
  if (from >= length()) return -1;
  std::size_t pos = m_Data.find(c, static_cast<std::size_t>(from));
  return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}

String String::substring(int begin) const {
  if (begin < 0) begin = 0;
  if (begin >= length()) return String();
  return String(m_Data.substr(static_cast<std::size_t>(begin)));
}

String String::substring(int begin, int end) const {
  if (begin < 0) begin = 0;
  if (end >= length()) end = length() - 1;
  if (begin > end) return String();
  auto first = static_cast<std::size_t>(begin);
  auto last = static_cast<std::size_t>(end);
  return String(m_Data.substr(first, last - first + 1));
}

bool String::startsWith(const String& prefix, int offset) const {
  if (offset < 0 || offset > length()) return false;
  if (prefix.length() > length() - offset) return false;
  return m_Data.compare(static_cast<std::size_t>(offset), prefix.m_Data.size(), prefix.m_Data) == 0;
}

namespace {

// Orders code points as unsigned values, so that the order does not depend
// on the signedness of wchar_t; a proper prefix orders first.
int compareCodePoints(const wchar_t* a, std::size_t na, const wchar_t* b, std::size_t nb) {
  const std::size_t n = na < nb ? na : nb;
  std::size_t i = 0;
  // Equal stretches are passed over two characters at a time.
  for (; i + 2 <= n; i += 2) {
    std::uint64_t x;
    std::uint64_t y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    if (x != y) break;
  }
  for (; i < n; ++i) {
    const std::uint32_t ca = hostCodePoint(a[i]);
    const std::uint32_t cb = hostCodePoint(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (na == nb) return 0;
  return na < nb ? -1 : 1;
}

}  // namespace

int String::compareTo(const String& other, int ignoreCase) const {
  if (ignoreCase != 0) return i_wcsicmp(m_Data.c_str(), other.m_Data.c_str());
  return compareCodePoints(m_Data.data(), m_Data.size(), other.m_Data.data(), other.m_Data.size());
}

int String::compareTo(const wchar_t* other) const {
  // As against String(other): null is the empty string.
  if (other == nullptr) other = L"";
  return compareCodePoints(m_Data.data(), m_Data.size(), other, std::wcslen(other));
}

String& String::concat(const String& text) {
  m_Data.append(text.m_Data);
  return *this;
}

String& String::concat(const wchar_t* text) {
  if (text != nullptr) m_Data.append(text);
  return *this;
}

String& String::concat(const char* text) {
  if (text != nullptr) hostDecodeNarrowAppend(m_Data, text, std::strlen(text));
  return *this;
}

String& String::concat(wchar_t c) {
  m_Data.push_back(c);
  return *this;
}

String& String::deleteCharAt(int index) {
  if (index >= 0 && index < length()) m_Data.erase(static_cast<std::size_t>(index), 1);
  return *this;
}

String& String::trim() {
  std::size_t begin = 0;
  std::size_t end = m_Data.size();
  while (begin < end && hostCodePoint(m_Data[begin]) <= 0x20) ++begin;
  while (end > begin && hostCodePoint(m_Data[end - 1]) <= 0x20) --end;
  if (begin == 0 && end == m_Data.size()) return *this;
  // In place: trimming never needs new storage.
  m_Data.erase(end);
  m_Data.erase(0, begin);
  return *this;
}

String& String::toLowerCase() {
  for (auto& c : m_Data) c = hostFoldCase(c);
  return *this;
}

std::string String::toNarrow() const { return hostEncodeNarrow(m_Data.data(), m_Data.size()); }

char* String::toNarrowDup() const {
  std::string narrow = toNarrow();
  auto* copy = static_cast<char*>(zelm_malloc(narrow.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, narrow.c_str(), narrow.size() + 1);
  return copy;
}
