#pragma once
// The SDK's result string and result list.
//
// Both store their text compactly, since an operand's result may be as large
// as a scanner's whole output: a text whose characters are all at most
// U+00FF takes one byte a character, and copies of a result string share its
// storage (see base/String.h). Which form is used never shows.

#include <cstddef>
#include <string>
#include <vector>

#include "base/String.h"

struct SdkStringAccess;

namespace PluginSDK {

// A wide result string, assignable from wide and narrow text. Narrow text is
// decoded as the base library's String does; a null pointer of either kind
// gives the empty string. Operations that need room throw std::bad_alloc when
// there is none, leaving the string valid.
class String {
 public:
  String() = default;
  String(const wchar_t* text);  // NOLINT: implicit by design
  String(const char* text);     // NOLINT: implicit by design
  String& operator=(const wchar_t* text);
  String& operator=(const char* text);

  // Removes every character up to U+0020 at both ends.
  String& trim();
  // The text as zero-terminated wide characters, valid until the string
  // changes or is destroyed.
  const wchar_t* c_str() const { return m_Data.c_str(); }
  operator const wchar_t*() const { return m_Data.c_str(); }  // NOLINT: host convention
  std::size_t length() const { return static_cast<std::size_t>(m_Data.length()); }
  bool empty() const { return m_Data.length() == 0; }
  // A wide copy of the text.
  std::wstring wstr() const;
  // Appends wide text (null is ignored).
  String& append(const wchar_t* text);

  // Exact, case-sensitive comparisons.
  bool operator==(const String& other) const;
  bool operator==(const wchar_t* other) const;
  bool operator!=(const String& other) const { return !(*this == other); }

 private:
  friend struct ::SdkStringAccess;
  friend class StringVector;
  ::String m_Data;
};

// A list of result strings, kept as one block of text: a list of ten million
// empty lines takes some ten megabytes, not a string object each.
class StringVector {
 public:
  StringVector() noexcept = default;
  StringVector(const StringVector& other);
  StringVector(StringVector&& other) noexcept;
  StringVector& operator=(const StringVector& other);
  StringVector& operator=(StringVector&& other) noexcept;
  ~StringVector();

  // Appends a copy of text (null adds an empty string). std::bad_alloc when
  // there is no room; the list is then as it was.
  void addString(const wchar_t* text);
  // Empties the list; its room is kept for the next items.
  void removeAll() noexcept {
    m_Used = 0;
    m_Count = 0;
    m_Index.clear();
  }
  std::size_t size() const { return m_Count; }
  // A copy of the item at index; std::out_of_range past the end.
  String get(std::size_t index) const;
  String operator[](std::size_t index) const { return get(index); }

 private:
  friend struct ::SdkStringAccess;
  // Where item index begins in m_Bytes.
  std::size_t offsetOf(std::size_t index) const;

  // Every item is a header (its length in bytes and its form, see
  // SdkString.cpp) and then its characters: one byte each, or the wchar_t
  // values of an item with a character beyond U+00FF.
  unsigned char* m_Bytes = nullptr;  // from zelm_realloc
  std::size_t m_Used = 0;
  std::size_t m_Capacity = 0;
  std::size_t m_Count = 0;
  // Where every kIndexStride-th item begins, so that an item is found by
  // passing over fewer than kIndexStride headers.
  std::vector<std::size_t> m_Index;
};

}  // namespace PluginSDK
