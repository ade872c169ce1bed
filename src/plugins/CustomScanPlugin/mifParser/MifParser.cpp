#include "mifParser/MifParser.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "base/WideText.h"
#include "mifParser/ScopeElement.h"
#include "mifParser/VariableElement.h"

namespace {
using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;

constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/MifParser";
constexpr char kParseLabel[] = "MifParser::parse(MemoryBuffer *, MifElement *&)";

const wchar_t kCommentMarker[] = L"//";
const wchar_t kStartKeyword[] = L"start ";
const wchar_t kEndKeyword[] = L"end ";
const std::size_t kCommentMarkerLength = std::wcslen(kCommentMarker);
const std::size_t kStartKeywordLength = std::wcslen(kStartKeyword);
const std::size_t kEndKeywordLength = std::wcslen(kEndKeyword);
const wchar_t kRowOpener = L'{';
const wchar_t kRowCloser = L'}';
const wchar_t kVariableSeparator = L'=';
const wchar_t kValueSeparator = L',';
const wchar_t kQuote = L'"';
const wchar_t kEscape = L'\\';
const wchar_t kBlank = L' ';
const wchar_t kTab = L'\t';
const wchar_t kLineFeed = L'\n';
const wchar_t kRowName[] = L"row";
// The row items delimited in one batch before their values are made.
const std::size_t kReservedItems = 64;

// A character's code point; a narrow line only ever holds ASCII here.
inline std::uint32_t codeOf(wchar_t c) {
  return static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse): not a byte
}

// Whether every one of the count bytes at text is ASCII, a word at a time.
bool isAscii(const char* text, std::size_t count) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
  std::size_t i = 0;
  for (; i + sizeof(std::uint64_t) <= count; i += sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, text + i, sizeof word);
    if ((word & kHighBits) != 0) return false;
  }
  unsigned char bits = 0;
  for (; i < count; ++i) bits |= static_cast<unsigned char>(text[i]);
  return bits < 0x80;
}
inline std::uint32_t codeOf(char c) { return static_cast<unsigned char>(c); }

inline const wchar_t* findChar(const wchar_t* text, std::size_t length, wchar_t c) {
  return std::wmemchr(text, c, length);
}
inline const char* findChar(const char* text, std::size_t length, char c) {
  return static_cast<const char*>(std::memchr(text, c, length));
}

// Whether the line starts with the lower-case keyword, case folded as
// i_wcsnicmp folds. No character beyond ASCII folds to an ASCII letter, so
// an ASCII line needs only the ASCII capitals folded.
inline bool startsWithKeyword(const wchar_t* token, const wchar_t* keyword, std::size_t length) {
  return i_wcsnicmp(token, keyword, length) == 0;
}
inline bool startsWithKeyword(const char* token, const wchar_t* keyword, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    const char c = token[i];
    const char folded = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c;
    if (static_cast<wchar_t>(folded) != keyword[i]) return false;
  }
  return true;
}

// What String::trim removes.
template <typename CharT>
inline bool isTrimmed(CharT c) {
  return codeOf(c) <= 0x20;
}

template <typename CharT>
inline void trimRange(const CharT*& begin, const CharT*& end) {
  while (begin < end && isTrimmed(*begin)) ++begin;
  while (end > begin && isTrimmed(end[-1])) --end;
}

// Takes a quote off the start, then independently one off the end of what is
// left (removeQuotes, and the parser's own ranges).
template <typename CharT>
inline void unquoteRange(const CharT*& begin, const CharT*& end) {
  if (begin < end && *begin == CharT(kQuote)) ++begin;
  if (begin < end && end[-1] == CharT(kQuote)) --end;
}

template <typename CharT>
inline String makeString(const CharT* begin, const CharT* end) {
  return String(begin, static_cast<std::size_t>(end - begin));
}

// unescape on a range, building the result in one pass.
template <typename CharT>
String unescapeRange(const CharT* begin, const CharT* end) {
  const CharT* first = findChar(begin, static_cast<std::size_t>(end - begin), CharT(kEscape));
  if (first == nullptr) return makeString(begin, end);
  std::basic_string<CharT> out;
  out.reserve(static_cast<std::size_t>(end - begin));
  out.append(begin, first);
  for (const CharT* p = first; p < end; ++p) {
    if (*p == CharT(kEscape) && p + 1 < end && (p[1] == CharT(kEscape) || p[1] == CharT(kQuote)))
      ++p;
    out.push_back(*p);
  }
  return String(out.data(), out.size());
}

