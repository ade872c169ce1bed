#include "base/String.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "base/Memory.h"
#include "base/WideText.h"

String::String(const wchar_t* text) {
  if (text != nullptr) m_Data.assign(text);
}

String::String(const wchar_t* text, std::size_t count) {
  if (text != nullptr) m_Data.assign(text, count);
}

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

int String::compareTo(const String& other, int ignoreCase) const {
  if (ignoreCase != 0) return i_wcsicmp(m_Data.c_str(), other.m_Data.c_str());
  // Compare code points as unsigned values so that the order does not depend
  // on the signedness of wchar_t.
  std::size_t n = m_Data.size() < other.m_Data.size() ? m_Data.size() : other.m_Data.size();
  for (std::size_t i = 0; i < n; ++i) {
    auto a = hostCodePoint(m_Data[i]);
    auto b = hostCodePoint(other.m_Data[i]);
    if (a != b) return a < b ? -1 : 1;
  }
  if (m_Data.size() == other.m_Data.size()) return 0;
  return m_Data.size() < other.m_Data.size() ? -1 : 1;
}

int String::compareTo(const wchar_t* other) const { return compareTo(String(other), 0); }

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
  m_Data = m_Data.substr(begin, end - begin);
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
