#include "mifParser/MifParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifTestSupport.h"
#include "TestSupport.h"

using cstest::MifTree;
using cstest::treeDump;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;

namespace {

const char kParseLabel[] = "MifParser::parse(MemoryBuffer *, MifElement *&)";

std::string show(const std::wstring& text) { return cstest::narrow(text); }

// ------------------------------------------------------------ accepted texts

struct Accepted {
  const char* what;
  std::wstring text;
  std::string dump;
};

TEST(MifParserTest, AcceptedTextsBuildTheseTrees) {
  const Accepted cases[] = {
      {"one empty scope", L"start component\nend component", "Scope <component>\n"},
      {"line feed after the last line", L"start a\nend a\n", "Scope <a>\n"},
      {"scope names are lower-cased before they are compared", L"START Group\nend GROUP",
       "Scope <group>\n"},
      {"scope names are trimmed", L"start   Disks  \t\nend disks", "Scope <disks>\n"},
      {"a start line holding an equals sign names a scope", L"start x = 1\nEnd X = 1",
       "Scope <x = 1>\n"},
      {"comments and empty lines anywhere",
       L"// header\n\nstart a\n   // indented comment\n\n\tb = 1\n//\nend a\n\n// trailer\n",
       "Scope <a>\n  Variable <b = 1>\n"},
      {"carriage returns are trimmed from names and values",
       L"start a\r\nname = \"x\"\r\nend a\r\n", "Scope <a>\n  Variable <name = x>\n"},
      {"leading blanks and tabs", L" \t start a\n\t\t k = v\n  end a",
       "Scope <a>\n  Variable <k = v>\n"},
      {"variable values keep escapes, an empty value is allowed",
       L"start a\nname = \"x\\\"y\"\nempty =\nkey = a = b\nend a",
       "Scope <a>\n  Variable <name = x\\\"y>\n  Variable <empty = >\n  Variable <key = a = b>\n"},
      {"rows inside a table, their values unescaped",
       L"start table\nclass = \"T\"\n{\"sda\", 100}\n{\"say \\\"hi\\\"\", , \"\"}\n{a = b}\nend "
       L"table",
       "Scope <table>\n  Variable <class = T>\n  Row <sda | 100>\n  Row <say \"hi\" |  | >\n  Row "
       "<a = b>\n"},
      {"a table nested in a group", L"start group\nstart table\n{1}\nend table\nend group",
       "Scope <group>\n  Scope <table>\n    Row <1>\n"},
      {"a variable named like a keyword but without its blank",
       L"start a\nstartx = 1\nendx = 2\nend a",
       "Scope <a>\n  Variable <startx = 1>\n  Variable <endx = 2>\n"},
      {"the template example",
       L"start component\n"
       L"start group\nclass = \"Disks\"\nkey = 1\n"
       L"start attribute\nid = 1\nname = \"Device\"\nvalue = \"\"\nend attribute\n"
       L"start attribute\nid = 2\nname = \"Size\"\nvalue = \"0\"\nend attribute\n"
       L"end group\n"
       L"start table\nclass = \"Disks\"\n{\"sda\", 100}\n{\"sdb\", }\nend table\n"
       L"end component\n",
       "Scope <component>\n"
       "  Scope <group>\n"
       "    Variable <class = Disks>\n"
       "    Variable <key = 1>\n"
       "    Scope <attribute>\n"
       "      Variable <id = 1>\n"
       "      Variable <name = Device>\n"
       "      Variable <value = >\n"
       "    Scope <attribute>\n"
       "      Variable <id = 2>\n"
       "      Variable <name = Size>\n"
       "      Variable <value = 0>\n"
       "  Scope <table>\n"
       "    Variable <class = Disks>\n"
       "    Row <sda | 100>\n"
       "    Row <sdb | >\n"},
  };
  for (const Accepted& c : cases) {
    cstest::TraceCapture trace(Trace::Error);
    MifTree tree(c.text);
    EXPECT_EQ(tree.code(), 0) << c.what;
    EXPECT_EQ(treeDump(tree.top()), c.dump) << c.what;
    EXPECT_TRUE(trace.records().empty()) << c.what;
  }
}

// -------------------------------------------------------------- failing texts

struct Rejected {
  const char* what;
  std::wstring text;
  std::vector<std::string> messages;
};

TEST(MifParserTest, RejectedTextsFailWithTheseMessages) {
  const Rejected cases[] = {
      {"an empty text has no top element", L"", {"Parsing (line 1) No top element found."}},
      {"only comments and empty lines",
       L"// c\n\n// d",
       {"Parsing (line 4) No top element found."}},
      {"only blank lines", L"  \n\t\n", {"Parsing (line 3) No top element found."}},
      {"a variable before the first start line",
       L"// c\na = 1\nstart x\nend x",
       {"Parsing (line 2) No scope element found.", "Parsing (line 2) Error parsing token a = 1"}},
      {"a row before the first start line",
       L"{a}",
       {"Parsing (line 1) No scope element found.", "Parsing (line 1) Error parsing token {a}"}},
      {"an end line that closes the wrong scope",
       L"start group\nend table",
       {"Parsing (line 2) Wrong end scope element, found table expected group",
        "Parsing (line 2) Error parsing token end table"}},
      {"an end line naming a scope with an equals sign",
       L"start a\nend b = 1",
       {"Parsing (line 2) Wrong end scope element, found b = 1 expected a",
        "Parsing (line 2) Error parsing token end b = 1"}},
      {"an end line after the top scope was closed",
       L"start a\nend a\nend a",
       {"Parsing (line 3) No scope element found.", "Parsing (line 3) Error parsing token end a"}},
      {"a second start line at the outermost level",
       L"start a\nend a\nstart b\nend b",
       {"Parsing (line 3) No scope element found.",
        "Parsing (line 3) Error parsing token start b"}},
      {"the last scope is not closed",
       L"start a\nstart b\nend b\n",
       {"Parsing (line 4) No scope nesting matched."}},
      {"nothing is closed", L"start a\nstart b", {"Parsing (line 3) No scope nesting matched."}},
      {"a malformed line",
       L"// c\nstart a\n\ngarbage\nend a",
       {"Parsing (line 4) Malformed token garbage",
        "Parsing (line 4) Error parsing token garbage"}},
      {"text before a comment marker",
       L"start a\nx // y\nend a",
       {"Parsing (line 2) Malformed token x // y", "Parsing (line 2) Error parsing token x // y"}},
      {"a bare end keyword",
       L"start a\nend",
       {"Parsing (line 2) Malformed token end", "Parsing (line 2) Error parsing token end"}},
      {"a tab after the start keyword",
       L"start\ta",
       {"Parsing (line 1) Malformed token start\ta",
        "Parsing (line 1) Error parsing token start\ta"}},
      {"a row line ending in a carriage return",
       L"start table\n{a}\r\nend table",
       {"Parsing (line 2) Malformed token {a}\r", "Parsing (line 2) Error parsing token {a}\r"}},
      {"a row whose values do not parse",
       L"start table\n{a\"b\"}\nend table",
       {"Parsing (line 2) Error parsing token {a\"b\"}"}},
      {"text after a closing quote",
       L"start table\n{\"a\" x, b}\nend table",
       {"Parsing (line 2) Error parsing token {\"a\" x, b}"}},
      {"a row directly inside a group",
       L"start group\n{a}\nend group",
       {"Validation (line 1) scope = group The child row is of an expected type.",
        "Parsing (line 4) Validation failed."}},
      {"a scope inside a table",
       L"start table\nstart attribute\nend attribute\nend table\n",
       {"Validation (line 1) scope = table The child attribute is of an expected type.",
        "Parsing (line 5) Validation failed."}},
      {"a variable with an empty name, deep down",
       L"start component\nstart group\nstart attribute\n = v\nend attribute\nend group\nend "
       L"component",
       {"Validation (line 4) name =  value = v",
        "Validation (line 3) scope = attribute The child  is not valid.",
        "Validation (line 2) scope = group The child attribute is not valid.",
        "Validation (line 1) scope = component The child group is not valid.",
        "Parsing (line 8) Validation failed."}},
      {"the first failing line ends the parse",
       L"start a\nbad one\nbad two\nend a",
       {"Parsing (line 2) Malformed token bad one",
        "Parsing (line 2) Error parsing token bad one"}},
  };
  for (const Rejected& c : cases) {
    cstest::TraceCapture trace;
    MifTree tree(c.text);
    EXPECT_EQ(tree.code(), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF) << c.what;
    EXPECT_EQ(tree.top(), nullptr) << c.what;
    EXPECT_EQ(trace.texts(), c.messages) << c.what;
    for (const TraceRecord& record : trace.records()) EXPECT_EQ(record.level, 1) << c.what;
  }
}

TEST(MifParserTest, ParserRecordsCarryTheParseLabelAndSource) {
  cstest::TraceCapture trace(Trace::Scope);
  MifTree tree(L"start a\nbad\nend a");
  ASSERT_EQ(trace.records().size(), 2u);
  for (const TraceRecord& record : trace.records()) {
    EXPECT_EQ(record.label, kParseLabel);
    EXPECT_EQ(record.component, 5);
    EXPECT_EQ(record.file, "../../../../src/plugins/CustomScanPlugin/mifParser/MifParser");
  }
  ASSERT_FALSE(trace.scopes().empty());
  EXPECT_EQ(trace.scopes().front().label, kParseLabel);
  EXPECT_TRUE(trace.scopes().front().entering);
  EXPECT_EQ(trace.scopes().back().label, kParseLabel);
  EXPECT_FALSE(trace.scopes().back().entering);
}

TEST(MifParserTest, NullTextIsInvalidArgumentAndLeavesTop) {
  cstest::TraceCapture trace;
  MifParser parser;
  MifElement* const sentinel = reinterpret_cast<MifElement*>(0x1);
  MifElement* top = sentinel;
  EXPECT_EQ(parser.parse(nullptr, top), -101);
  EXPECT_EQ(top, sentinel);
  EXPECT_TRUE(trace.records().empty());
}

TEST(MifParserTest, FailureNullsTopSetBeforehand) {
  wchar_t text[] = L"start a";
  MifParser parser;
  MifElement* top = reinterpret_cast<MifElement*>(0x1);
  EXPECT_EQ(parser.parse(text, top), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(top, nullptr);
}

TEST(MifParserTest, ElementsCarryTheLineTheyWereReadOn) {
  MifTree tree(L"// c\n\nstart table\n\tclass = x\n// d\n{1}\n\n{2}\nend table");
  ASSERT_EQ(tree.code(), 0);
  MifElement* top = tree.top();
  EXPECT_EQ(top->m_LineNumber, 3);
  ASSERT_EQ(top->childrenSize(), 3u);
  EXPECT_EQ(top->getChildAt(0)->m_LineNumber, 4);
  EXPECT_EQ(top->getChildAt(1)->m_LineNumber, 6);
  EXPECT_EQ(top->getChildAt(2)->m_LineNumber, 8);
  EXPECT_EQ(toWideString(top->getChildAt(1)->m_Name), L"row");
  EXPECT_EQ(top->getChildAt(1)->getType(), MifElement::Row);
}

TEST(MifParserTest, RowItemsKeepTheirEmptyMarks) {
  MifTree tree(L"start table\n{, \"\", x}\nend table");
  ASSERT_EQ(tree.code(), 0);
  auto* row = dynamic_cast<CustomScanPlugin::RowElement*>(tree.top()->getChildAt(0));
  ASSERT_NE(row, nullptr);
  ASSERT_EQ(row->m_Values.size(), 3u);
  EXPECT_TRUE(row->m_Values[0].isEmpty);
  EXPECT_FALSE(row->m_Values[1].isEmpty);
  EXPECT_TRUE(isEmpty(row->m_Values[1].value));
  EXPECT_FALSE(row->m_Values[2].isEmpty);
  EXPECT_EQ(toWideString(row->m_Values[2].value), L"x");
}

TEST(MifParserTest, TheTextIsCutAtEveryLineFeedRead) {
  wchar_t text[] = L"start a\nend a\n";
  MifParser parser;
  MifElement* top = nullptr;
  ASSERT_EQ(parser.parse(text, top), 0);
  delete top;
  EXPECT_EQ(text[7], L'\0');
  EXPECT_EQ(text[13], L'\0');
  EXPECT_EQ(std::wstring(text), L"start a");
}

TEST(MifParserTest, AParserCanBeReusedAndStartsCountingAfresh) {
  MifParser parser;
  wchar_t bad[] = L"start a\nstart b\nx";
  MifElement* top = nullptr;
  EXPECT_EQ(parser.parse(bad, top), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  wchar_t good[] = L"start c\nv = 1\nend c";
  ASSERT_EQ(parser.parse(good, top), 0);
  EXPECT_EQ(treeDump(top), "Scope <c>\n  Variable <v = 1>\n");
  EXPECT_EQ(top->getChildAt(0)->m_LineNumber, 2);
  delete top;
  cstest::TraceCapture trace;
  wchar_t late[] = L"x";
  EXPECT_EQ(parser.parse(late, top), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  EXPECT_EQ(trace.texts().front(), "Parsing (line 1) Malformed token x");
}

TEST(MifParserTest, MalformedTokenMessageQuotesTheWholeLine) {
  cstest::TraceCapture trace;
  const std::wstring line = L"this line is , not { anything";
  MifTree tree(L"start a\n" + line + L"\nend a");
  ASSERT_EQ(trace.texts().size(), 2u);
  EXPECT_EQ(trace.texts()[0], "Parsing (line 2) Malformed token " + show(line));
}

}  // namespace
