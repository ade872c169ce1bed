#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "TestSupport.h"
#include "mifParser/MifParser.h"

using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;

namespace {

std::string show(const std::wstring& text) { return cstest::narrow(text); }

class MifParserTokenizerTest : public ::testing::Test {
 protected:
  // Every token of text, in order, as getNextToken hands them out.
  std::vector<std::wstring> tokensOf(std::wstring text) {
    std::vector<wchar_t> buffer(text.begin(), text.end());
    buffer.push_back(L'\0');
    std::vector<std::wstring> tokens;
    while (const wchar_t* token = parser.getNextToken(buffer.data())) tokens.emplace_back(token);
    return tokens;
  }

  MifParser parser;
};

// ------------------------------------------------------------------ tokens

TEST_F(MifParserTokenizerTest, TwoLinesGiveTwoTokensThenTheEnd) {
  EXPECT_EQ(tokensOf(L"a\nb"), (std::vector<std::wstring>{L"a", L"b"}));
}

TEST_F(MifParserTokenizerTest, ALineFeedAtTheEndGivesNoExtraToken) {
  EXPECT_EQ(tokensOf(L"a\n"), (std::vector<std::wstring>{L"a"}));
}

TEST_F(MifParserTokenizerTest, LeadingLineFeedsGiveEmptyTokens) {
  EXPECT_EQ(tokensOf(L"\n\nx"), (std::vector<std::wstring>{L"", L"", L"x"}));
}

TEST_F(MifParserTokenizerTest, ZeroLengthTextHasNoTokens) { EXPECT_TRUE(tokensOf(L"").empty()); }

TEST_F(MifParserTokenizerTest, LeadingBlanksAndTabsAreSkippedTrailingOnesKept) {
  EXPECT_EQ(tokensOf(L" \t a b \t\n\t\tc"), (std::vector<std::wstring>{L"a b \t", L"c"}));
}

TEST_F(MifParserTokenizerTest, ABlankLineEndingInLineFeedIsAnEmptyToken) {
  EXPECT_EQ(tokensOf(L"a\n \t \nb"), (std::vector<std::wstring>{L"a", L"", L"b"}));
}

TEST_F(MifParserTokenizerTest, ABlankLastStretchIsTheEnd) {
  EXPECT_EQ(tokensOf(L"a\n \t "), (std::vector<std::wstring>{L"a"}));
}

TEST_F(MifParserTokenizerTest, CarriageReturnStaysOnItsLine) {
  EXPECT_EQ(tokensOf(L"a\r\n\r\nb\r"), (std::vector<std::wstring>{L"a\r", L"\r", L"b\r"}));
}

TEST_F(MifParserTokenizerTest, LineFeedsBecomeNullsAndLinesAreCounted) {
  wchar_t text[] = L"ab\ncd\n";
  EXPECT_EQ(parser.getLineNumber(), 0u);
  EXPECT_STREQ(parser.getNextToken(text), L"ab");
  EXPECT_EQ(parser.getLineNumber(), 1u);
  EXPECT_EQ(parser.getPosition(), 3u);
  EXPECT_EQ(text[2], L'\0');
  EXPECT_STREQ(parser.getNextToken(text), L"cd");
  EXPECT_EQ(parser.getLineNumber(), 2u);
  EXPECT_EQ(text[5], L'\0');
  // The call that finds the end is counted too.
  EXPECT_EQ(parser.getNextToken(text), nullptr);
  EXPECT_EQ(parser.getLineNumber(), 3u);
  EXPECT_EQ(parser.getPosition(), 6u);
  EXPECT_EQ(parser.getNextToken(text), nullptr);
  EXPECT_EQ(parser.getLineNumber(), 4u);
}

TEST_F(MifParserTokenizerTest, TheLastLineWithoutLineFeedLeavesThePositionOnTheNull) {
  wchar_t text[] = L"xyz";
  EXPECT_STREQ(parser.getNextToken(text), L"xyz");
  EXPECT_EQ(parser.getPosition(), 3u);
  EXPECT_EQ(parser.getNextToken(text), nullptr);
}

TEST_F(MifParserTokenizerTest, NullTextGivesNullAndCountsNothing) {
  EXPECT_EQ(parser.getNextToken(nullptr), nullptr);
  EXPECT_EQ(parser.getLineNumber(), 0u);
  EXPECT_EQ(parser.getPosition(), 0u);
}

// ------------------------------------------------------------- token types

TEST_F(MifParserTokenizerTest, TokenTypes) {
  struct Case {
    const wchar_t* token;
    MifParser::TokenType type;
  };
  const Case cases[] = {
      {nullptr, MifParser::Malformed},
      {L"", MifParser::Empty},
      {L"//", MifParser::Comment},
      {L"// start x", MifParser::Comment},
      {L"//a = b", MifParser::Comment},
      {L"/", MifParser::Malformed},
      {L"/ / x", MifParser::Malformed},
      {L"x // comment", MifParser::Malformed},
      {L"a = 1 // comment", MifParser::Variable},
      {L"start x", MifParser::StartScope},
      {L"START Group", MifParser::StartScope},
      {L"StArT  x  ", MifParser::StartScope},
      {L"start x = 1", MifParser::StartScope},
      {L"start {a}", MifParser::StartScope},
      {L"start", MifParser::Malformed},
      {L"start ", MifParser::Malformed},
      {L"start\tx", MifParser::Malformed},
      {L"startx", MifParser::Malformed},
      {L"start\tx = 1", MifParser::Variable},
      {L"end x", MifParser::EndScope},
      {L"END Group", MifParser::EndScope},
      {L"end = 1", MifParser::EndScope},
      {L"end", MifParser::Malformed},
      {L"end ", MifParser::Malformed},
      {L"end\tx", MifParser::Malformed},
      {L"endx = 1", MifParser::Variable},
      {L"{}", MifParser::Row},
      {L"{a, b}", MifParser::Row},
      {L"{a = b}", MifParser::Row},
      {L"{a}}", MifParser::Row},
      {L"{", MifParser::Malformed},
      {L"}", MifParser::Malformed},
      {L"{a} ", MifParser::Malformed},
      {L"{a}\r", MifParser::Malformed},
      {L"{a=1} ", MifParser::Variable},
      {L"{a=1}\r", MifParser::Variable},
      {L"a=b", MifParser::Variable},
      {L"=", MifParser::Variable},
      {L"a = b\r", MifParser::Variable},
      {L"abc", MifParser::Malformed},
      {L"\r", MifParser::Malformed},
      {L" ", MifParser::Malformed},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(parser.getTokenType(c.token), c.type) << (c.token ? show(c.token) : "<null>");
  }
}

// ------------------------------------------------------------- scope names

TEST_F(MifParserTokenizerTest, StartLineWithLeadingBlanksAndCapitalsNamesALowerCaseScope) {
  wchar_t text[] = L"  START Group";
  const wchar_t* token = parser.getNextToken(text);
  ASSERT_EQ(parser.getTokenType(token), MifParser::StartScope);
  String name;
  EXPECT_EQ(parser.getStartScopeName(token, name), 0);
  EXPECT_EQ(toWideString(name), L"group");
}

TEST_F(MifParserTokenizerTest, ScopeNames) {
  struct Case {
    const wchar_t* token;
    bool start;  // getStartScopeName, else getEndScopeName
    TErrorCode code;
    const wchar_t* name;
  };
  const TErrorCode fail = CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  const Case cases[] = {
      {L"start Group", true, 0, L"group"},   {L"start   Two Words \t ", true, 0, L"two words"},
      {L"start x = 1", true, 0, L"x = 1"},   {L"start \r", true, 0, L""},
      {L"START ÄÖ", true, 0, L"äö"},         {L"end Table", false, 0, L"table"},
      {L"END  GROUP\r", false, 0, L"group"}, {nullptr, true, fail, L"untouched"},
      {nullptr, false, fail, L"untouched"},  {L"start ", true, fail, L"untouched"},
      {L"start", true, fail, L"untouched"},  {L"start\tx", true, fail, L"untouched"},
      {L"end x", true, fail, L"untouched"},  {L"start x", false, fail, L"untouched"},
      {L"end ", false, fail, L"untouched"},
  };
  for (const Case& c : cases) {
    String name(L"untouched");
    const TErrorCode rc =
        c.start ? parser.getStartScopeName(c.token, name) : parser.getEndScopeName(c.token, name);
    const std::string label = c.token ? show(c.token) : "<null>";
    EXPECT_EQ(rc, c.code) << label;
    EXPECT_EQ(toWideString(name), c.name) << label;
  }
}

// --------------------------------------------------------------- variables

TEST_F(MifParserTokenizerTest, VariableData) {
  struct Case {
    const wchar_t* token;
    const wchar_t* name;
    const wchar_t* value;
  };
  const Case cases[] = {
      {L"name = \"x\\\"y\"", L"name", L"x\\\"y"},  // escapes stay as written
      {L"key = a = b", L"key", L"a = b"},
      {L"Class=\"Disks\"", L"Class", L"Disks"},
      {L"  id  =  3  ", L"id", L"3"},
      {L"\"quoted name\" = v", L"quoted name", L"v"},
      {L"a = \"", L"a", L""},
      {L"a = \"\"", L"a", L""},
      {L"a = \"open", L"a", L"open"},
      {L"a = close\"", L"a", L"close"},
      {L"a = \"in\"side\"", L"a", L"in\"side"},
      {L"a =", L"a", L""},
      {L"= v", L"", L"v"},
      {L"=", L"", L""},
      {L"a = b\r", L"a", L"b"},
      {L"a\t=\tb\t", L"a", L"b"},
      {L"path = c:\\dir\\\\x", L"path", L"c:\\dir\\\\x"},
      {L"a = {1, 2}", L"a", L"{1, 2}"},
  };
  for (const Case& c : cases) {
    String name;
    String value;
    EXPECT_EQ(parser.getVariableData(c.token, name, value), 0) << show(c.token);
    EXPECT_EQ(toWideString(name), c.name) << show(c.token);
    EXPECT_EQ(toWideString(value), c.value) << show(c.token);
  }
}

TEST_F(MifParserTokenizerTest, VariableDataFailsWithoutEqualsSignOrToken) {
  String name(L"n");
  String value(L"v");
  EXPECT_EQ(parser.getVariableData(L"no separator", name, value),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(parser.getVariableData(nullptr, name, value),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(toWideString(name), L"n");
  EXPECT_EQ(toWideString(value), L"v");
}

// ------------------------------------------------------- quotes and escapes

TEST_F(MifParserTokenizerTest, RemoveQuotes) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"\"abc\"", L"abc"},     {L"\"abc", L"abc"},       {L"abc\"", L"abc"}, {L"\"", L""},
      {L"\"\"", L""},           {L"\"\"\"", L"\""},       {L"a\"b", L"a\"b"}, {L"", L""},
      {L" \"a\" ", L" \"a\" "}, {L"\"\"a\"\"", L"\"a\""},
  };
  for (const auto& c : cases) {
    String text(c.first);
    EXPECT_EQ(&parser.removeQuotes(text), &text);
    EXPECT_EQ(toWideString(text), c.second) << show(c.first);
  }
}

