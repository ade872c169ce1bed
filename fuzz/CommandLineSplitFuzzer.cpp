// The host splits the command line that the plug-in builds into the argument
// vector of the child. Whatever the bytes, the words must be exactly the
// input's characters without the double quotes and without the blanks that
// separate words, and a word may hold a blank only where quotes allowed it.

#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "base/ProcessExtras.h"
#include "base/Runtime.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace {
constexpr std::size_t kMaxInput = 4096;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string line(reinterpret_cast<const char*>(data), size);
  line.resize(std::char_traits<char>::length(line.c_str()));

  const std::vector<std::string> words = hostSplitCommandLine(String(line.c_str()));

  // Reference: what remains once quotes and separating blanks are gone, and
  // how many words a blank-separated reading yields.
  std::string kept;
  std::size_t expectedWords = 0;
  bool quoted = false;
  bool inWord = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      if (!inWord) ++expectedWords;
      inWord = true;
    } else if (c == ' ' && !quoted) {
      inWord = false;
    } else {
      kept.push_back(c);
      if (!inWord) ++expectedWords;
      inWord = true;
    }
  }

  std::string joined;
  bool sawQuote = line.find('"') != std::string::npos;
  for (const std::string& w : words) {
    CSFUZZ_CHECK(w.find('"') == std::string::npos, csfuzz::escape(line));
    CSFUZZ_CHECK(sawQuote || w.find(' ') == std::string::npos, csfuzz::escape(line));
    CSFUZZ_CHECK(sawQuote || !w.empty(), csfuzz::escape(line));
    joined += w;
  }
  CSFUZZ_CHECK(joined == kept, csfuzz::escape(line));
  CSFUZZ_CHECK(words.size() == expectedWords, csfuzz::escape(line));
  return 0;
}
