#include "mifParser/MifParser.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <deque>
#include <string>
#include <utility>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "base/Memory.h"
#include "base/WideText.h"
#include "mifParser/ScopeElement.h"
#include "mifParser/VariableElement.h"

namespace {
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
const std::size_t kReservedItems = 64;
// Characters; the line buffer of a narrow text doubles from here as needed.
const std::size_t kInitialLineCapacity = 256;

// What String::trim removes.
inline bool isTrimmed(wchar_t c) { return static_cast<unsigned long>(c) <= 0x20; }

inline void trimRange(const wchar_t*& begin, const wchar_t*& end) {
  while (begin < end && isTrimmed(*begin)) ++begin;
  while (end > begin && isTrimmed(end[-1])) --end;
}

// removeQuotes on a range: a quote at the start, then independently one at
// the end of what is left.
inline void unquoteRange(const wchar_t*& begin, const wchar_t*& end) {
  if (begin < end && *begin == kQuote) ++begin;
  if (begin < end && end[-1] == kQuote) --end;
}

inline String makeString(const wchar_t* begin, const wchar_t* end) {
  return String(begin, static_cast<std::size_t>(end - begin));
}

// unescape on a range, building the result in one pass.
String unescapeRange(const wchar_t* begin, const wchar_t* end) {
  const wchar_t* first = std::wmemchr(begin, kEscape, static_cast<std::size_t>(end - begin));
  if (first == nullptr) return makeString(begin, end);
  std::wstring out;
  out.reserve(static_cast<std::size_t>(end - begin));
  out.append(begin, first);
  for (const wchar_t* p = first; p < end; ++p) {
    if (*p == kEscape && p + 1 < end && (p[1] == kEscape || p[1] == kQuote)) ++p;
    out.push_back(*p);
  }
  return String(out);
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
  return tokenType(token, std::wcslen(token));
}

MifParser::TokenType MifParser::tokenType(const wchar_t* token, std::size_t length) const {
  if (token == nullptr) return Malformed;
  if (length == 0) return Empty;
  if (length >= kCommentMarkerLength &&
      std::wcsncmp(token, kCommentMarker, kCommentMarkerLength) == 0) {
    return Comment;
  }
  if (length > kStartKeywordLength && i_wcsnicmp(token, kStartKeyword, kStartKeywordLength) == 0) {
    return StartScope;
  }
  if (length > kEndKeywordLength && i_wcsnicmp(token, kEndKeyword, kEndKeywordLength) == 0) {
    return EndScope;
  }
  if (token[0] == kRowOpener && token[length - 1] == kRowCloser) return Row;
  if (std::wmemchr(token, kVariableSeparator, length) != nullptr) return Variable;
  return Malformed;
}

// ------------------------------------------------------------------ scopes

TErrorCode MifParser::getStartScopeName(const wchar_t* token, String& name) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return scopeName(token, std::wcslen(token), kStartKeyword, kStartKeywordLength, name);
}

TErrorCode MifParser::getEndScopeName(const wchar_t* token, String& name) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return scopeName(token, std::wcslen(token), kEndKeyword, kEndKeywordLength, name);
}

TErrorCode MifParser::scopeName(const wchar_t* token, std::size_t length, const wchar_t* keyword,
                                std::size_t keywordLength, String& name) const {
  if (token == nullptr || length <= keywordLength ||
      i_wcsnicmp(token, keyword, keywordLength) != 0) {
    return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  }
  const wchar_t* begin = token + keywordLength;
  const wchar_t* end = token + length;
  trimRange(begin, end);
  name = makeString(begin, end);
  name.toLowerCase();
  return 0;
}

// --------------------------------------------------------------- variables

TErrorCode MifParser::getVariableData(const wchar_t* token, String& name, String& value) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return variableData(token, std::wcslen(token), name, value);
}