TEST_F(MifParserTokenizerTest, Unescape) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {LR"(a\\b)", LR"(a\b)"},      {LR"(\")", LR"(")"},      {LR"(say \"hi\")", LR"(say "hi")"},
      {LR"(c:\dir)", LR"(c:\dir)"}, {LR"(\n\t)", LR"(\n\t)"}, {LR"(\\\\)", LR"(\\)"},
      {LR"(\\\")", LR"(\")"},       {LR"(\\\)", LR"(\\)"},    {LR"(a\)", LR"(a\)"},
      {LR"(\)", LR"(\)"},           {LR"(\,)", LR"(\,)"},     {L"", L""},
      {L"plain", L"plain"},
  };
  for (const auto& c : cases) {
    String text(c.first);
    EXPECT_EQ(&parser.unescape(text), &text);
    EXPECT_EQ(toWideString(text), c.second) << show(c.first);
  }
}

// --------------------------------------------------------------- row values

TEST_F(MifParserTokenizerTest, RowValue) {
  struct Case {
    const wchar_t* item;
    bool isEmpty;
    const wchar_t* value;
  };
  const Case cases[] = {
      {L"", true, L""},
      {L"  \t ", true, L""},
      {L"\"\"", false, L""},
      {L" a ", false, L"a"},
      {LR"( "a\"b" )", false, LR"(a"b)"},
      {LR"(c:\\dir)", false, LR"(c:\dir)"},
      {L"\"", false, L""},
  };
  for (const Case& c : cases) {
    RowElement::RowElementStruct value;
    value.isEmpty = !c.isEmpty;
    value.value = String(L"old");
    EXPECT_EQ(&parser.getRowValue(c.item, value), &value);
    EXPECT_EQ(value.isEmpty, c.isEmpty) << show(c.item);
    EXPECT_EQ(toWideString(value.value), c.value) << show(c.item);
  }
}

