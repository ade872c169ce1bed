#include "sdk/SdkString.h"

#include <cstdint>
#include <cstring>

#include "base/WideText.h"
#include "base/WideTextExtras.h"

namespace PluginSDK {

String::String(const wchar_t* text) {
  if (text != nullptr) m_Data.assign(text);
}

String::String(const char* text) {
  if (text != nullptr) hostDecodeNarrowAppend(m_Data, text, std::strlen(text));
}

String& String::operator=(const wchar_t* text) {
  if (text == nullptr) {
    m_Data.clear();
  } else {
    m_Data.assign(text);
  }
  return *this;
}

String& String::operator=(const char* text) {
  m_Data.clear();
  if (text != nullptr) hostDecodeNarrowAppend(m_Data, text, std::strlen(text));
  return *this;
}

String& String::trim() {
  std::size_t begin = 0;
  std::size_t end = m_Data.size();
  while (begin < end && hostCodePoint(m_Data[begin]) <= 0x20) ++begin;
  while (end > begin && hostCodePoint(m_Data[end - 1]) <= 0x20) --end;
  if (begin != 0 || end != m_Data.size()) m_Data = m_Data.substr(begin, end - begin);
  return *this;
}

String& String::append(const wchar_t* text) {
  if (text != nullptr) m_Data.append(text);
  return *this;
}

bool String::operator==(const wchar_t* other) const { return other != nullptr && m_Data == other; }

void StringVector::addString(const wchar_t* text) { m_Items.emplace_back(text); }

}  // namespace PluginSDK