template <typename CharT>
MifParser::TokenType tokenTypeOf(const CharT* token, std::size_t length) {
  if (length == 0) return MifParser::Empty;
  if (length >= kCommentMarkerLength && token[0] == CharT(kCommentMarker[0]) &&
      token[1] == CharT(kCommentMarker[1])) {
    return MifParser::Comment;
  }
  if (length > kStartKeywordLength &&
      startsWithKeyword(token, kStartKeyword, kStartKeywordLength)) {
    return MifParser::StartScope;
  }
  if (length > kEndKeywordLength && startsWithKeyword(token, kEndKeyword, kEndKeywordLength)) {
    return MifParser::EndScope;
  }
  if (token[0] == CharT(kRowOpener) && token[length - 1] == CharT(kRowCloser))
    return MifParser::Row;
  if (findChar(token, length, CharT(kVariableSeparator)) != nullptr) return MifParser::Variable;
  return MifParser::Malformed;
}

template <typename CharT>
TErrorCode scopeNameOf(const CharT* token, std::size_t length, const wchar_t* keyword,
                       std::size_t keywordLength, String& name) {
  if (token == nullptr || length <= keywordLength ||
      !startsWithKeyword(token, keyword, keywordLength)) {
    return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  }
  const CharT* begin = token + keywordLength;
  const CharT* end = token + length;
  trimRange(begin, end);
  name = makeString(begin, end);
  name.toLowerCase();
  return 0;
}

template <typename CharT>
TErrorCode variableDataOf(const CharT* token, std::size_t length, String& name, String& value) {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  const CharT* separator = findChar(token, length, CharT(kVariableSeparator));
  if (separator == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  const CharT* nameBegin = token;
  const CharT* nameEnd = separator;
  trimRange(nameBegin, nameEnd);
  unquoteRange(nameBegin, nameEnd);
  const CharT* valueBegin = separator + 1;
  const CharT* valueEnd = token + length;
  trimRange(valueBegin, valueEnd);
  unquoteRange(valueBegin, valueEnd);
  name = makeString(nameBegin, nameEnd);
  value = makeString(valueBegin, valueEnd);
  return 0;
}

// One item of a row: trimmed; empty, or outer quotes removed and unescaped
// (escapes false: the caller knows the item holds no backslash).
template <typename CharT>
void rowValueOf(const CharT* begin, const CharT* end, RowElement::RowElementStruct& value,
                bool escapes = true) {
  trimRange(begin, end);
  if (begin == end) {
    value.isEmpty = true;
    value.value = String();
    return;
  }
  value.isEmpty = false;
  unquoteRange(begin, end);
  value.value = escapes ? unescapeRange(begin, end) : makeString(begin, end);
}

// The characters that end a stretch of a row item that the scanner passes
// over: inside quotes a quote or a backslash; in an unquoted text also a
// comma. The closing brace ends both, so that the scans need no bound: the
// row's last character is one.
constexpr unsigned char kQuotedStop = 1;
constexpr unsigned char kUnquotedStop = 2;
struct StopTable {
  unsigned char at[256];  // every byte value, so that a byte needs no range check
  constexpr StopTable() : at{} {
    at[static_cast<unsigned char>(kQuote)] = kQuotedStop | kUnquotedStop;
    at[static_cast<unsigned char>(kEscape)] = kQuotedStop | kUnquotedStop;
    at[static_cast<unsigned char>(kRowCloser)] = kQuotedStop | kUnquotedStop;
    at[static_cast<unsigned char>(kValueSeparator)] = kUnquotedStop;
  }
};
constexpr StopTable kStops;

inline unsigned char stopsOf(char c) { return kStops.at[static_cast<unsigned char>(c)]; }
inline unsigned char stopsOf(wchar_t c) {
  const std::uint32_t code = codeOf(c);
  return code < 128 ? kStops.at[code] : 0;
}

// Where the row item starting at p ends: at its separating comma, or at end
// (the row's closing brace); null when the item is malformed. An item is
// blanks and then either a quoted text, after which only blanks may come, or
// an unquoted text that holds no quote. A backslash takes the character after
// it as it is (so an escaped comma separates nothing), except that an
// unquoted text may not hold an escaped quote either. A quote left open runs
// to the end of the row. escapes is set when the item holds a backslash.
template <typename CharT>
const CharT* itemEnd(const CharT* p, const CharT* const end, bool& escapes) {
  const CharT quote = CharT(kQuote);
  const CharT escape = CharT(kEscape);
  const CharT separator = CharT(kValueSeparator);
  while (*p == CharT(kBlank)) ++p;
  if (p == end || *p == separator) return p;
  if (*p == quote) {
    for (++p;;) {
      while ((stopsOf(*p) & kQuotedStop) == 0) ++p;
      if (p == end) return end;
      if (*p == quote) break;
      if (*p == escape) {
        escapes = true;
        if (end - p <= 1) return end;  // a backslash just before the brace
        p += 2;
      } else {
        ++p;  // a brace inside the text
      }
    }
    ++p;
    while (*p == CharT(kBlank)) ++p;
    if (p == end || *p == separator) return p;
    return nullptr;
  }
  for (;;) {
    while ((stopsOf(*p) & kUnquotedStop) == 0) ++p;
    if (p == end || *p == separator) return p;
    if (*p == quote) return nullptr;
    if (*p == escape) {
      escapes = true;
      if (end - p <= 1) return end;
      if (p[1] == quote) return nullptr;
      p += 2;
    } else {
      ++p;  // a brace inside the text
    }
  }
}

// Appends the row's items to values. The items are delimited first, a batch
// at a time, so that an ordinary row's values get their room in one step;
// the items before a malformed one are appended all the same.
template <typename CharT>
TErrorCode rowValuesOf(const CharT* token, std::size_t length,
                       std::vector<RowElement::RowElementStruct>& values) {
  if (length == 0 || token[0] != CharT(kRowOpener) || token[length - 1] != CharT(kRowCloser))
    return 0;
  const CharT* const end = token + length - 1;  // the closing brace
  const CharT* ends[kReservedItems];
  bool escapes[kReservedItems];
  const CharT* batchStart = token + 1;
  bool firstBatch = true;
  for (;;) {
    std::size_t found = 0;
    const CharT* last = nullptr;
    bool malformed = false;
    for (const CharT* itemStart = batchStart; found < kReservedItems;) {
      escapes[found] = false;
      last = itemEnd(itemStart, end, escapes[found]);
      if (last == nullptr) {
        malformed = true;
        break;
      }
      ends[found++] = last;
      if (last == end) break;
      itemStart = last + 1;
    }
    const bool rowDone = malformed || last == end;
    if (firstBatch && rowDone) values.reserve(values.size() + found);
    const CharT* itemStart = batchStart;
    for (std::size_t i = 0; i < found; ++i) {
      values.emplace_back();
      rowValueOf(itemStart, ends[i], values.back(), escapes[i]);
      itemStart = ends[i] + 1;
    }
    if (malformed) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
    if (rowDone) return 0;
    batchStart = itemStart;
    firstBatch = false;
  }
}

// The line as text for a trace record.
template <typename CharT>
inline String lineText(const CharT* token, std::size_t length) {
  return String(token, length);
}

// A record of why the text does not parse, at the line being read.
template <typename... Pieces>
void parseFailure(unsigned int mifLine, int sourceLine, const Pieces&... pieces) {
  Trace record(Tracer::getInstance(CustomScanPlugin::kTraceComponent), kParseLabel, Trace::Error);
  record << Trace::pos(kSourceLabel, sourceLine) << "Parsing (line " << mifLine << ") ";
  (record << ... << pieces) << Trace::End;
}
}  // namespace

