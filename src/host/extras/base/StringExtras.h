#pragma once
// What the stand-in's String offers its own host code, the tool and the tests
// beyond the operations a plug-in may use: hashing, equality and ordering for
// containers, wide and narrow copies, storage control and the zero-copy ASCII
// view. Plug-in code cannot include this header.

#include <cstddef>
#include <string>

#include "base/String.h"

struct StringAccess {
  static std::wstring wstr(const String& s);
  static std::size_t hash(const String& s);
  static void appendNarrow(const String& s, std::string& out);
  static char* toNarrowDup(const String& s);
  static const char* asciiView(const String& s) noexcept;
  static bool equals(const String& a, const String& b);
  static void reserve(String& s, std::size_t n);
  static void clear(String& s);
  static String fromLatin1(const unsigned char* text, std::size_t count);
};

// A wide copy of the text.
inline std::wstring toWideString(const String& s) { return StringAccess::wstr(s); }
// A String of the whole wide text, zero characters included.
inline String fromWideString(const std::wstring& text) { return String(text.data(), text.size()); }
// A hash of the characters, equal for equal texts whatever their storage.
inline std::size_t stringHash(const String& s) { return StringAccess::hash(s); }
// Appends the narrow text (as toNarrow makes it) to out.
inline void appendNarrow(const String& s, std::string& out) { StringAccess::appendNarrow(s, out); }
// A copy of the narrow text from zelm_malloc; the caller frees it with zelm_free.
inline char* toNarrowDup(const String& s) { return StringAccess::toNarrowDup(s); }
// The narrow text without a copy, when the string's own storage already is it:
// a text on the heap, held one byte a character, all of it ASCII, followed by
// a zero byte. Valid until the string changes or dies. Null otherwise.
inline const char* asciiView(const String& s) noexcept { return StringAccess::asciiView(s); }
inline bool isEmpty(const String& s) { return s.length() == 0; }
// Room for n characters without a further allocation.
inline void reserveString(String& s, std::size_t n) { StringAccess::reserve(s, n); }
// A String of count characters, each one byte of text (U+0000 to U+00FF).
inline String latin1String(const unsigned char* text, std::size_t count) {
  return StringAccess::fromLatin1(text, count);
}
// Empties the string and frees its storage.
inline void clearString(String& s) { StringAccess::clear(s); }

// Whether the two texts are the same characters.
inline bool sameText(const String& a, const String& b) { return StringAccess::equals(a, b); }

// Orders strings as String::compareTo(other, 0) does; for ordered maps.
struct StringLess {
  bool operator()(const String& a, const String& b) const { return a.compareTo(b, 0) < 0; }
};
