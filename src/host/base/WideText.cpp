#include "base/WideText.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "base/Memory.h"
#include "base/WideTextExtras.h"

namespace {

constexpr wchar_t kEscapeBase = 0xDC00;

// Length of the valid UTF-8 sequence at p (at most n bytes), or 0.
std::size_t validSequence(const unsigned char* p, std::size_t n, char32_t& cp) {
  unsigned char b0 = p[0];
  if (b0 < 0x80) {
    cp = b0;
    return 1;
  }
  std::size_t len;
  char32_t min;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    len = 2;
    cp = b0 & 0x1F;
    min = 0x80;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    len = 3;
    cp = b0 & 0x0F;
    min = 0x800;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    len = 4;
    cp = b0 & 0x07;
    min = 0x10000;
  } else {
    return 0;
  }
  if (n < len) return 0;
  for (std::size_t i = 1; i < len; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

}  // namespace

bool hostIsAscii(const char* text, std::size_t length) {
  // Eight bytes at a time, then the rest.
  std::uint64_t bits = 0;
  std::size_t i = 0;
  for (; i + sizeof bits <= length; i += sizeof bits) {
    std::uint64_t word;
    std::memcpy(&word, text + i, sizeof word);
    bits |= word;
  }
  for (; i < length; ++i) bits |= static_cast<unsigned char>(text[i]);
  return (bits & 0x8080808080808080ULL) == 0;
}

std::size_t hostDecodeNarrowInto(wchar_t* out, const char* text, std::size_t length) {
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  wchar_t* o = out;
  std::size_t i = 0;
  while (i < length) {
    // Stretches of ASCII, the common case, are widened sixteen bytes at a
    // time.
    while (length - i >= 16) {
      std::uint64_t low;
      std::uint64_t high;
      std::memcpy(&low, p + i, sizeof low);
      std::memcpy(&high, p + i + 8, sizeof high);
      if (((low | high) & 0x8080808080808080ULL) != 0) break;
      for (std::size_t k = 0; k < 16; ++k) o[k] = static_cast<wchar_t>(p[i + k]);
      i += 16;
      o += 16;
    }
    if (i == length) break;
    if (p[i] < 0x80) {
      *o++ = static_cast<wchar_t>(p[i++]);
      continue;
    }
    char32_t cp = 0;
    std::size_t len = validSequence(p + i, length - i, cp);
    if (len == 0) {
      *o++ = static_cast<wchar_t>(kEscapeBase + p[i]);
      ++i;
    } else {
      *o++ = static_cast<wchar_t>(cp);
      i += len;
    }
  }
  return static_cast<std::size_t>(o - out);
}

void hostDecodeNarrowAppend(std::wstring& out, const char* text, std::size_t length) {
  // The characters are written in place and the surplus cut off at the end.
  const std::size_t base = out.size();
  out.resize(base + length);
  out.resize(base + hostDecodeNarrowInto(&out[0] + base, text, length));
}

std::wstring hostDecodeNarrow(const char* text, std::size_t length) {
  std::wstring out;
  hostDecodeNarrowAppend(out, text, length);
  return out;
}

std::string hostEncodeNarrow(const wchar_t* text, std::size_t length) {
  // A leading stretch of ASCII, often the whole text, is one byte a
  // character: it is written in place, and the rest encoded after it.
  std::string out(length, '\0');
  std::size_t ascii = 0;
  for (; ascii < length; ++ascii) {
    const std::uint32_t cp = hostCodePoint(text[ascii]);
    if (cp >= 0x80) break;
    out[ascii] = static_cast<char>(cp);
  }
  if (ascii == length) return out;
  out.resize(ascii);
  for (std::size_t i = ascii; i < length; ++i) {
    std::uint32_t cp = hostCodePoint(text[i]);
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
      continue;
    }
    if (cp >= 0xDC80 && cp <= 0xDCFF) {
      out.push_back(static_cast<char>(cp - kEscapeBase));
      continue;
    }
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
      out.push_back('?');
      continue;
    }
    if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    }
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
  return out;
}

void hostEncodeNarrowAppend(std::string& out, const wchar_t* text, std::size_t length) {
  out += hostEncodeNarrow(text, length);
}

wchar_t hostFoldCase(wchar_t c) {
  if (c < 0x80) return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c;
  if ((c >= 0xC0 && c <= 0xDE && c != 0xD7)) return static_cast<wchar_t>(c + 32);
  if (c >= 0x100 && c <= 0x17F) {
    // Latin Extended-A pairs capitals and small letters, mostly even/odd;
    // the stretch U+0139..U+0148 and U+0179..U+017E is odd/even.
    bool oddCapitals = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    // Y with diaeresis is the one capital here whose small letter is in Latin-1.
    if (c == 0x178) return 0xFF;
    if (c == 0x130 || c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F) return c;
    if (oddCapitals) return (c % 2 == 1) ? static_cast<wchar_t>(c + 1) : c;
    return (c % 2 == 0) ? static_cast<wchar_t>(c + 1) : c;
  }
  if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return static_cast<wchar_t>(c + 32);
  if (c >= 0x410 && c <= 0x42F) return static_cast<wchar_t>(c + 32);
  if (c >= 0x400 && c <= 0x40F) return static_cast<wchar_t>(c + 80);
  return c;
}

int i_wcsnicmp(const wchar_t* a, const wchar_t* b, std::size_t n) {
  // A null text compares as the empty text.
  if (a == nullptr) a = L"";
  if (b == nullptr) b = L"";
  for (std::size_t i = 0; i < n; ++i) {
    // Folded code points order as unsigned values, as String::compareTo does.
    auto ca = hostCodePoint(hostFoldCase(a[i]));
    auto cb = hostCodePoint(hostFoldCase(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
    if (ca == 0) return 0;
  }
  return 0;
}

int i_wcsicmp(const wchar_t* a, const wchar_t* b) {
  return i_wcsnicmp(a, b, static_cast<std::size_t>(-1));
}

wchar_t* i_wcsdup(const wchar_t* text) {
  if (text == nullptr) return nullptr;
  std::size_t n = std::wcslen(text) + 1;
  auto* copy = static_cast<wchar_t*>(zelm_malloc(n * sizeof(wchar_t)));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, n * sizeof(wchar_t));
  return copy;
}

wchar_t* i_mbstowcs(const char* text) {
  if (text == nullptr) return nullptr;
  std::size_t length = std::strlen(text);
  // A decoded text never has more characters than the input has bytes.
  auto* out = static_cast<wchar_t*>(zelm_malloc((length + 1) * sizeof(wchar_t)));
  if (out == nullptr) return nullptr;
  out[hostDecodeNarrowInto(out, text, length)] = L'\0';
  return out;
}
