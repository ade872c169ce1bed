#include "VisibleText.h"

#include <cstdint>
#include <cstdio>

namespace CustomScanTool {

namespace {

// The length of the UTF-8 sequence at text[i] and its code point, or 0 when
// the bytes there are not a valid sequence (overlong forms and surrogates
// included).
std::size_t decodeAt(const std::string& text, std::size_t i, std::uint32_t& code) {
  const auto byte = [&text](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) {
    code = lead;
    return 1;
  }
  std::size_t length = 0;
  std::uint32_t minimum = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2;
    code = lead & 0x1F;
    minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    code = lead & 0x0F;
    minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    code = lead & 0x07;
    minimum = 0x10000;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    code = (code << 6) | (byte(i + k) & 0x3F);
  }
  if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

bool isInvisible(std::uint32_t code) {
  return code < 0x20 || code == 0x7F || (code >= 0x80 && code <= 0x9F) || code == 0xA0 ||
         code == 0xAD || (code >= 0x2000 && code <= 0x200F) || code == 0x2028 || code == 0x2029 ||
         code == 0x202F || code == 0x2060 || code == 0xFEFF;
}

void appendHex(std::string& out, const char* format, unsigned int value) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, format, value);
  out += buffer;
}

}  // namespace

std::string VisibleText::of(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    std::uint32_t code = 0;
    const std::size_t length = decodeAt(text, i, code);
    if (length == 0) {
      appendHex(out, "\\x%02X", static_cast<unsigned char>(text[i]));
      ++i;
      continue;
    }
    if (!isInvisible(code)) {
      out.append(text, i, length);
    } else if (code == '\r') {
      out += "\\r";
    } else if (code == '\n') {
      out += "\\n";
    } else if (code == '\t') {
      out += "\\t";
    } else if (code < 0x80) {
      appendHex(out, "\\x%02X", code);
    } else {
      appendHex(out, "\\u{%04X}", code);
    }
    i += length;
  }
  return out;
}

bool VisibleText::isVisible(const std::string& text) {
  for (std::size_t i = 0; i < text.size();) {
    std::uint32_t code = 0;
    const std::size_t length = decodeAt(text, i, code);
    if (length == 0 || isInvisible(code)) return false;
    i += length;
  }
  return true;
}

}  // namespace CustomScanTool
