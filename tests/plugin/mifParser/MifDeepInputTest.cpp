// Large and deep MIF texts, built in memory. None of them may crash, exhaust
// the stack or fail without its code; the deep ones also run on a thread with
// a small stack.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifTestSupport.h"
#include "TestSupport.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"
#include "mifParser/MifUtil.h"

using cstest::MifTree;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;
using CustomScanPlugin::MifUtil;

namespace {

const std::size_t kDepth = 1000000;
const std::size_t kSmallStack = 256 * 1024;
const TErrorCode kParseFailed = CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;

// Runs body on a new thread whose stack is stackSize bytes.
void runOnStack(std::size_t stackSize, const std::function<void()>& body) {
  pthread_attr_t attr;
  ASSERT_EQ(pthread_attr_init(&attr), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attr, stackSize), 0);
  pthread_t thread;
  auto entry = [](void* arg) -> void* {
    (*static_cast<const std::function<void()>*>(arg))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, entry, const_cast<std::function<void()>*>(&body)), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attr);
}

std::wstring repeat(const std::wstring& piece, std::size_t count) {
  std::wstring out;
  out.reserve(piece.size() * count);
  for (std::size_t i = 0; i < count; ++i) out += piece;
  return out;
}

// Keeps the number of error records and the first and last two texts.
class CountingSink : public TraceSink {
 public:
  CountingSink() : m_Previous(TraceControl::getSink()) { TraceControl::setSink(this); }
  ~CountingSink() override { TraceControl::setSink(m_Previous); }
  int maxLevel() const override { return Trace::Error; }
  void record(const TraceRecord& record) override {
    ++count;
    if (first.size() < 2) first.push_back(cstest::narrow(record.text));
    last.push_back(cstest::narrow(record.text));
    if (last.size() > 2) last.erase(last.begin());
  }
  std::size_t count = 0;
  std::vector<std::string> first;
  std::vector<std::string> last;

 private:
  TraceSink* m_Previous;
};

// The depth of the leftmost path below top, walked without recursion.
std::size_t leftDepth(const MifElement* top) {
  std::size_t depth = 0;
  for (const MifElement* e = top; e != nullptr && e->getType() == MifElement::Scope;
       e = e->getChildAt(0))
    ++depth;
  return depth;
}

// kDepth - 1 nested scopes "s" around one scalar group of class Deep.
std::wstring deepGroupText() {
  return repeat(L"start s\n", kDepth - 1) +
         L"start group\nclass = Deep\nid = 1\nstart attribute\nname = Name\nvalue = bottom\nend "
         L"attribute\n"
         L"end group\n" +
         repeat(L"end s\n", kDepth - 1);
}

TEST(MifDeepInputTest, AMillionBalancedScopesParseValidateDumpAndDeleteOnASmallStack) {
  const std::wstring text = deepGroupText();
  runOnStack(kSmallStack, [&] {
    MifTree tree(text);
    ASSERT_EQ(tree.code(), 0);
    EXPECT_EQ(leftDepth(tree.top()), kDepth);
    EXPECT_NE(tree.top()->validate(), 0);

    const MifElement* found = nullptr;
    EXPECT_EQ(MifUtil::getScopeElement(String(L"group"), String(L"Deep"), tree.top(), found), 0);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->m_LineNumber, static_cast<int>(kDepth));
    EXPECT_EQ(MifUtil::getScopeElement(String(L"group"), String(L"Absent"), tree.top(), found), 0);
    EXPECT_EQ(found, nullptr);

    MifTable* table = nullptr;
    ASSERT_EQ(MifTable::getMifTable(tree.top(), String(L"Deep"), table), 0);
    std::unique_ptr<MifTable> owned(table);
    String value;
    EXPECT_EQ(table->getField(String(L"bottom"), String(L"Name"), value), 0);
    EXPECT_EQ(toWideString(value), L"bottom");

    cstest::TraceCapture trace;
    tree.top()->dump();
    ASSERT_EQ(trace.records().size(), 1u);
    const std::wstring dumped = trace.records()[0].text;
    // One tab per level on every line would be quadratic; the buffer stops at
    // its bound and says so.
    EXPECT_LE(dumped.size(),
              1 + MifElement::kDumpBufferLimit + std::wcslen(MifElement::kDumpTruncatedLine));
    const std::wstring mark(MifElement::kDumpTruncatedLine);
    ASSERT_GE(dumped.size(), mark.size());
    EXPECT_EQ(dumped.substr(dumped.size() - mark.size()), mark);
    EXPECT_EQ(dumped.find(L"Scope <s>\n\tScope <s>\n\t\tScope <s>\n"), 1u);
    // A full buffer is repeated as it is, the mark not written again.
    tree.top()->dump();
    ASSERT_EQ(trace.records().size(), 2u);
    EXPECT_TRUE(trace.records()[1].text == dumped);
  });
}