namespace CustomScanPlugin {

MifParser::MifParser() : m_Position(0), m_LineNumber(0) {}

MifParser::~MifParser() = default;

// ------------------------------------------------------------------- lines

wchar_t* MifParser::getNextToken(wchar_t* text) {
  std::size_t length = 0;
  return nextLine(text, length);
}

wchar_t* MifParser::nextLine(wchar_t* text, std::size_t& length) {
  length = 0;
  if (text == nullptr) return nullptr;
  ++m_LineNumber;
  wchar_t* p = text + m_Position;
  while (*p == kBlank || *p == kTab) ++p;
  if (*p == L'\0') {
    m_Position = static_cast<unsigned int>(p - text);
    return nullptr;
  }
  wchar_t* token = p;
  // The line ends at the next line feed or at the end of the text.
  wchar_t* lineFeed = std::wcschr(p, kLineFeed);
  p = lineFeed != nullptr ? lineFeed : p + std::wcslen(p);
  length = static_cast<std::size_t>(p - token);
  if (*p == kLineFeed) {
    *p = L'\0';
    ++p;
  }
  m_Position = static_cast<unsigned int>(p - text);
  return token;
}

MifParser::TokenType MifParser::getTokenType(const wchar_t* token) const {
  if (token == nullptr) return Malformed;
  return tokenTypeOf(token, std::wcslen(token));
}

// ------------------------------------------------------------------ scopes

TErrorCode MifParser::getStartScopeName(const wchar_t* token, String& name) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return scopeNameOf(token, std::wcslen(token), kStartKeyword, kStartKeywordLength, name);
}

