#pragma once
// A row read by the row grammar alone, one character at a time through every
// state (started, inside quotes, after the closing quote, after a
// backslash), to hold the parser's row scanner against. Header-only, so that
// the fuzz targets, which link only the core, share it with the tests.

#include <string>
#include <vector>

namespace cstest {

struct RowItem {
  bool isEmpty;
  std::wstring value;
  bool operator==(const RowItem& o) const { return isEmpty == o.isEmpty && value == o.value; }
};

inline bool isTrimmedCharacter(wchar_t c) { return static_cast<unsigned long>(c) <= 0x20; }

inline std::wstring trimmed(const std::wstring& s) {
  std::size_t b = 0;
  std::size_t e = s.size();
  while (b < e && isTrimmedCharacter(s[b])) ++b;
  while (e > b && isTrimmedCharacter(s[e - 1])) --e;
  return s.substr(b, e - b);
}

// A quote at the start, then independently one at the end, dropped.
inline std::wstring withoutQuotes(std::wstring s) {
  if (!s.empty() && s.front() == L'"') s.erase(0, 1);
  if (!s.empty() && s.back() == L'"') s.pop_back();
  return s;
}

// Backslash-backslash and backslash-quote become their second character.
inline std::wstring unescaped(std::wstring s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == L'\\' && i + 1 < s.size() && (s[i + 1] == L'\\' || s[i + 1] == L'"')) s.erase(i, 1);
  }
  return s;
}

// One item as written between its separators.
inline RowItem referenceItem(const std::wstring& raw) {
  std::wstring v = trimmed(raw);
  if (v.empty()) return RowItem{true, L""};
  return RowItem{false, unescaped(withoutQuotes(v))};
}

// Appends the items of a row token ("{...}"); a token that is not a row
// appends nothing. False for a malformed row: a quote that does not open an
// item (after blanks), anything but blanks and a comma after a closing
// quote, a quote in an unquoted item even after a backslash. The items
// before the malformed one are appended all the same.
inline bool referenceRow(const std::wstring& token, std::vector<RowItem>& items) {
  if (token.size() < 2 || token.front() != L'{' || token.back() != L'}') return true;
  const std::wstring inner = token.substr(1, token.size() - 2);
  bool started = false;
  bool escape = false;
  int quotes = 0;
  std::size_t itemStart = 0;
  for (std::size_t i = 0; i < inner.size(); ++i) {
    const wchar_t c = inner[i];
    const bool outside = quotes % 2 == 0;
    if (outside && !(c == L' ' || c == L',' || (c == L'"' && quotes != 2))) started = true;
    if (started && c == L'"') return false;
    if (started && quotes == 2) return false;
    if (escape) {
      escape = false;
      continue;
    }
    if (c == L'\\') {
      escape = true;
    } else if (c == L'"') {
      ++quotes;
    } else if (c == L',' && outside) {
      items.push_back(referenceItem(inner.substr(itemStart, i - itemStart)));
      itemStart = i + 1;
      started = false;
      quotes = 0;
    }
  }
  items.push_back(referenceItem(inner.substr(itemStart)));
  return true;
}

}  // namespace cstest