TEST(MifDeepInputTest, AMillionUnclosedScopesFailWithTheirCodeOnASmallStack) {
  const std::wstring text = repeat(L"start s\n", kDepth);
  runOnStack(kSmallStack, [&] {
    CountingSink sink;
    MifTree tree(text);
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(tree.top(), nullptr);
    EXPECT_EQ(sink.count, 1u);
    EXPECT_EQ(sink.last,
              std::vector<std::string>{"Parsing (line 1000001) No scope nesting matched."});
  });
}

TEST(MifDeepInputTest, AWrongEndAMillionLevelsDownFailsOnASmallStack) {
  const std::wstring text = repeat(L"start s\n", kDepth) + L"end t\n" + repeat(L"end s\n", kDepth);
  runOnStack(kSmallStack, [&] {
    CountingSink sink;
    MifTree tree(text);
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(sink.first, (std::vector<std::string>{
                              "Parsing (line 1000001) Wrong end scope element, found t expected s",
                              "Parsing (line 1000001) Error parsing token end t"}));
  });
}

TEST(MifDeepInputTest, AnInvalidRowAMillionLevelsDownIsReportedOncePerScopeInnermostFirst) {
  const std::wstring text = repeat(L"start s\n", kDepth) + L"{a}\n" + repeat(L"end s\n", kDepth);
  runOnStack(kSmallStack, [&] {
    CountingSink sink;
    MifTree tree(text);
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(sink.count, kDepth + 1);
    EXPECT_EQ(sink.first,
              (std::vector<std::string>{
                  "Validation (line 1000000) scope = s The child row is of an expected type.",
                  "Validation (line 999999) scope = s The child s is not valid."}));
    EXPECT_EQ(sink.last,
              (std::vector<std::string>{"Validation (line 1) scope = s The child s is not valid.",
                                        "Parsing (line 2000002) Validation failed."}));
  });
}

TEST(MifDeepInputTest, ADeepTreeBuiltByHandIsDeletedOnASmallStack) {
  runOnStack(kSmallStack, [] {
    MifElement* top = cstest::newScope(L"s");
    MifElement* bottom = top;
    for (std::size_t i = 1; i < kDepth; ++i) {
      MifElement* child = cstest::newScope(L"s", {cstest::newVariable(L"v", L"1")});
      bottom->addChild(child);
      bottom = child;
    }
    EXPECT_NE(top->validate(), 0);
    delete top;
  });
}

TEST(MifDeepInputTest, OneLineOfAHundredMillionCharactersAsAValue) {
  const std::size_t size = 100 * 1000 * 1000;
  std::wstring text = L"start a\nv = ";
  text.append(size, L'x');
  text += L"\nend a\n";
  MifTree tree(text);
  ASSERT_EQ(tree.code(), 0);
  auto* variable = dynamic_cast<CustomScanPlugin::VariableElement*>(tree.top()->getChildAt(0));
  ASSERT_NE(variable, nullptr);
  EXPECT_EQ(variable->m_Value.length(), static_cast<int>(size));
}

TEST(MifDeepInputTest, OneLineOfAHundredMillionCharactersAsARowValue) {
  const std::size_t size = 100 * 1000 * 1000;
  std::wstring text = L"start table\n{\"";
  text.append(size, L'y');
  text += L"\"}\nend table";
  MifTree tree(text);
  ASSERT_EQ(tree.code(), 0);
  auto* row = dynamic_cast<CustomScanPlugin::RowElement*>(tree.top()->getChildAt(0));
  ASSERT_NE(row, nullptr);
  ASSERT_EQ(row->m_Values.size(), 1u);
  EXPECT_EQ(row->m_Values[0].value.length(), static_cast<int>(size));
}

TEST(MifDeepInputTest, OneMalformedLineOfAHundredMillionCharacters) {
  std::wstring text = L"start a\n";
  text.append(100 * 1000 * 1000, L'z');
  text += L"\nend a";
  MifTree tree(text);
  EXPECT_EQ(tree.code(), kParseFailed);
}

