#include "StderrTraceSink.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/WideTextExtras.h"

namespace CustomScanTool {

namespace {

const char kHexDigits[] = "0123456789abcdef";

void appendHexByte(std::string& line, std::uint32_t value) {
  line += "\\x";
  line += kHexDigits[(value >> 4) & 0xF];
  line += kHexDigits[value & 0xF];
}

void appendCodePointEscape(std::string& line, std::uint32_t value) {
  line += "\\u{";
  std::string digits;
  do {
    digits.insert(digits.begin(), kHexDigits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  line += digits;
  line += '}';
}

void appendUtf8(std::string& line, std::uint32_t c) {
  if (c < 0x80) {
    line += static_cast<char>(c);
  } else if (c < 0x800) {
    line += static_cast<char>(0xC0 | (c >> 6));
    line += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    line += static_cast<char>(0xE0 | (c >> 12));
    line += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    line += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    line += static_cast<char>(0xF0 | (c >> 18));
    line += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    line += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    line += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void appendCharacter(std::string& line, std::uint32_t c) {
  switch (c) {
    case '\n':
      line += "\\n";
      return;
    case '\r':
      line += "\\r";
      return;
    case '\t':
      line += "\\t";
      return;
    case '\\':
      line += "\\\\";
      return;
    default:
      break;
  }
  if (c < 0x20 || c == 0x7F) return appendHexByte(line, c);
  if (c >= 0x80 && c <= 0x9F) return appendCodePointEscape(line, c);
  // A byte that was not UTF-8 where the text came from: shown as that byte.
  if (c >= 0xDC80 && c <= 0xDCFF) return appendHexByte(line, c - 0xDC00);
  if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) return appendCodePointEscape(line, c);
  appendUtf8(line, c);
}

}  // namespace

void StderrTraceSink::appendEscaped(std::string& line, const std::wstring& text, std::size_t head) {
  const std::size_t shown = text.size() > head ? head : text.size();
  line.reserve(line.size() + shown + 32);
  for (std::size_t i = 0; i < shown; ++i) appendCharacter(line, hostCodePoint(text[i]));
  if (shown == text.size()) return;
  line += "... [" + std::to_string(text.size() - shown) + " more characters]";
}

std::string StderrTraceSink::formatRecord(const TraceRecord& record) {
  std::string line = std::to_string(record.level) + " ";
  // Labels are the plug-in's own function names, but they are text it chose.
  appendEscaped(line, hostDecodeNarrow(record.label.data(), record.label.size()),
                std::wstring::npos);
  line += ": ";
  appendEscaped(line, record.text, kHeadCharacters);
  return line;
}

std::string StderrTraceSink::formatScope(const std::string& label, bool entering) {
  std::string line = "4 ";
  appendEscaped(line, hostDecodeNarrow(label.data(), label.size()), std::wstring::npos);
  line += entering ? ": enter" : ": leave";
  return line;
}

void StderrTraceSink::record(const TraceRecord& record) { writeLine(formatRecord(record)); }

void StderrTraceSink::scope(int /*component*/, const std::string& label, bool entering) {
  writeLine(formatScope(label, entering));
}

void StderrTraceSink::writeLine(const std::string& line) {
  // One write per line, so that a child's error output, which shares the
  // stream, does not land in the middle of a record. A trace that cannot be
  // written is dropped: it must not change the answer.
  std::string out = line + "\n";
  const char* p = out.data();
  std::size_t left = out.size();
  while (left > 0) {
    ssize_t n = ::write(m_Fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

}  // namespace CustomScanTool
