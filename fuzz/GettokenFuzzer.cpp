// gettoken against a model of its contract: a strtok that does not merge
// separators, over a private copy, with an index that skips tokens and a
// separator of 0 that returns the rest. The input is a little program:
//   byte 0       number of calls after the first (0..15)
//   then         (separator, index) for the first call and for each further call
//   the rest     the text (up to its first zero byte)

#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "common/Command.h"

using CustomScanPlugin::gettoken;

namespace {

constexpr std::size_t kMaxInput = 16 * 1024;

// The model keeps the text and the offset of the next token (npos: none).
struct Model {
  std::string text;
  std::size_t next = std::string::npos;

  bool call(char separator, int index, std::string& token) {
    if (separator == 0) {
      if (index > 0 || next == std::string::npos) {
        next = std::string::npos;
        return false;
      }
      token = text.substr(next);
      next = std::string::npos;
      return true;
    }
    for (int k = 0; k <= (index > 0 ? index : 0); ++k) {
      if (next == std::string::npos) return false;
      std::size_t found = text.find(separator, next);
      if (found == std::string::npos) {
        token = text.substr(next);
        next = std::string::npos;
      } else {
        token = text.substr(next, found - next);
        next = found + 1;
      }
    }
    return true;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput || size < 3) return 0;
  const int calls = 1 + (data[0] % 16);
  const std::size_t header = 1 + 2 * static_cast<std::size_t>(calls);
  if (size < header) return 0;
  std::string text(reinterpret_cast<const char*>(data + header), size - header);
  text.resize(std::strlen(text.c_str()));

  Model model;
  model.text = text;
  model.next = 0;
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');

  for (int i = 0; i < calls; ++i) {
    const char separator = static_cast<char>(data[1 + 2 * i]);
    const int index = static_cast<signed char>(data[2 + 2 * i]);
    char* got = gettoken(i == 0 ? buffer.data() : nullptr, separator, index);
    std::string expected;
    const bool has = model.call(separator, index, expected);
    CSFUZZ_CHECK((got != nullptr) == has,
                 "call " + std::to_string(i) + " on " + csfuzz::escape(text));
    if (has)
      CSFUZZ_CHECK(expected == got, "call " + std::to_string(i) + " on " + csfuzz::escape(text));
  }
  // The caller's text is never changed: gettoken works on its own copy.
  CSFUZZ_CHECK(std::string(buffer.data()) == text, csfuzz::escape(text));
  return 0;
}