TEST(MifDeepInputTest, AMillionRowsBuildAMillionKeys) {
  const std::size_t rows = 1000000;
  std::wstring text =
      L"start component\nstart group\nclass = Big\nkey = 1\n"
      L"start attribute\nid = 1\nname = K\nend attribute\n"
      L"start attribute\nid = 2\nname = V\nvalue = dflt\nend attribute\nend group\n"
      L"start table\nclass = Big\n";
  text.reserve(text.size() + rows * 20);
  for (std::size_t i = 0; i < rows; ++i) {
    text += L"{k" + std::to_wstring(i) + (i % 2 == 0 ? L", \"v\"}\n" : L", }\n");
  }
  text += L"end table\nend component\n";
  MifTree tree(text);
  ASSERT_EQ(tree.code(), 0);
  MifTable* raw = nullptr;
  ASSERT_EQ(MifTable::getMifTable(tree.top(), String(L"Big"), raw), 0);
  std::unique_ptr<MifTable> table(raw);
  EXPECT_EQ(table->getRowNumber(), rows);
  String value;
  EXPECT_EQ(table->getField(String(L"k999999"), String(L"V"), value), 0);
  EXPECT_EQ(toWideString(value), L"dflt");
  EXPECT_EQ(table->getField(String(L"k0"), String(L"V"), value), 0);
  EXPECT_EQ(toWideString(value), L"v");
}

TEST(MifDeepInputTest, AMillionEmptyLinesHoldNoTopElement) {
  CountingSink sink;
  MifTree tree(repeat(L"\n", kDepth));
  EXPECT_EQ(tree.code(), kParseFailed);
  EXPECT_EQ(sink.last, std::vector<std::string>{"Parsing (line 1000001) No top element found."});
}

TEST(MifDeepInputTest, AQuoteNeverClosedAcrossAMillionCommasIsOneValue) {
  std::wstring text = L"start table\n{\"" + repeat(L"a,", kDepth) + L"}\nv = \"open\nend table";
  MifTree tree(text);
  ASSERT_EQ(tree.code(), 0);
  auto* row = dynamic_cast<CustomScanPlugin::RowElement*>(tree.top()->getChildAt(0));
  ASSERT_NE(row, nullptr);
  ASSERT_EQ(row->m_Values.size(), 1u);
  EXPECT_EQ(row->m_Values[0].value.length(), static_cast<int>(2 * kDepth));
  auto* variable = dynamic_cast<CustomScanPlugin::VariableElement*>(tree.top()->getChildAt(1));
  ASSERT_NE(variable, nullptr);
  EXPECT_EQ(toWideString(variable->m_Value), L"open");
}

TEST(MifDeepInputTest, ABackslashAsTheLastCharacter) {
  {
    cstest::TraceCapture trace;
    MifTree tree(L"start a\nend a\n\\");
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(trace.texts().front(), "Parsing (line 3) Malformed token \\");
  }
  {
    MifTree tree(L"start table\n{a\\}\nv = b\\\nend table");
    ASSERT_EQ(tree.code(), 0);
    EXPECT_EQ(cstest::treeDump(tree.top()), "Scope <table>\n  Row <a\\>\n  Variable <v = b\\>\n");
  }
  {
    cstest::TraceCapture trace;
    MifTree tree(L"start a\nv = x\\");
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(trace.texts(),
              std::vector<std::string>{"Parsing (line 3) No scope nesting matched."});
  }
}

TEST(MifDeepInputTest, CarriageReturnsAreTrimmedFromNamesButBreakRowLines) {
  const std::wstring head =
      L"start component\r\nstart group\r\nclass = \"C\"\r\nkey = 1\r\n"
      L"start attribute\r\nid = 1\r\nname = \"K\"\r\nend attribute\r\nend group\r\n";
  {
    MifTree tree(head + L"end component\r\n");
    ASSERT_EQ(tree.code(), 0);
    EXPECT_EQ(
        cstest::treeDump(tree.top()),
        "Scope <component>\n  Scope <group>\n    Variable <class = C>\n    Variable <key = 1>\n"
        "    Scope <attribute>\n      Variable <id = 1>\n      Variable <name = K>\n");
  }
  {
    cstest::TraceCapture trace;
    MifTree tree(head + L"start table\r\nclass = C\r\n{a}\r\nend table\r\nend component\r\n");
    EXPECT_EQ(tree.code(), kParseFailed);
    EXPECT_EQ(trace.texts().front(), "Parsing (line 12) Malformed token {a}\r");
  }
}

TEST(MifDeepInputTest, TabsLeadTrailAndSitInsideValues) {
  MifTree tree(L"\tstart\ta\n");
  EXPECT_EQ(tree.code(), kParseFailed);
  MifTree ok(L"\t\tstart a\t\n\t v\t=\tx\ty\t\n\t{1}\t= 2\n\tend a\t");
  ASSERT_EQ(ok.code(), 0);
  EXPECT_EQ(cstest::treeDump(ok.top()), "Scope <a>\n  Variable <v = x\ty>\n  Variable <{1} = 2>\n");
}

}  // namespace
