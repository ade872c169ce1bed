#pragma once
// The stand-in base library's own text routines, which its String, File,
// Runtime and trace code, the tool and the tests share. Conversions never
// fail and never depend on the process locale. Plug-in code cannot include
// this header; it has i_mbstowcs and the String constructors.

#include <cstddef>
#include <cstdint>
#include <string>

// A wide character's code point as an unsigned value (wchar_t is signed
// here), so that ordering and range tests do not depend on its signedness.
inline std::uint32_t hostCodePoint(wchar_t c) {
  return static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse): not a byte
}

// Whether every one of the length bytes at text is ASCII (below 0x80), so
// that the bytes are their own characters.
bool hostIsAscii(const char* text, std::size_t length);

// Decodes narrow bytes: valid UTF-8 to code points; each byte that does not
// start a valid sequence to U+DC00 + byte (U+DC80..U+DCFF).
std::wstring hostDecodeNarrow(const char* text, std::size_t length);
void hostDecodeNarrowAppend(std::wstring& out, const char* text, std::size_t length);
// The same into out, which has room for length characters (a decoded text
// never has more characters than bytes); returns the number written, with no
// terminator. A line feed byte never belongs to a multi-byte sequence, so the
// lines of a text decode, one by one, to the lines of the decoded text.
std::size_t hostDecodeNarrowInto(wchar_t* out, const char* text, std::size_t length);
// Encodes wide text to UTF-8; U+DC80..U+DCFF become the bytes they carry.
// Other code points that UTF-8 cannot carry (other surrogates, values above
// U+10FFFF) become '?'.
std::string hostEncodeNarrow(const wchar_t* text, std::size_t length);
// Appends what hostEncodeNarrow makes of text to out.
void hostEncodeNarrowAppend(std::string& out, const wchar_t* text, std::size_t length);

// Locale-independent case folding of one character (ASCII, Latin-1,
// Latin Extended-A, Greek and Cyrillic capitals).
wchar_t hostFoldCase(wchar_t c);
