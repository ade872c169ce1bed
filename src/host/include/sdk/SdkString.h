#pragma once
// The SDK's result string and result list.

#include <cstddef>
#include <string>
#include <vector>

namespace PluginSDK {

// A wide result string, assignable from wide and narrow text. Narrow text is
// decoded as the base library's String does; a null pointer of either kind
// gives the empty string.
class String {
 public:
  String() = default;
  String(const wchar_t* text);  // NOLINT: implicit by design
  String(const char* text);     // NOLINT: implicit by design
  String& operator=(const wchar_t* text);
  String& operator=(const char* text);

  // Removes every character up to U+0020 at both ends.
  String& trim();
  const wchar_t* c_str() const { return m_Data.c_str(); }
  operator const wchar_t*() const { return m_Data.c_str(); }  // NOLINT: host convention
  std::size_t length() const { return m_Data.size(); }
  bool empty() const { return m_Data.empty(); }
  const std::wstring& wstr() const { return m_Data; }
  // Appends wide text (null is ignored).
  String& append(const wchar_t* text);

  // Exact, case-sensitive comparisons.
  bool operator==(const String& other) const { return m_Data == other.m_Data; }
  bool operator==(const wchar_t* other) const;
  bool operator!=(const String& other) const { return !(*this == other); }

 private:
  std::wstring m_Data;
};

// A list of result strings.
class StringVector {
 public:
  // Appends a copy of text (null adds an empty string).
  void addString(const wchar_t* text);
  void removeAll() { m_Items.clear(); }
  std::size_t size() const { return m_Items.size(); }
  const String& get(std::size_t index) const { return m_Items.at(index); }
  const String& operator[](std::size_t index) const { return m_Items[index]; }

 private:
  std::vector<String> m_Items;
};

}  // namespace PluginSDK
