#pragma once
// Text for a terminal in which every character can be seen: a parser message
// that quotes a line ending in a carriage return, or beginning with a byte
// order mark, otherwise looks exactly like the line the author wrote.

#include <string>

namespace CustomScanTool {

class VisibleText {
 public:
  // text (UTF-8, possibly invalid) with CR, LF and tab as \r, \n and \t, the
  // other control characters and each byte that is not UTF-8 as \xHH, and
  // the invisible or blank-looking characters (no-break space, zero-width
  // characters, line and paragraph separators, the byte order mark) as
  // \u{XXXX}. A backslash stays as it is.
  static std::string of(const std::string& text);
  // Whether of(text) would change nothing.
  static bool isVisible(const std::string& text);
};

}  // namespace CustomScanTool