TErrorCode MifParser::variableData(const wchar_t* token, std::size_t length, String& name,
                                   String& value) const {
  if (token == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  const wchar_t* separator = std::wmemchr(token, kVariableSeparator, length);
  if (separator == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  const wchar_t* nameBegin = token;
  const wchar_t* nameEnd = separator;
  trimRange(nameBegin, nameEnd);
  unquoteRange(nameBegin, nameEnd);
  const wchar_t* valueBegin = separator + 1;
  const wchar_t* valueEnd = token + length;
  trimRange(valueBegin, valueEnd);
  unquoteRange(valueBegin, valueEnd);
  name = makeString(nameBegin, nameEnd);
  value = makeString(valueBegin, valueEnd);
  return 0;
}

String& MifParser::removeQuotes(String& text) const {
  if (text.charAt(0) == kQuote) text.deleteCharAt(0);
  if (text.length() > 0 && text.charAt(text.length() - 1) == kQuote)
    text.deleteCharAt(text.length() - 1);
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
  return rowValues(token, std::wcslen(token), values);
}

TErrorCode MifParser::rowValues(const wchar_t* token, std::size_t length,
                                std::vector<RowElement::RowElementStruct>& values) const {
  if (token == nullptr) return 0;
  if (length == 0 || token[0] != kRowOpener || token[length - 1] != kRowCloser) return 0;
  const wchar_t* itemStart = token + 1;
  const wchar_t* const end = token + length - 1;  // the closing brace
  // Room for the items of an ordinary row at once; commas inside quotes may
  // overcount, hence the cap.
  std::size_t separators = 0;
  for (const wchar_t* p =
           std::wmemchr(itemStart, kValueSeparator, static_cast<std::size_t>(end - itemStart));
       p != nullptr && separators < kReservedItems;
       p = std::wmemchr(p + 1, kValueSeparator, static_cast<std::size_t>(end - p - 1))) {
    ++separators;
  }
  values.reserve(values.size() + separators + 1);
  bool started = false;
  bool escaped = false;
  unsigned int quotes = 0;
  for (const wchar_t* p = itemStart; p < end; ++p) {
    // Stretches that cannot change the state are passed over in a tight
    // loop: inside quotes only a quote or a backslash matters, and inside
    // an unquoted value that has started only a comma, a quote or a
    // backslash does.
    if (!escaped && quotes == 1) {
      while (p < end && *p != kQuote && *p != kEscape) ++p;
      if (p == end) break;
    } else if (!escaped && started && quotes == 0) {
      while (p < end && *p != kValueSeparator && *p != kQuote && *p != kEscape) ++p;
      if (p == end) break;
    }
    const wchar_t c = *p;
    const bool outsideQuotes = quotes % 2 == 0;
    // An opening quote does not start an item; any other content does, and
    // so does a quote after a closing one.
    if (outsideQuotes && c != kBlank && c != kValueSeparator && (c != kQuote || quotes == 2)) {
      started = true;
    }
    // A quote may only open an item, and after a closing quote only blanks
    // and a comma may follow.
    if (started && (c == kQuote || quotes == 2))
      return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
    if (escaped) {
      escaped = false;
      continue;
    }
    if (c == kEscape) {
      escaped = true;
    } else if (c == kQuote) {
      ++quotes;
    } else if (c == kValueSeparator && outsideQuotes) {
      values.emplace_back();
      rowValue(itemStart, p, values.back());
      itemStart = p + 1;
      started = false;
      quotes = 0;
    }
  }
  values.emplace_back();
  rowValue(itemStart, end, values.back());
  return 0;
}

RowElement::RowElementStruct& MifParser::getRowValue(const wchar_t* i_Item,
                                                     RowElement::RowElementStruct& value) const {
  CS_ASSERT(i_Item != NULL);
  rowValue(i_Item, i_Item + std::wcslen(i_Item), value);
  return value;
}

void MifParser::rowValue(const wchar_t* begin, const wchar_t* end,
                         RowElement::RowElementStruct& value) const {
  trimRange(begin, end);
  if (begin == end) {
    value.isEmpty = true;
    value.value.clear();
    return;
  }
  value.isEmpty = false;
  unquoteRange(begin, end);
  value.value = unescapeRange(begin, end);
}

// ------------------------------------------------------------------- parse

// The lines of a wide text, cut in place.
class MifParser::WideLines {
 public:
  WideLines(MifParser& parser, wchar_t* text) : m_Parser(parser), m_Text(text) {}
  wchar_t* next(std::size_t& length) { return m_Parser.nextLine(m_Text, length); }
  bool outOfMemory() const { return false; }

 private:
  MifParser& m_Parser;
  wchar_t* m_Text;
};

// The lines of a narrow text, each decoded into one wide line buffer from the
// host allocator. The line is cut exactly as nextLine cuts the decoded text:
// blanks and tabs are single bytes that no multi-byte sequence contains, and
// a line feed byte can neither belong to a sequence nor come out of one, so
// decoding line by line gives the characters of the whole decoded text.
class MifParser::NarrowLines {
 public:
  NarrowLines(MifParser& parser, const char* text)
      : m_Parser(parser), m_Text(text), m_End(text + std::strlen(text)) {}
  NarrowLines(const NarrowLines&) = delete;
  NarrowLines& operator=(const NarrowLines&) = delete;
  ~NarrowLines() { zelm_free(m_Line); }

  // Null at the end of the text, and when the line buffer cannot be had.
  wchar_t* next(std::size_t& length) {
    length = 0;
    ++m_Parser.m_LineNumber;
    const char* p = m_Text + m_Parser.m_Position;
    while (*p == ' ' || *p == '\t') ++p;
    if (p == m_End) {
      m_Parser.m_Position = static_cast<unsigned int>(p - m_Text);
      return nullptr;
    }
    const char* lineFeed =
        static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(m_End - p)));
    const char* lineEnd = lineFeed != nullptr ? lineFeed : m_End;
    const std::size_t bytes = static_cast<std::size_t>(lineEnd - p);
    if (!reserve(bytes + 1)) return nullptr;
    length = hostDecodeNarrowInto(m_Line, p, bytes);
    m_Line[length] = L'\0';
    m_Parser.m_Position =
        static_cast<unsigned int>(lineEnd - m_Text) + (lineFeed != nullptr ? 1 : 0);
    return m_Line;
  }
  bool outOfMemory() const { return m_OutOfMemory; }

 private:
  bool reserve(std::size_t characters) {
    if (characters <= m_Capacity && m_Line != nullptr) return true;
    // Doubling for lines that grow by little, the exact size for a jump, so
    // that one huge line costs no more than its own width.
    const std::size_t capacity =
        std::max(characters, m_Capacity == 0 ? kInitialLineCapacity : 2 * m_Capacity);
    void* grown = zelm_realloc(m_Line, capacity * sizeof(wchar_t));
    if (grown == nullptr) {
      m_OutOfMemory = true;
      return false;
    }
    m_Line = static_cast<wchar_t*>(grown);
    m_Capacity = capacity;
    return true;
  }

  MifParser& m_Parser;
  const char* m_Text;
  const char* m_End;  // the first zero byte
  wchar_t* m_Line = nullptr;
  std::size_t m_Capacity = 0;
  bool m_OutOfMemory = false;
};

