// MifParser::parseNarrow reads a narrow text a line at a time, decoding each
// line into a reused wide buffer. Whatever it makes of a text (code, tree,
// element line numbers, trace records, line count) must be what parse makes
// of the same text decoded whole with i_mbstowcs, which is what the cache did
// before; these tests hold the two side by side on texts chosen for the ways
// per-line decoding could differ, and pin the figures of the narrow entry.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifTestSupport.h"
#include "TestSupport.h"
#include "base/HostFaults.h"
#include "base/WideText.h"
#include "mifParser/MifParser.h"

using cstest::parseDifference;
using cstest::parseNarrowLines;
using cstest::ParseOutcome;
using cstest::parseWholeWide;
using cstest::treeDump;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;

namespace {

// A text of a template table with one value written as given.
std::string tableWith(const std::string& value) {
  return "start component\nstart group\nclass = \"C\"\nkey = 1\n"
         "start attribute\nid = 1\nname = \"N\"\nvalue = \"\"\nend attribute\nend group\n"
         "start table\nclass = \"C\"\n{\"" +
         value + "\"}\nend table\nend component\n";
}

struct Case {
  const char* what;
  std::string bytes;
};

std::vector<Case> hostileTexts() {
  using namespace std::string_literals;
  return {
      {"empty text", ""},
      {"only line feeds", "\n\n\n"},
      {"only blanks and tabs without a line feed", " \t \t"},
      {"blanks and tabs, then a line feed", " \t\n"},
      {"valid, final line feed", "start a\nv = 1\nend a\n"},
      {"valid, no final line feed", "start a\nv = 1\nend a"},
      {"leading blanks and tabs on every line", "\t start a\n  \t v = 1\n\t\tend a\n \t"},
      {"carriage returns before every line feed", "start a\r\nv = \"x\"\r\n{1}\r\nend a\r\n"},
      {"a row ending in a carriage return", "start table\n{1}\r\nend table\n"},
      {"a lone carriage return line", "start a\n\r\nend a\n"},
      {"carriage returns only", "\r\r\r\n\r"},
      {"carriage return in the middle of a name", "start a\rb\nend a\rb\n"},
      {"UTF-8 in names, values and rows", "start caf\xc3\xa9\nv = \xe2\x82\xac\nend caf\xc3\xa9\n"},
      {"UTF-8 of every length in a row", tableWith("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80")},
      {"Latin-1 bytes (invalid UTF-8)", "start caf\xe9\nv = \xe9t\xe9\nend caf\xe9\n"},
      {"two-byte lead right before a line feed", "start a\nv = x\xc3\nend a\n"},
      {"three-byte sequence cut by a line feed", "start a\nv = \xe2\x82\nend a\n"},
      {"four-byte sequence cut by a line feed", "start a\nv = \xf0\x9f\x98\nend a\n"},
      {"lead byte alone on a line", "start a\n\xe2\nend a\n"},
      {"continuation bytes after a line feed", "start a\nv = \xe2\n\x82\xac\nend a\n"},
      {"invalid UTF-8 at the very end, no line feed", "start a\nend a\n\xf0\x9f"},
      {"overlong line feed (C0 8A) does not end a line",
       "start a\nv = 1\xc0\x8a"
       "end a\nend a\n"},
      {"overlong blank before a keyword",
       "start a\n\xc0\xa0"
       "end a\n"},
      {"encoded surrogate and code point above the range",
       "start a\nv = \xed\xa0\x80\xf4\x90\x80\x80\nend a\n"},
      {"malformed line with invalid bytes", "start a\n\xff\xfe garbage\nend a\n"},
      {"zero byte ends the text after a whole tree", "start a\nend a\n\0start b\nend b\n"s},
      {"zero byte in the middle of a line", "start a\nv = x\0y\nend a\n"s},
      {"zero byte right after a line feed", "start a\n\0end a\n"s},
      {"zero byte first", "\0start a\nend a\n"s},
      {"zero byte inside a multi-byte sequence", "start a\nv = \xe2\0\xac\nend a\n"s},
      {"comments only", "// one\n// two\n"},
      {"a variable before any scope", "v = 1\nstart a\nend a\n"},
      {"wrong end scope", "start group\nend table\n"},
      {"end with no open scope", "start a\nend a\nend a\n"},
      {"second top scope", "start a\nend a\nstart b\nend b\n"},
      {"unclosed scope, no final line feed", "start a\nstart b\nend b"},
      {"unclosed scope, trailing empty lines", "start a\n\n\n"},
      {"unclosed scope, trailing blanks", "start a\n   "},
      {"row outside a table fails validation", "start group\n{1}\nend group\n"},
      {"empty variable name fails validation", "start a\n= 1\nend a\n"},
      {"bad row", "start table\n{a\"b\"}\nend table\n"},
      {"start keyword with a tab", "start\ta\nend a\n"},
  };
}

TEST(MifParserNarrowFeedTest, NarrowFeedMatchesWholeTextDecodingOnHostileTexts) {
  for (const Case& c : hostileTexts()) {
    const ParseOutcome wide = parseWholeWide(c.bytes);
    const ParseOutcome narrow = parseNarrowLines(c.bytes);
    EXPECT_EQ(parseDifference(wide, narrow), "") << c.what;
  }
}

TEST(MifParserNarrowFeedTest, HostileTextsCoverSuccessAndEveryFailureMessage) {
  // The comparison above is only worth as much as the texts it runs on.
  std::vector<std::string> texts;
  int successes = 0;
  for (const Case& c : hostileTexts()) {
    const ParseOutcome narrow = parseNarrowLines(c.bytes);
    if (narrow.code == 0) ++successes;
    for (const TraceRecord& r : narrow.records) texts.push_back(cstest::narrow(r.text));
  }
  EXPECT_GE(successes, 8);
  for (const char* message :
       {"Malformed token", "No scope element found.", "Wrong end scope element",
        "No top element found.", "No scope nesting matched.", "Validation failed.",
        "Error parsing token"}) {
    bool seen = false;
    for (const std::string& t : texts) seen = seen || t.find(message) != std::string::npos;
    EXPECT_TRUE(seen) << message;
  }
}

TEST(MifParserNarrowFeedTest, EveryPrefixOfAHostileTextMatches) {
  // Every cut point, including those inside multi-byte sequences and right
  // before or after a line feed or a carriage return.
  const std::string text =
      "\t// c\xc3\xa9\r\n start t\xc3\xa9"
      "ble\n  class = \"\xe2\x82\xac\"\r\n"
      "start table\n{\"\xf0\x9f\x98\x80\", \xe9, \"a\\\"b\"}\n{ , \"\"}\r\nend table\n"
      "end t\xc3\xa9"
      "ble\n";
  for (std::size_t n = 0; n <= text.size(); ++n) {
    const std::string prefix = text.substr(0, n);
    EXPECT_EQ(parseDifference(parseWholeWide(prefix), parseNarrowLines(prefix)), "")
        << "prefix of " << n;
  }
}

TEST(MifParserNarrowFeedTest, LineByLineDecodingEqualsWholeTextDecoding) {
  // The property the narrow entry rests on, on pseudo-random bytes drawn
  // mostly from line feeds, carriage returns, lead and continuation bytes.
  const unsigned char alphabet[] = {'\n', '\n', '\r', ' ',  '\t', 'a',  '{',  '}',
                                    0x80, 0x8a, 0xbf, 0xc0, 0xc3, 0xa9, 0xe2, 0x82,
                                    0xac, 0xed, 0xa0, 0xf0, 0x9f, 0x98, 0xf4, 0xff};
  std::uint32_t state = 12345;
  for (int round = 0; round < 2000; ++round) {
    std::string bytes;
    const int length = round % 64;
    for (int i = 0; i < length; ++i) {
      state = state * 1103515245u + 12345u;
      bytes.push_back(static_cast<char>(alphabet[(state >> 16) % sizeof alphabet]));
    }
    std::wstring joined;
    std::size_t begin = 0;
    for (;;) {
      const std::size_t end = bytes.find('\n', begin);
      const std::size_t stop = end == std::string::npos ? bytes.size() : end;
      std::vector<wchar_t> line(stop - begin + 1);
      line.resize(hostDecodeNarrowInto(line.data(), bytes.data() + begin, stop - begin));
      joined.append(line.begin(), line.end());
      if (end == std::string::npos) break;
      joined.push_back(L'\n');
      begin = end + 1;
    }
    ASSERT_EQ(joined, hostDecodeNarrow(bytes.data(), bytes.size())) << round;
    ASSERT_EQ(parseDifference(parseWholeWide(bytes), parseNarrowLines(bytes)), "") << round;
  }
}

TEST(MifParserNarrowFeedTest, LinesLongerThanAnyBeforeGrowTheLineBuffer) {
  std::string text = "start table\n{1}\n";
  for (std::size_t size : {100u, 255u, 256u, 257u, 1000u, 70000u, 300000u, 10u}) {
    text += "{\"" + std::string(size, 'x') + "\xc3\xa9\"}\n";
  }
  text += "end table\n";
  const ParseOutcome narrow = parseNarrowLines(text);
  ASSERT_EQ(narrow.code, 0);
  EXPECT_EQ(parseDifference(parseWholeWide(text), narrow), "");
  MifElement* top = nullptr;
  MifParser parser;
  ASSERT_EQ(parser.parseNarrow(text.c_str(), top), 0);
  ASSERT_EQ(top->childrenSize(), 9u);
  for (unsigned i = 0; i < 9; ++i)
    EXPECT_EQ(top->getChildAt(i)->m_LineNumber, static_cast<int>(i) + 2);
  delete top;
}

// ---------------------------------------------------------- pinned figures

TEST(MifParserNarrowFeedTest, EndOfTextErrorsCountTheLinesReadPlusTheFinalCall) {
  using namespace std::string_literals;
  struct Expected {
    std::string bytes;
    const char* message;
  };
  const Expected cases[] = {
      {"", "Parsing (line 1) No top element found."},
      {"// c", "Parsing (line 2) No top element found."},
      {"// c\n", "Parsing (line 2) No top element found."},
      {"// c\n\n", "Parsing (line 3) No top element found."},
      {"// c\n  \t", "Parsing (line 2) No top element found."},
      {"start a", "Parsing (line 2) No scope nesting matched."},
      {"start a\n", "Parsing (line 2) No scope nesting matched."},
      {"start a\n\n", "Parsing (line 3) No scope nesting matched."},
      {"start a\nend a\n\0start b\n"s, "<none>"},
      {"start a\nstart b\n\0end b\nend a\n"s, "Parsing (line 3) No scope nesting matched."},
      {"start group\n{1}\nend group", "Parsing (line 4) Validation failed."},
  };
  for (const Expected& e : cases) {
    const std::string& bytes = e.bytes;
    cstest::TraceCapture trace;
    MifParser parser;
    MifElement* top = nullptr;
    const TErrorCode rc = parser.parseNarrow(bytes.c_str(), top);
    const std::vector<std::string> texts = trace.texts(Trace::Error);
    const std::string last = texts.empty() ? "<none>" : texts.back();
    EXPECT_EQ(last, e.message) << cstest::narrow(hostDecodeNarrow(bytes.data(), bytes.size()));
    EXPECT_EQ(rc, texts.empty() ? 0 : CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
    delete top;
  }
}

TEST(MifParserNarrowFeedTest, AZeroByteEndsTheTextAsWholeTextDecodingDoes) {
  using namespace std::string_literals;
  const std::string bytes = "start a\nend a\n\0start b\nend b\n"s;
  MifParser parser;
  MifElement* top = nullptr;
  ASSERT_EQ(parser.parseNarrow(bytes.c_str(), top), 0);
  EXPECT_EQ(treeDump(top), "Scope <a>\n");
  EXPECT_EQ(parser.getLineNumber(), 3u);
  EXPECT_EQ(parser.getPosition(), 14u);
  delete top;

  const std::string cut = "start a\nv = x\0y\nend a\n"s;
  cstest::TraceCapture trace;
  EXPECT_EQ(parser.parseNarrow(cut.c_str(), top), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(top, nullptr);
  EXPECT_EQ(trace.texts(Trace::Error),
            (std::vector<std::string>{"Parsing (line 3) No scope nesting matched."}));
}

TEST(MifParserNarrowFeedTest, PositionCountsBytesAndTheTextIsLeftAsItWas) {
  const std::string bytes = "start caf\xc3\xa9\n  v = \xe2\x82\xac\nend caf\xc3\xa9";
  // The text as it was, to compare with after the parse.
  const std::string copy = bytes;  // NOLINT(performance-unnecessary-copy-initialization)
  MifParser parser;
  MifElement* top = nullptr;
  ASSERT_EQ(parser.parseNarrow(bytes.c_str(), top), 0);
  EXPECT_EQ(treeDump(top), "Scope <caf\xc3\xa9>\n  Variable <v = \xe2\x82\xac>\n");
  EXPECT_EQ(parser.getPosition(), bytes.size());
  EXPECT_EQ(parser.getLineNumber(), 4u);
  EXPECT_EQ(bytes, copy);
  EXPECT_EQ(std::strlen(bytes.c_str()), bytes.size());
  delete top;
}

TEST(MifParserNarrowFeedTest, NullNarrowTextIsInvalidArgumentAndLeavesTop) {
  cstest::TraceCapture trace;
  MifParser parser;
  MifElement* const sentinel = reinterpret_cast<MifElement*>(0x1);
  MifElement* top = sentinel;
  EXPECT_EQ(parser.parseNarrow(nullptr, top), -101);
  EXPECT_EQ(top, sentinel);
  EXPECT_TRUE(trace.records().empty());
}

TEST(MifParserNarrowFeedTest, OneParserAlternatesBetweenEntriesAndCountsAfresh) {
  MifParser parser;
  MifElement* top = nullptr;
  EXPECT_EQ(parser.parseNarrow("start a\nstart b\nx", top),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  wchar_t wide[] = L"start c\nv = 1\nend c";
  ASSERT_EQ(parser.parse(wide, top), 0);
  EXPECT_EQ(top->getChildAt(0)->m_LineNumber, 2);
  delete top;
  cstest::TraceCapture trace;
  EXPECT_EQ(parser.parseNarrow("x", top), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(trace.texts().front(), "Parsing (line 1) Malformed token x");
  ASSERT_EQ(parser.parseNarrow("\n\nstart d\nend d", top), 0);
  EXPECT_EQ(top->m_LineNumber, 3);
  delete top;
}

}  // namespace
