#pragma once
// Reads a MIF text line by line into an element tree. The accepted subset:
// lines end at line feed; empty lines and lines beginning with "//" are
// ignored; "start NAME" opens a scope and "end NAME" closes the innermost
// one; "name = value" lines and "{v1, v2, ...}" rows belong to the innermost
// open scope; the first scope is the top of the tree.

#include <cstddef>
#include <deque>
#include <vector>

#include "base/String.h"
#include "mifParser/MifElement.h"
#include "mifParser/RowElement.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

class ScopeElement;

class MifParser {
 public:
  enum TokenType {
    Malformed = 0,   // anything else, also a null pointer
    Empty = 1,       // an empty line
    Comment = 2,     // begins with "//"
    StartScope = 3,  // "start " and at least one more character
    EndScope = 4,    // "end " and at least one more character
    Variable = 5,    // holds an "="
    Row = 6          // first character "{" and last character "}"
  };

  MifParser();
  MifParser(const MifParser&) = delete;
  MifParser& operator=(const MifParser&) = delete;
  virtual ~MifParser();

  // Parses text into a validated tree. text is changed in place (every line
  // feed read becomes a null) and stays the caller's. top is nulled first; on
  // success it receives the top scope, which the caller owns and deletes. On
  // failure top is null and the failing line is traced. Returns 0,
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null text (top untouched), or
  // CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF. Without room for the tree
  // it throws std::bad_alloc, with top null and nothing traced, so that the
  // plug-in's boundary can tell it from a bad text (common/OutOfMemory.h).
  // The parser may be reused, one call at a time.
  TErrorCode parse(wchar_t* text, MifElement*& top);
  // The same for narrow text, read a line at a time: an ASCII line is read as
  // its bytes, any other is decoded (base/WideText.h) into one wide line
  // buffer that is reused, so the text is never held wide as a whole; text
  // is not changed. Tree, codes, trace records and line numbers are those of
  // parse on the text decoded whole with i_mbstowcs (which also ends the text
  // at its first zero byte). The position counts bytes. No room for the line
  // buffer (which only a line beyond ASCII needs) is no room for the tree.
  TErrorCode parseNarrow(const char* text, MifElement*& top);

  // The steps of a parse, one line or item at a time. Not used by parse(),
  // which does the same on ranges of the text; kept for the tool's hints
  // and the tests.

  // The next line of text, without its line feed (which becomes a null), with
  // leading blanks and tabs skipped; null at the end of the text.
  wchar_t* getNextToken(wchar_t* text);
  TokenType getTokenType(const wchar_t* token) const;
  // The trimmed, lower-cased name after the keyword.
  TErrorCode getStartScopeName(const wchar_t* token, String& name) const;
  TErrorCode getEndScopeName(const wchar_t* token, String& name) const;
  // Splits at the first "="; both sides trimmed and unquoted, not unescaped.
  TErrorCode getVariableData(const wchar_t* token, String& name, String& value) const;
  // Appends the row's values to values. Items appended before a failure stay.
  TErrorCode getRowValues(const wchar_t* token,
                          std::vector<RowElement::RowElementStruct>& values) const;
  RowElement::RowElementStruct& getRowValue(const wchar_t* i_Item,
                                            RowElement::RowElementStruct& value) const;
  // Drops a quote at the start and, independently, one at the end.
  String& removeQuotes(String& text) const;
  // Turns two backslashes into one and backslash-quote into a quote; every
  // other backslash stays.
  String& unescape(String& text) const;

  // The index of the next unread character, and the number of lines handed
  // out so far (the line just returned has this number).
  unsigned int getPosition() const { return m_Position; }
  unsigned int getLineNumber() const { return m_LineNumber; }

 private:
  wchar_t* nextLine(wchar_t* text, std::size_t& length);
  // One line from a line source: an ASCII line of a narrow text as its
  // bytes, any other line wide; neither at the end.
  struct Line {
    const char* narrow = nullptr;
    const wchar_t* wide = nullptr;
    std::size_t length = 0;
  };
  // Where parseLines takes its lines from: the wide text itself, or a narrow
  // text read a line at a time.
  class WideLines;
  class NarrowLines;
  // The body of both parse entries: takes lines from source until the end of
  // the text or the first failure, and builds and validates the tree.
  template <typename LineSource>
  TErrorCode parseLines(LineSource& source, MifElement*& top);
  // parseLines' work, which may throw std::bad_alloc with a part of the tree
  // in top.
  template <typename LineSource>
  TErrorCode buildTree(LineSource& source, MifElement*& top);
  // Adds one line to the tree; false, with its trace record, when the line
  // cannot belong there.
  template <typename CharT>
  bool takeLine(const CharT* token, std::size_t length, std::deque<ScopeElement*>& scopes,
                MifElement*& top);

  unsigned int m_Position;
  unsigned int m_LineNumber;
};

}  // namespace CustomScanPlugin