TErrorCode MifParser::getEndScopeName(const wchar_t* token, String& name) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return scopeNameOf(token, std::wcslen(token), kEndKeyword, kEndKeywordLength, name);
}

// --------------------------------------------------------------- variables

TErrorCode MifParser::getVariableData(const wchar_t* token, String& name, String& value) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return variableDataOf(token, std::wcslen(token), name, value);
}

String& MifParser::removeQuotes(String& text) const {
  const wchar_t* const whole = text.c_str();
  const wchar_t* begin = whole;
  const wchar_t* end = whole + text.length();
  unquoteRange(begin, end);
  if (begin != whole || end != whole + text.length()) text = makeString(begin, end);
  return text;
}

String& MifParser::unescape(String& text) const {
  if (text.indexOf(kEscape) < 0) return text;
  const wchar_t* begin = text.c_str();
  text = unescapeRange(begin, begin + text.length());
  return text;
}

// -------------------------------------------------------------------- rows

TErrorCode MifParser::getRowValues(const wchar_t* token,
                                   std::vector<RowElement::RowElementStruct>& values) const {
  if (token == nullptr) return 0;
  return rowValuesOf(token, std::wcslen(token), values);
}

RowElement::RowElementStruct& MifParser::getRowValue(const wchar_t* i_Item,
                                                     RowElement::RowElementStruct& value) const {
  CS_ASSERT(i_Item != NULL);
  rowValueOf(i_Item, i_Item + std::wcslen(i_Item), value);
  return value;
}

// ------------------------------------------------------------------- parse

// The lines of a wide text, cut in place.
class MifParser::WideLines {
 public:
  WideLines(MifParser& parser, wchar_t* text) : m_Parser(parser), m_Text(text) {}
  // A line with neither text is the end.
  Line next() {
    Line line;
    line.wide = m_Parser.nextLine(m_Text, line.length);
    return line;
  }

 private:
  MifParser& m_Parser;
  wchar_t* m_Text;
};

// The lines of a narrow text. An ASCII line is handed out as the bytes it
// is, since its bytes are its characters; any other line is decoded by the
// host's String. The line is cut exactly as nextLine cuts the decoded text:
// blanks and tabs are single bytes that no multi-byte sequence contains, and
// a line feed byte can neither belong to a sequence nor come out of one, so
// decoding line by line gives the characters of the whole decoded text.
class MifParser::NarrowLines {
 public:
  NarrowLines(MifParser& parser, const char* text)
      : m_Parser(parser), m_Text(text), m_End(text + std::strlen(text)) {}
  NarrowLines(const NarrowLines&) = delete;
  NarrowLines& operator=(const NarrowLines&) = delete;

  // A line with neither text is the end of the text.
  Line next() {
    Line line;
    ++m_Parser.m_LineNumber;
    const char* p = m_Text + m_Parser.m_Position;
    while (*p == ' ' || *p == '\t') ++p;
    if (p == m_End) {
      m_Parser.m_Position = static_cast<unsigned int>(p - m_Text);
      return line;
    }
    const char* lineFeed =
        static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(m_End - p)));
    const char* lineEnd = lineFeed != nullptr ? lineFeed : m_End;
    const std::size_t bytes = static_cast<std::size_t>(lineEnd - p);
    if (isAscii(p, bytes)) {
      line.narrow = p;
      line.length = bytes;
    } else {
      // The line holds no zero byte (the text ends at its first), so the
      // decoded line holds no zero character.
      m_Decoded = String(p, bytes);
      line.wide = m_Decoded.c_str();
      line.length = static_cast<std::size_t>(m_Decoded.length());
    }
    m_Parser.m_Position =
        static_cast<unsigned int>(lineEnd - m_Text) + (lineFeed != nullptr ? 1 : 0);
    return line;
  }

 private:
  MifParser& m_Parser;
  const char* m_Text;
  const char* m_End;  // the first zero byte
  String m_Decoded;   // the last line that was not ASCII
};

