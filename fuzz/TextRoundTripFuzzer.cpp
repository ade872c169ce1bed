// Narrow text crosses into wide text and back on every path the plug-in
// uses: property values, environment entries, child output, command lines.
// Any byte string must survive the round trip unchanged, and the three
// narrow-to-wide routines must agree.

#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "base/Memory.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideText.h"
#include "base/WideTextExtras.h"
#include "sdk/SdkString.h"

namespace {
constexpr std::size_t kMaxInput = 64 * 1024;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  // Counted decoding keeps embedded zero bytes.
  std::wstring wide = hostDecodeNarrow(bytes.data(), bytes.size());
  CSFUZZ_CHECK(wide.size() <= bytes.size(), csfuzz::escape(bytes));
  CSFUZZ_CHECK(hostEncodeNarrow(wide.data(), wide.size()) == bytes, csfuzz::escape(bytes));

  // The zero-terminated routines see the text up to its first zero byte.
  const std::string text = bytes.substr(0, std::strlen(bytes.c_str()));
  String s(text.c_str());
  CSFUZZ_CHECK(s.toNarrow() == text, csfuzz::escape(text));
  CSFUZZ_CHECK(toWideString(s) == hostDecodeNarrow(text.data(), text.size()), csfuzz::escape(text));

  char* dup = toNarrowDup(s);
  CSFUZZ_CHECK(dup != nullptr && text == dup, csfuzz::escape(text));
  zelm_free(dup);

  wchar_t* converted = i_mbstowcs(text.c_str());
  CSFUZZ_CHECK(converted != nullptr, csfuzz::escape(text));
  CSFUZZ_CHECK(toWideString(s) == converted, csfuzz::escape(text));
  zelm_free(converted);

  PluginSDK::String sdk;
  sdk = text.c_str();
  CSFUZZ_CHECK(sdk.wstr() == toWideString(s), csfuzz::escape(text));

  // Wide text from anywhere: its narrow form is stable under another trip.
  std::wstring anyWide;
  for (std::size_t i = 0; i + sizeof(wchar_t) <= size; i += sizeof(wchar_t)) {
    wchar_t c;
    std::memcpy(&c, data + i, sizeof c);
    anyWide.push_back(c);
  }
  std::string narrow = hostEncodeNarrow(anyWide.data(), anyWide.size());
  std::wstring again = hostDecodeNarrow(narrow.data(), narrow.size());
  CSFUZZ_CHECK(hostEncodeNarrow(again.data(), again.size()) == narrow, csfuzz::escape(narrow));
  return 0;
}