template <typename LineSource>
TErrorCode MifParser::parseLines(LineSource& source, MifElement*& top) {
  // The open scopes, outermost first; the tree owns them.
  std::deque<ScopeElement*> scopes;
  m_Position = 0;
  m_LineNumber = 0;
  top = nullptr;

  bool failed = false;
  wchar_t* token = nullptr;
  std::size_t length = 0;
  while (!failed) {
    token = source.next(length);
    if (token == nullptr) break;
    const int line = static_cast<int>(m_LineNumber);
    switch (tokenType(token, length)) {
      case Empty:
      case Comment:
        break;
      case Malformed:
        CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                            << "Malformed token " << token << Trace::End;
        failed = true;
        break;
      case StartScope: {
        // Only one top scope: a second one at the outermost level has
        // nothing to belong to.
        if (top != nullptr && scopes.empty()) {
          CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                              << "No scope element found." << Trace::End;
          failed = true;
          break;
        }
        String name;
        if (scopeName(token, length, kStartKeyword, kStartKeywordLength, name) != 0) {
          failed = true;
          break;
        }
        ScopeElement* scope = new ScopeElement();
        scope->m_Name = std::move(name);
        scope->m_LineNumber = line;
        if (top == nullptr) {
          top = scope;
        } else {
          scopes.back()->addChild(scope);
        }
        scopes.push_back(scope);
        break;
      }
      case EndScope: {
        if (scopes.empty()) {
          CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                              << "No scope element found." << Trace::End;
          failed = true;
          break;
        }
        String name;
        if (scopeName(token, length, kEndKeyword, kEndKeywordLength, name) != 0) {
          failed = true;
          break;
        }
        if (name.compareTo(scopes.back()->m_Name, 0) != 0) {
          CS_TRACE(Trace::Error, kParseLabel)
              << "Parsing (line " << m_LineNumber << ") "
              << "Wrong end scope element, found " << name << " expected " << scopes.back()->m_Name
              << Trace::End;
          failed = true;
          break;
        }
        scopes.pop_back();
        break;
      }
      case Variable: {
        if (scopes.empty()) {
          CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                              << "No scope element found." << Trace::End;
          failed = true;
          break;
        }
        VariableElement* variable = new VariableElement();
        if (variableData(token, length, variable->m_Name, variable->m_Value) != 0) {
          delete variable;
          failed = true;
          break;
        }
        variable->m_LineNumber = line;
        scopes.back()->addChild(variable);
        break;
      }
      case Row: {
        if (scopes.empty()) {
          CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                              << "No scope element found." << Trace::End;
          failed = true;
          break;
        }
        std::vector<RowElement::RowElementStruct> values;
        if (rowValues(token, length, values) != 0) {
          failed = true;
          break;
        }
        RowElement* row = new RowElement();
        row->m_Name = String(kRowName);
        row->m_Values = std::move(values);
        row->m_LineNumber = line;
        scopes.back()->addChild(row);
        break;
      }
      default:
        CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                            << "Unsupported token " << token << Trace::End;
        failed = true;
        break;
    }
  }

  if (source.outOfMemory()) {
    // Not the text's fault: no message, and the caller may try again.
    delete top;
    top = nullptr;
    return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
  }
  if (failed) {
    CS_ASSERT(token != NULL);
    CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                        << "Error parsing token " << token << Trace::End;
  } else if (top == nullptr) {
    CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                        << "No top element found." << Trace::End;
    failed = true;
  } else if (!scopes.empty()) {
    CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                        << "No scope nesting matched." << Trace::End;
    failed = true;
  } else if (top->validate() == 0) {
    CS_TRACE(Trace::Error, kParseLabel) << "Parsing (line " << m_LineNumber << ") "
                                        << "Validation failed." << Trace::End;
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