template <typename CharT>
bool MifParser::takeLine(const CharT* token, std::size_t length, std::deque<ScopeElement*>& scopes,
                         MifElement*& top) {
  const int line = static_cast<int>(m_LineNumber);
  switch (tokenTypeOf(token, length)) {
    case Empty:
    case Comment:
      return true;
    case Malformed:
      parseFailure(m_LineNumber, __LINE__, "Malformed token ", lineText(token, length));
      return false;
    case StartScope: {
      // Only one top scope: a second one at the outermost level has nothing
      // to belong to.
      if (top != nullptr && scopes.empty()) {
        parseFailure(m_LineNumber, __LINE__, "No scope element found.");
        return false;
      }
      String name;
      if (scopeNameOf(token, length, kStartKeyword, kStartKeywordLength, name) != 0) return false;
      // Held here until the tree has it, so that a failure to allocate in
      // between loses nothing.
      std::unique_ptr<ScopeElement> made(new ScopeElement());
      made->m_Name = std::move(name);
      made->m_LineNumber = line;
      if (top != nullptr) scopes.back()->addChild(made.get());
      ScopeElement* scope = made.release();
      if (top == nullptr) top = scope;
      scopes.push_back(scope);
      return true;
    }
    case EndScope: {
      if (scopes.empty()) {
        parseFailure(m_LineNumber, __LINE__, "No scope element found.");
        return false;
      }
      String name;
      if (scopeNameOf(token, length, kEndKeyword, kEndKeywordLength, name) != 0) return false;
      if (name.compareTo(scopes.back()->m_Name, 0) != 0) {
        parseFailure(m_LineNumber, __LINE__, "Wrong end scope element, found ", name, " expected ",
                     scopes.back()->m_Name);
        return false;
      }
      scopes.pop_back();
      return true;
    }
    case Variable: {
      if (scopes.empty()) {
        parseFailure(m_LineNumber, __LINE__, "No scope element found.");
        return false;
      }
      std::unique_ptr<VariableElement> variable(new VariableElement());
      if (variableDataOf(token, length, variable->m_Name, variable->m_Value) != 0) return false;
      variable->m_LineNumber = line;
      // Held until added: adding may fail to allocate. The tree owns it now.
      scopes.back()->addChild(variable.get());
      static_cast<void>(variable.release());
      return true;
    }
    case Row: {
      if (scopes.empty()) {
        parseFailure(m_LineNumber, __LINE__, "No scope element found.");
        return false;
      }
      std::vector<RowElement::RowElementStruct> values;
      if (rowValuesOf(token, length, values) != 0) return false;
      // One name for every row, copied rather than made from the literal.
      static const String rowName(kRowName);
      std::unique_ptr<RowElement> row(new RowElement());
      row->m_Name = rowName;
      row->m_Values = std::move(values);
      row->m_LineNumber = line;
      scopes.back()->addChild(row.get());
      static_cast<void>(row.release());
      return true;
    }
    default:
      parseFailure(m_LineNumber, __LINE__, "Unsupported token ", lineText(token, length));
      return false;
  }
}

template <typename LineSource>
TErrorCode MifParser::parseLines(LineSource& source, MifElement*& top) {
  m_Position = 0;
  m_LineNumber = 0;
  top = nullptr;
  try {
    return buildTree(source, top);
  } catch (...) {
    // No room to go on (see common/OutOfMemory.h): the tree made so far goes.
    delete top;
    top = nullptr;
    throw;
  }
}

template <typename LineSource>
TErrorCode MifParser::buildTree(LineSource& source, MifElement*& top) {
  // The open scopes, outermost first; the tree owns them.
  std::deque<ScopeElement*> scopes;

  bool failed = false;
  Line line;
  while (!failed) {
    line = source.next();
    if (line.narrow != nullptr) {
      failed = !takeLine(line.narrow, line.length, scopes, top);
    } else if (line.wide != nullptr) {
      failed = !takeLine(line.wide, line.length, scopes, top);
    } else {
      break;
    }
  }

  if (failed) {
    parseFailure(m_LineNumber, __LINE__, "Error parsing token ",
                 (line.narrow != nullptr ? lineText(line.narrow, line.length)
                                         : lineText(line.wide, line.length)));
  } else if (top == nullptr) {
    parseFailure(m_LineNumber, __LINE__, "No top element found.");
    failed = true;
  } else if (!scopes.empty()) {
    parseFailure(m_LineNumber, __LINE__, "No scope nesting matched.");
    failed = true;
  } else if (top->validate() == 0) {
    parseFailure(m_LineNumber, __LINE__, "Validation failed.");
    failed = true;
  }

  if (!failed) return 0;
  delete top;
  top = nullptr;
  return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
}

TErrorCode MifParser::parse(wchar_t* text, MifElement*& top) {
  CS_TRACE_SCOPE(kParseLabel);
  if (text == nullptr) return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  WideLines lines(*this, text);
  return parseLines(lines, top);
}

TErrorCode MifParser::parseNarrow(const char* text, MifElement*& top) {
  CS_TRACE_SCOPE(kParseLabel);
  if (text == nullptr) return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  NarrowLines lines(*this, text);
  return parseLines(lines, top);
}

}  // namespace CustomScanPlugin
