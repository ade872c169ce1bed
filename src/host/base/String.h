#pragma once
// The host's wide string: a value type in the manner of a managed string class.
// Narrow text converts through one locale-independent, lossless routine
// (see WideText.h): valid UTF-8 decodes to code points, any other byte b is
// carried as U+DC00 + b and converts back to the same byte.

#include <cstddef>
#include <string>

class String {
 public:
  String() = default;
  String(const wchar_t* text);  // NOLINT: implicit by design; null is empty
  String(const wchar_t* text, std::size_t count);
  String(const char* text);  // NOLINT: narrow text, decoded; null is empty
  explicit String(const std::wstring& text) : m_Data(text) {}
  explicit String(std::wstring&& text) noexcept : m_Data(std::move(text)) {}

  int length() const { return static_cast<int>(m_Data.size()); }
  bool isEmpty() const { return m_Data.empty(); }

  // The character at index, or 0 when index is out of range.
  wchar_t charAt(int index) const;
  // First index of c at or after from, or -1.
  int indexOf(wchar_t c, int from = 0) const;
  // Characters from begin to the end; empty when begin is out of range.
  String substring(int begin) const;
  // Characters from begin through end, both included. Indexes are clamped to
  // the string; an empty range yields the empty string.
  String substring(int begin, int end) const;
  // Whether prefix occurs at offset, compared exactly.
  bool startsWith(const String& prefix, int offset = 0) const;
  // Negative, zero or positive as this string orders before, equal to or after
  // other. ignoreCase 0 compares code points exactly; any other value folds
  // case first (locale-independent, see i_wcsicmp).
  int compareTo(const String& other, int ignoreCase) const;
  int compareTo(const wchar_t* other) const;

  String& concat(const String& text);
  String& concat(const wchar_t* text);
  String& concat(const char* text);
  String& concat(wchar_t c);
  // Removes the character at index; out of range does nothing.
  String& deleteCharAt(int index);
  // Removes every character up to U+0020 at both ends.
  String& trim();
  // Folds to lower case without depending on the process locale.
  String& toLowerCase();

  // Narrow text (UTF-8, escaped bytes restored).
  std::string toNarrow() const;
  // A copy of the narrow text from zelm_malloc; the caller frees it with zelm_free.
  char* toNarrowDup() const;

  const wchar_t* c_str() const { return m_Data.c_str(); }
  operator const wchar_t*() const { return m_Data.c_str(); }  // NOLINT: host convention
  const std::wstring& wstr() const { return m_Data; }
  void reserve(std::size_t n) { m_Data.reserve(n); }
  void clear() { m_Data.clear(); }

  bool operator==(const String& other) const { return m_Data == other.m_Data; }
  bool operator!=(const String& other) const { return m_Data != other.m_Data; }
  bool operator<(const String& other) const { return compareTo(other, 0) < 0; }

 private:
  std::wstring m_Data;
};

// Orders strings as String::compareTo(other, 0) does; for ordered maps.
struct StringLess {
  bool operator()(const String& a, const String& b) const { return a.compareTo(b, 0) < 0; }
};