TEST_F(MifParserTokenizerTest, RowValueOfNullIsAnAssertion) {
  RowElement::RowElementStruct value;
  EXPECT_DEATH(parser.getRowValue(nullptr, value), "mifParser/MifParser.*i_Item != __null");
}

// One line per row text: the values it yields, an empty item written as
// <empty>, or failure.
struct RowCase {
  const wchar_t* token;
  bool ok;
  std::vector<std::wstring> values;
};
const wchar_t kEmpty[] = L"<empty>";

TEST_F(MifParserTokenizerTest, RowValues) {
  const RowCase cases[] = {
      {L"{}", true, {kEmpty}},
      {L"{,}", true, {kEmpty, kEmpty}},
      {L"{,,}", true, {kEmpty, kEmpty, kEmpty}},
      {L"{ , , }", true, {kEmpty, kEmpty, kEmpty}},
      {L"{   }", true, {kEmpty}},
      {L"{\"\"}", true, {L""}},
      {L"{\"\", \"\"}", true, {L"", L""}},
      {L"{a}", true, {L"a"}},
      {L"{a,}", true, {L"a", kEmpty}},
      {L"{,a}", true, {kEmpty, L"a"}},
      {L"{a, b, c}", true, {L"a", L"b", L"c"}},
      {L"{a b}", true, {L"a b"}},
      {L"{  a  ,  b  }", true, {L"a", L"b"}},
      {L"{\ta\t,\tb\t}", true, {L"a", L"b"}},
      {L"{a\r}", true, {L"a"}},
      {L"{ \"a, b\" , c }", true, {L"a, b", L"c"}},
      {L"{\"x,y\",z,\"w\"}", true, {L"x,y", L"z", L"w"}},
      {L"{\"a\"  ,b}", true, {L"a", L"b"}},
      {L"{\"a\" , \"b\" , \"\"}", true, {L"a", L"b", L""}},
      {L"{\"a\",}", true, {L"a", kEmpty}},
      {LR"({"say \"hi\"", c:\\dir})", true, {LR"(say "hi")", LR"(c:\dir)"}},
      {LR"({  "a, \"b\""  })", true, {LR"(a, "b")"}},
      {LR"({a\,b})", true, {LR"(a\,b)"}},
      {LR"({a\\,b})", true, {LR"(a\)", L"b"}},
      {LR"({c:\dir})", true, {LR"(c:\dir)"}},
      {LR"({a\})", true, {LR"(a\)"}},
      {LR"({"a\\"})", true, {LR"(a\)"}},
      {LR"({"a\"})", true, {LR"(a\)"}},
      {L"{\"abc}", true, {L"abc"}},
      {L"{\"a,b}", true, {L"a,b"}},
      {L"{\"}", true, {L""}},
      {L"{a = b}", true, {L"a = b"}},
      {L"{a}}", true, {L"a}"}},
      {L"{{a}}", true, {L"{a}"}},
      {L"{a\"b\"}", false, {}},
      {L"{a\"}", false, {}},
      {L"{\"a\" x}", false, {}},
      {L"{\"a\"b}", false, {}},
      {L"{\"a\"\"b\"}", false, {}},
      {L"{\t\"a\"}", false, {}},
      {L"{ \"a\"\t}", false, {}},
      {LR"({\"a})", false, {}},
      {L"{a, b\"c\"}", false, {L"a"}},  // items before the failure stay
  };
  for (const RowCase& c : cases) {
    std::vector<RowElement::RowElementStruct> values;
    const TErrorCode rc = parser.getRowValues(c.token, values);
    EXPECT_EQ(rc, c.ok ? 0 : CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF) << show(c.token);
    std::vector<std::wstring> got;
    for (const auto& v : values) {
      if (v.isEmpty) {
        EXPECT_TRUE(isEmpty(v.value)) << show(c.token);
      }
      got.push_back(v.isEmpty ? std::wstring(kEmpty) : toWideString(v.value));
    }
    EXPECT_EQ(got, c.values) << show(c.token);
  }
}

TEST_F(MifParserTokenizerTest, NonRowTextsYieldNothingAndSucceed) {
  const wchar_t* tokens[] = {nullptr, L"", L"a,b", L"{a", L"a}", L"{", L"}", L"{a} ", L"{a}\r"};
  for (const wchar_t* token : tokens) {
    std::vector<RowElement::RowElementStruct> values;
    EXPECT_EQ(parser.getRowValues(token, values), 0) << (token ? show(token) : "<null>");
    EXPECT_TRUE(values.empty()) << (token ? show(token) : "<null>");
  }
}

TEST_F(MifParserTokenizerTest, RowValuesAppendToWhatIsThere) {
  std::vector<RowElement::RowElementStruct> values(1);
  values[0].value = String(L"kept");
  EXPECT_EQ(parser.getRowValues(L"{x}", values), 0);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(toWideString(values[0].value), L"kept");
  EXPECT_EQ(toWideString(values[1].value), L"x");
}

}  // namespace
