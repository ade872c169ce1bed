// The row-value scanner against a reference written straight from the row
// grammar: same result code, same items (empty flag and value), for any
// token. The public tokenizer operations are checked on the same input.

#include <cstring>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "FuzzSupport.h"
#include "MifRowReference.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "mifParser/MifParser.h"

using cstest::referenceItem;
using cstest::referenceRow;
using cstest::unescaped;
using cstest::withoutQuotes;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;
using Item = cstest::RowItem;

namespace {

constexpr std::size_t kMaxInput = std::size_t{16} * 1024;

std::string show(const std::wstring& w) {
  return csfuzz::escape(hostEncodeNarrow(w.data(), w.size()));
}

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
  // On failure too: the items before the malformed one stay.
  CSFUZZ_CHECK(values.size() == expected.size(), show(token));
  for (std::size_t i = 0; i < values.size(); ++i) {
    CSFUZZ_CHECK((Item{values[i].isEmpty, toWideString(values[i].value)} == expected[i]),
                 show(token));
  }

  // The single-item operations on the whole token.
  RowElement::RowElementStruct one;
  parser.getRowValue(token.c_str(), one);
  CSFUZZ_CHECK((Item{one.isEmpty, toWideString(one.value)} == referenceItem(token)), show(token));
  String quoted = fromWideString(token);
  CSFUZZ_CHECK(toWideString(parser.removeQuotes(quoted)) == withoutQuotes(token), show(token));
  String escaped = fromWideString(token);
  CSFUZZ_CHECK(toWideString(parser.unescape(escaped)) == unescaped(token), show(token));
  return 0;
}
