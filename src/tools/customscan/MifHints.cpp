#include "MifHints.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <utility>

#include "VisibleText.h"
#include "base/String.h"
#include "base/WideTextExtras.h"
#include "mifParser/MifParser.h"
#include "mifParser/RowElement.h"

using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;

namespace CustomScanTool {

namespace {

const char kBom[] = "\xEF\xBB\xBF";
const char kNoBreakSpace[] = "\xC2\xA0";

std::string number(std::size_t n) { return std::to_string(n); }

std::string quoted(std::string_view text) {
  return "\"" + VisibleText::of(std::string(text)) + "\"";
}

// What a line of each type is to the agent, for "to the agent the line is ...".
const char* describe(MifParser::TokenType type) {
  switch (type) {
    case MifParser::Empty:
      return "empty";
    case MifParser::Comment:
      return "a comment";
    case MifParser::StartScope:
      return "a start line";
    case MifParser::EndScope:
      return "an end line";
    case MifParser::Variable:
      return "a variable";
    case MifParser::Row:
      return "a row";
    case MifParser::Malformed:
    default:
      return "malformed";
  }
}

// What String::trim removes, and what the tokenizer skips before a line.
bool isTrimmed(char c) { return static_cast<unsigned char>(c) <= 0x20; }
bool isLeadingBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trimmed(std::string_view text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && isTrimmed(text[begin])) ++begin;
  while (end > begin && isTrimmed(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

std::string lowerAscii(std::string_view view) {
  std::string text(view);
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

std::size_t countOf(std::string_view text, char c) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
}

// One line of the text as the plug-in's tokenizer hands it out: the bytes
// up to the line feed, leading blanks and tabs skipped.
struct Line {
  int number = 0;
  std::string_view token;  // into the text, which outlives the lines
  MifParser::TokenType type = MifParser::Empty;
};

// The plug-in's own reading of single lines.
class Tokenizer {
 public:
  MifParser::TokenType typeOf(std::string_view token) const {
    return m_Parser.getTokenType(wide(token).c_str());
  }
  bool rowParses(std::string_view token) const {
    std::vector<RowElement::RowElementStruct> values;
    return m_Parser.getRowValues(wide(token).c_str(), values) == 0;
  }
  // The variable's name and value as the parser stores them.
  void variable(std::string_view token, std::string& name, std::string& value) const {
    String wideName;
    String wideValue;
    m_Parser.getVariableData(wide(token).c_str(), wideName, wideValue);
    name = wideName.toNarrow();
    value = wideValue.toNarrow();
  }
  std::string startName(std::string_view token) const {
    String name;
    m_Parser.getStartScopeName(wide(token).c_str(), name);
    return name.toNarrow();
  }

 private:
  static std::wstring wide(std::string_view token) {
    return hostDecodeNarrow(token.data(), token.size());
  }
  MifParser m_Parser;
};

// Keeps at most MifHints::kPerKind hints of a kind and counts the rest.
class HintList {
 public:
  void add(int line, const std::string& kind, std::string message) {
    Count& count = m_Counts[kind];
    if (count.kept < MifHints::kPerKind) {
      m_Hints.push_back(MifHint{line, kind, std::move(message)});
      ++count.kept;
      return;
    }
    if (count.omitted == 0 || line < count.firstOmitted) count.firstOmitted = line;
    ++count.omitted;
  }

  std::vector<MifHint> finish() {
    for (const auto& entry : m_Counts) {
      const Count& count = entry.second;
      if (count.omitted == 0) continue;
      m_Hints.push_back(MifHint{count.firstOmitted, entry.first,
                                number(count.omitted) + " more line(s) like the " + entry.first +
                                    " hints above, from line " + number(count.firstOmitted) +
                                    " on"});
    }
    std::stable_sort(m_Hints.begin(), m_Hints.end(),
                     [](const MifHint& a, const MifHint& b) { return a.line < b.line; });
    return std::move(m_Hints);
  }

 private:
  struct Count {
    std::size_t kept = 0;
    std::size_t omitted = 0;
    int firstOmitted = 0;
  };
  std::vector<MifHint> m_Hints;
  std::map<std::string, Count> m_Counts;
};

// Zero bytes and carriage returns, which only the raw bytes show.
void findInvisibleBytes(const std::string& raw, MifRoute::Kind route, HintList& hints) {
  int line = 1;
  int firstZeroLine = 0;
  std::size_t zeros = 0;
  std::size_t firstZero = std::string::npos;
  int firstCrLine = 0;
  std::size_t crLines = 0;
  std::size_t lineStart = 0;
  for (std::size_t i = 0; i <= raw.size(); ++i) {
    const bool lineEnd = i == raw.size() || raw[i] == '\n';
    if (i < raw.size() && raw[i] == '\0') {
      if (zeros++ == 0) {
        firstZeroLine = line;
        firstZero = i;
      }
    }
    if (!lineEnd) continue;
    // An output file's text ends at its first zero byte: nothing after it
    // reaches the parser.
    const bool seen = route == MifRoute::Stdout || firstZero == std::string::npos;
    std::string bytes = raw.substr(lineStart, i - lineStart);
    if (!seen && firstZero >= lineStart) bytes.resize(firstZero - lineStart);
    std::size_t end = bytes.size();
    while (end > 0 && bytes[end - 1] == '\r') --end;
    if (end < bytes.size() && crLines++ == 0) firstCrLine = line;
    if (bytes.find('\r') < end) {
      hints.add(line, "cr-alone",
                "line " + number(line) +
                    " holds a carriage return (CR) that no line feed follows: the agent ends "
                    "lines at line feeds only, so " +
                    (route == MifRoute::Stdout
                         ? std::string("the stdout route drops the CR and the text on both "
                                       "sides of it is one line")
                         : std::string("the CR stays inside the line")));
    }
    if (!seen) break;
    lineStart = i + 1;
    ++line;
  }
  if (crLines > 0) {
    const std::string others =
        crLines > 1 ? " (as do " + number(crLines - 1) + " more lines)" : std::string();
    hints.add(firstCrLine, "cr",
              "line " + number(firstCrLine) + " ends in CR LF" + others + ": " +
                  (route == MifRoute::Stdout
                       ? std::string("the stdout route drops every CR byte, so the agent reads "
                                     "LF line ends; the file route (the \"output\" property) "
                                     "keeps them, and a row line would then not end in '}'")
                       : std::string("the file route keeps the CR bytes; the agent trims them "
                                     "from start, end and variable lines, but a row line then "
                                     "does not end in '}'; the stdout route drops them")));
  }
  if (zeros > 0) {
    hints.add(firstZeroLine, "zero-byte",
              route == MifRoute::Stdout
                  ? "line " + number(firstZeroLine) + " holds a zero byte (" + number(zeros) +
                        " in the text): the stdout route drops zero bytes without trace"
                  : "line " + number(firstZeroLine) +
                        " holds a zero byte: read from an output file the text ends there, "
                        "and the agent ignores the " +
                        number(raw.size() - firstZero - 1) + " byte(s) after it");
  }
}

// The lines keep views into text.
std::vector<Line> splitLines(std::string&& text, const Tokenizer& tokenizer) = delete;
std::vector<Line> splitLines(const std::string& text, const Tokenizer& tokenizer) {
  std::vector<Line> lines;
  std::size_t start = 0;
  int lineNumber = 1;
  while (start <= text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::size_t tokenStart = start;
    while (tokenStart < end && isLeadingBlank(text[tokenStart])) ++tokenStart;
    Line line;
    line.number = lineNumber++;
    line.token = std::string_view(text).substr(tokenStart, end - tokenStart);
    line.type = tokenizer.typeOf(line.token);
    lines.push_back(line);
    if (end == text.size()) break;
    start = end + 1;
  }
  return lines;
}

// A text that the hints can quote: at most this many characters of it.
std::string excerpt(std::string_view text) {
  const std::size_t kMax = 60;
  if (text.size() <= kMax) return quoted(text);
  std::size_t cut = kMax;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return quoted(text.substr(0, cut)) + "...";
}

class LineHints {
 public:
  LineHints(const std::vector<Line>& lines, const Tokenizer& tokenizer, HintList& hints)
      : m_Lines(lines), m_Tokenizer(tokenizer), m_Hints(hints) {}

  void run() {
    for (std::size_t i = 0; i < m_Lines.size(); ++i) {
      const Line& line = m_Lines[i];
      byteOrderMark(line);
      tabAfterKeyword(line);
      std::size_t last = i;
      if (!line.token.empty() && line.token[0] == '{') {
        last = row(i);
      } else if (line.type == MifParser::Variable) {
        last = variable(i);
      }
      trackGroups(line);
      // The lines that continue a string or a row are explained by its hint.
      for (std::size_t k = i + 1; k <= last; ++k) trackGroups(m_Lines[k]);
      i = last;
    }
    while (!m_Scopes.empty()) popScope();
  }

 private:
  struct Scope {
    std::string name;
    int line = 0;
    int idLine = 0;
    int keyLine = 0;
    std::string idName;  // as written
    std::string keyName;
    int ids = 0;
    int keys = 0;
    bool hasClass = false;
  };

  void add(const Line& line, const char* kind, const std::string& message) {
    m_Hints.add(line.number, kind, "line " + number(line.number) + " " + message);
  }

  void byteOrderMark(const Line& line) {
    if (!startsWith(line.token, kBom)) return;
    std::string_view rest = line.token.substr(3);
    rest.remove_prefix(std::min(rest.size(), rest.find_first_not_of(" \t")));
    const MifParser::TokenType without = m_Tokenizer.typeOf(rest);
    std::string effect;
    if (without == line.type && line.type == MifParser::Variable) {
      effect = "it becomes the first character of the variable's name";
    } else {
      effect = std::string("to the agent the line is ") + describe(line.type) + ", not " +
               describe(without);
    }
    add(line, "bom",
        "begins with a UTF-8 byte order mark (bytes EF BB BF), which the agent does not skip: " +
            effect + "; write the text without a byte order mark");
  }

  void tabAfterKeyword(const Line& line) {
    const std::string lower = lowerAscii(line.token.substr(0, 8));
    for (const char* keyword : {"start", "end"}) {
      if (!startsWith(lower, keyword)) continue;
      const std::string_view after = line.token.substr(std::strlen(keyword));
      const char* what = nullptr;
      if (!after.empty() && after[0] == '\t') what = "a tab";
      if (startsWith(after, kNoBreakSpace)) what = "a no-break space (U+00A0)";
      if (what == nullptr) return;
      add(line, "tab-after-keyword",
          std::string("has ") + what + " after \"" +
              std::string(line.token.substr(0, std::strlen(keyword))) +
              "\": the keyword must be followed by a blank, so to the agent the line is " +
              describe(line.type));
      return;
    }
  }

  // A line that begins with "{"; returns the last line that its hint covers.
  std::size_t row(std::size_t index) {
    const Line& line = m_Lines[index];
    const std::string_view token = line.token;
    std::size_t end = token.size();
    while (end > 0 && isTrimmed(token[end - 1])) --end;
    if (line.type == MifParser::Row) {
      rowQuotes(line);
      return index;
    }
    if (end > 0 && token[end - 1] == '}') {
      const std::string_view tail = token.substr(end);
      const std::size_t blanks = countOf(tail, ' ');
      const std::size_t tabs = countOf(tail, '\t');
      if (blanks + tabs > 0) {
        std::string what = blanks + tabs > 1 ? number(blanks + tabs) + " " : std::string("a ");
        what += tabs == 0 ? (blanks > 1 ? "blanks" : "blank")
                          : (blanks == 0 ? (tabs > 1 ? "tabs" : "tab") : "blanks and tabs");
        add(line, "blank-after-brace",
            "has " + what +
                " after the row's closing '}': a row must end at its '}', so to the agent the "
                "line is " +
                describe(line.type));
      }
      if (tail.find('\r') != std::string_view::npos) {
        add(line, "cr-row",
            std::string("ends in a carriage return after the row's '}', which the file route "
                        "keeps: to the agent the line is ") +
                describe(line.type) + ", not a row");
      }
      return index;
    }
    // A row that its line does not close: look for the line that does.
    for (std::size_t k = index + 1; k < m_Lines.size() && k <= index + kLookahead(); ++k) {
      const Line& next = m_Lines[k];
      std::string_view closing = next.token;
      while (!closing.empty() && isTrimmed(closing.back())) closing.remove_suffix(1);
      const bool closes = !closing.empty() && closing.back() == '}' && next.token[0] != '{' &&
                          (next.type == MifParser::Malformed || next.type == MifParser::Variable);
      if (closes) {
        add(line, "row-spans-lines",
            "opens a row that line " + number(next.number) +
                " closes: a row must stand on one line, so to the agent line " +
                number(line.number) + " is " + describe(line.type) + " and line " +
                number(next.number) + " is " + describe(next.type));
        return k;
      }
      if (next.type != MifParser::Malformed) break;
    }
    add(line, "row-unclosed",
        std::string("begins a row that does not end in '}': to the agent the line is ") +
            describe(line.type));
    return index;
  }

  // A row that the agent reads: a tab beside a quote breaks it, and a quote
  // left open swallows the rest of the row.
  void rowQuotes(const Line& line) {
    const std::string_view token = line.token;
    if (!m_Tokenizer.rowParses(token)) {
      std::string blanked(token);
      std::replace(blanked.begin(), blanked.end(), '\t', ' ');
      if (blanked != token && m_Tokenizer.rowParses(blanked)) {
        add(line, "tab-in-row",
            "has a tab beside a quoted value of the row: only blanks may stand before an "
            "opening quote or after a closing one, so the agent cannot read the row (with "
            "blanks for the tabs it could)");
      }
      return;
    }
    // The same item walk as the plug-in's: blanks, then a quoted text or an
    // unquoted one; a backslash takes the next character.
    const std::size_t end = token.size() - 1;  // the closing brace
    std::size_t p = 1;
    for (int item = 1;; ++item) {
      while (p < end && token[p] == ' ') ++p;
      if (p < end && token[p] == '"') {
        std::size_t q = p + 1;
        while (q < end && token[q] != '"') q += token[q] == '\\' ? 2 : 1;
        if (q >= end) {
          add(line, "unbalanced-quote",
              "opens value " + number(static_cast<std::size_t>(item)) +
                  " of the row with a quote that is never closed: the agent reads the rest of "
                  "the row, commas and all, as that one value");
          return;
        }
        p = q + 1;
      }
      while (p < end && token[p] != ',') p += token[p] == '\\' ? 2 : 1;
      if (p >= end) return;
      ++p;
    }
  }

  // A variable line; returns the last line that its hint covers.
  std::size_t variable(std::size_t index) {
    const Line& line = m_Lines[index];
    const std::string_view written = trimmed(line.token.substr(line.token.find('=') + 1));
    const bool opens = !written.empty() && written.front() == '"';
    const bool closes = written.size() >= 2 && written.back() == '"';
    if (opens == closes) return index;
    std::string name;
    std::string value;
    m_Tokenizer.variable(line.token, name, value);
    if (opens) {
      for (std::size_t k = index + 1; k < m_Lines.size() && k <= index + kLookahead(); ++k) {
        const Line& next = m_Lines[k];
        if (next.type != MifParser::Malformed && next.type != MifParser::Empty) break;
        if (countOf(next.token, '"') % 2 == 0) continue;
        const Line& after = m_Lines[index + 1];
        add(line, "continued-string",
            "opens a quoted string that line " + number(next.number) +
                " closes: the agent reads one line at a time and this dialect does not "
                "continue a string on the next line, so the value of " +
                quoted(name) + " is " + excerpt(value) + " and line " + number(after.number) +
                " is " + describe(after.type) + "; write the string on one line");
        return k;
      }
    }
    add(line, "unbalanced-quote",
        "has a quote at one end only of the value of " + quoted(name) +
            ": the agent drops that quote, so the value is " + excerpt(value));
    return index;
  }

  // Scopes as the parser nests them, to find what a group holds.
  void trackGroups(const Line& line) {
    switch (line.type) {
      case MifParser::StartScope: {
        Scope scope;
        scope.name = m_Tokenizer.startName(line.token);
        scope.line = line.number;
        m_Scopes.push_back(scope);
        return;
      }
      case MifParser::EndScope:
        if (!m_Scopes.empty()) popScope();
        return;
      case MifParser::Variable: {
        if (m_Scopes.empty() || m_Scopes.back().name != "group") return;
        std::string name;
        std::string value;
        m_Tokenizer.variable(line.token, name, value);
        const std::string lower = lowerAscii(name);
        Scope& group = m_Scopes.back();
        if (lower == "id") {
          if (group.ids++ == 0) {
            group.idLine = line.number;
            group.idName = name;
          }
        } else if (lower == "key") {
          if (group.keys++ == 0) {
            group.keyLine = line.number;
            group.keyName = name;
          }
        } else if (lower == "class") {
          group.hasClass = true;
        }
        return;
      }
      default:
        return;
    }
  }

  void popScope() {
    const Scope scope = m_Scopes.back();
    m_Scopes.pop_back();
    if (scope.name != "group") return;
    if (scope.ids > 0 && scope.keys > 0) {
      const bool typeThree = scope.ids == 1 && scope.keys == 1;
      m_Hints.add(scope.line, "group-id-and-key",
                  "line " + number(scope.line) + " starts a group with both an id (" +
                      quoted(scope.idName) + ", line " + number(scope.idLine) + ") and a key (" +
                      quoted(scope.keyName) + ", line " + number(scope.keyLine) +
                      "): this dialect does not accept a group with both" +
                      (typeThree ? " (\"Unsupported group type (type = 3)\")" : "") +
                      "; keep the key for a table of rows, or the id for a group of one row");
    } else if (scope.ids == 0 && scope.keys == 0 && scope.hasClass) {
      m_Hints.add(scope.line, "group-without-type",
                  "line " + number(scope.line) +
                      " starts a group with neither an \"id\" nor a \"key\" (\"Unsupported "
                      "group type (type = 0)\"): give it \"key\" for a table of rows, or \"id\" "
                      "for a group of one row");
    }
  }

  static std::size_t kLookahead() { return static_cast<std::size_t>(MifHints::kLookahead); }

  const std::vector<Line>& m_Lines;
  const Tokenizer& m_Tokenizer;
  HintList& m_Hints;
  std::vector<Scope> m_Scopes;
};

}  // namespace

std::vector<MifHint> MifHints::find(const std::string& raw, MifRoute::Kind route) {
  HintList hints;
  findInvisibleBytes(raw, route, hints);
  const Tokenizer tokenizer;
  const std::string text = MifRoute::agentBytes(raw, route);
  const std::vector<Line> lines = splitLines(text, tokenizer);
  LineHints(lines, tokenizer, hints).run();
  return hints.finish();
}

}  // namespace CustomScanTool
