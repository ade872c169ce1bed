// The row-value scanner against a reference written straight from the row
// grammar: same result code, same items (empty flag and value), for any
// token. The public tokenizer operations are checked on the same input.

#include <cstring>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "FuzzSupport.h"
#include "base/String.h"
#include "base/WideText.h"
#include "mifParser/MifParser.h"

using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;

namespace {

constexpr std::size_t kMaxInput = 16 * 1024;

bool isTrimmed(wchar_t c) { return static_cast<unsigned long>(c) <= 0x20; }

std::wstring trimmed(const std::wstring& s) {
  std::size_t b = 0;
  std::size_t e = s.size();
  while (b < e && isTrimmed(s[b])) ++b;
  while (e > b && isTrimmed(s[e - 1])) --e;
  return s.substr(b, e - b);
}

std::wstring withoutQuotes(std::wstring s) {
  if (!s.empty() && s.front() == L'"') s.erase(0, 1);
  if (!s.empty() && s.back() == L'"') s.pop_back();
  return s;
}

std::wstring unescaped(std::wstring s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == L'\\' && i + 1 < s.size() && (s[i + 1] == L'\\' || s[i + 1] == L'"')) s.erase(i, 1);
  }
  return s;
}

struct Item {
  bool isEmpty;
  std::wstring value;
  bool operator==(const Item& o) const { return isEmpty == o.isEmpty && value == o.value; }
};

Item referenceItem(const std::wstring& raw) {
  std::wstring v = trimmed(raw);
  if (v.empty()) return Item{true, L""};
  return Item{false, unescaped(withoutQuotes(v))};
}

bool referenceRow(const std::wstring& token, std::vector<Item>& items) {
  if (token.empty() || token.front() != L'{' || token.back() != L'}') return true;
  // A token of one character cannot both open and close.
  if (token.size() < 2) return true;
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
      escape = false;
      quotes = 0;
    }
  }
  items.push_back(referenceItem(inner.substr(itemStart)));
  return true;
}

std::string show(const std::wstring& w) { return csfuzz::escape(hostEncodeNarrow(w.data(), w.size())); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  bytes.resize(std::strlen(bytes.c_str()));
  const std::wstring token = hostDecodeNarrow(bytes.data(), bytes.size());

  MifParser parser;
  std::vector<RowElement::RowElementStruct> values;
  const TErrorCode code = parser.getRowValues(token.c_str(), values);

  std::vector<Item> expected;
  const bool ok = referenceRow(token, expected);
  CSFUZZ_CHECK(code == (ok ? 0 : CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF), show(token));
  if (ok) {
    CSFUZZ_CHECK(values.size() == expected.size(), show(token));
    for (std::size_t i = 0; i < values.size(); ++i) {
      CSFUZZ_CHECK((Item{values[i].isEmpty, values[i].value.wstr()} == expected[i]), show(token));
    }
  } else {
    // Items found before the failure may stay; never more than the reference saw.
    CSFUZZ_CHECK(values.size() <= expected.size() + 1, show(token));
  }

  // The single-item operations on the whole token.
  RowElement::RowElementStruct one;
  parser.getRowValue(token.c_str(), one);
  CSFUZZ_CHECK((Item{one.isEmpty, one.value.wstr()} == referenceItem(token)), show(token));
  String quoted(token);
  CSFUZZ_CHECK(parser.removeQuotes(quoted).wstr() == withoutQuotes(token), show(token));
  String escaped(token);
  CSFUZZ_CHECK(parser.unescape(escaped).wstr() == unescaped(token), show(token));
  return 0;
}
