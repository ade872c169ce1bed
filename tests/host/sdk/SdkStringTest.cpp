#include "sdk/SdkString.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "base/HostFaults.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "sdk/SdkStringExtras.h"

namespace {

using PluginSDK::String;
using PluginSDK::StringVector;

class SdkStringTest : public ::testing::Test {};

TEST_F(SdkStringTest, DefaultIsEmpty) {
  String s;
  EXPECT_TRUE(s.empty());
  EXPECT_EQ(s.length(), 0u);
  EXPECT_STREQ(s.c_str(), L"");
}

TEST_F(SdkStringTest, NullNarrowPointerGivesEmptyString) {
  String s(static_cast<const char*>(nullptr));
  EXPECT_TRUE(s.empty());
  EXPECT_STREQ(s.c_str(), L"");
}

TEST_F(SdkStringTest, NullWidePointerGivesEmptyString) {
  String s(static_cast<const wchar_t*>(nullptr));
  EXPECT_TRUE(s.empty());
}

TEST_F(SdkStringTest, AssigningNullOfEitherKindEmptiesTheString) {
  String s(L"full");
  s = static_cast<const char*>(nullptr);
  EXPECT_TRUE(s.empty());
  s = L"full";
  s = static_cast<const wchar_t*>(nullptr);
  EXPECT_TRUE(s.empty());
}

TEST_F(SdkStringTest, AssignsWideAndNarrowText) {
  String s;
  s = L"wide \u00e9";
  EXPECT_EQ(toWideString(s), L"wide \u00e9");
  s = "narrow \xc3\xa9";
  EXPECT_EQ(toWideString(s), L"narrow \u00e9");
  // The empty wide string, as a result operation resets its result.
  s = L"";
  EXPECT_TRUE(s.empty());
}

TEST_F(SdkStringTest, NarrowTextDecodesAsTheBaseStringDoes) {
  String s("caf\xe9 \xe2\x82\xac");
  std::wstring expected = L"caf";
  expected.push_back(static_cast<wchar_t>(0xDCE9));
  expected += L" \u20ac";
  EXPECT_EQ(toWideString(s), expected);
}

TEST_F(SdkStringTest, TrimRemovesEverythingUpToBlankAtBothEnds) {
  String s(L"\t\r\n  value with  blanks \x01\x20");
  EXPECT_EQ(toWideString(s.trim()), L"value with  blanks");
  EXPECT_EQ(toWideString(String(L"  \t ").trim()), L"");
  EXPECT_EQ(toWideString(String(L"\u00a0x\u00a0").trim()), L"\u00a0x\u00a0");
  EXPECT_EQ(toWideString(String().trim()), L"");
}

TEST_F(SdkStringTest, AppendAddsWideTextAndIgnoresNull) {
  String s(L"a");
  s.append(L"b").append(nullptr).append(L"c");
  EXPECT_EQ(toWideString(s), L"abc");
}

TEST_F(SdkStringTest, ComparisonsAreExact) {
  EXPECT_TRUE(String(L"true") == String(L"true"));
  EXPECT_TRUE(String(L"true") != String(L"True"));
  EXPECT_TRUE(String(L"true") == L"true");
  EXPECT_FALSE(String(L"true") == L"TRUE");
  EXPECT_FALSE(String() == static_cast<const wchar_t*>(nullptr));
  EXPECT_TRUE(String() == L"");
}

TEST_F(SdkStringTest, ConvertsToWidePointer) {
  String s(L"abc");
  const wchar_t* p = s;
  EXPECT_STREQ(p, L"abc");
  EXPECT_EQ(p, s.c_str());
}

TEST_F(SdkStringTest, CopiesAreIndependent) {
  String a(L"one");
  String b = a;
  b.append(L"two");
  EXPECT_EQ(toWideString(a), L"one");
  EXPECT_EQ(toWideString(b), L"onetwo");
}

// ------------------------------------------------------------ StringVector

TEST_F(SdkStringTest, VectorStartsEmpty) {
  StringVector v;
  EXPECT_EQ(v.size(), 0u);
}

TEST_F(SdkStringTest, VectorAddStringKeepsOrderAndCopies) {
  StringVector v;
  wchar_t buffer[] = L"first";
  v.addString(buffer);
  buffer[0] = L'F';
  v.addString(L"second");
  v.addString(L"");
  ASSERT_EQ(v.size(), 3u);
  EXPECT_EQ(toWideString(v[0]), L"first");
  EXPECT_EQ(toWideString(v.get(1)), L"second");
  EXPECT_EQ(toWideString(v[2]), L"");
}

TEST_F(SdkStringTest, VectorAddStringOfNullAddsEmptyString) {
  StringVector v;
  v.addString(nullptr);
  ASSERT_EQ(v.size(), 1u);
  EXPECT_TRUE(v[0].empty());
}

TEST_F(SdkStringTest, VectorRemoveAllEmptiesIt) {
  StringVector v;
  v.addString(L"a");
  v.addString(L"b");
  v.removeAll();
  EXPECT_EQ(v.size(), 0u);
  v.removeAll();
  EXPECT_EQ(v.size(), 0u);
  v.addString(L"c");
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(toWideString(v[0]), L"c");
}

TEST_F(SdkStringTest, VectorGetOutOfRangeThrowsForHosts) {
  StringVector v;
  v.addString(L"a");
  EXPECT_THROW(v.get(1), std::out_of_range);
}

TEST_F(SdkStringTest, VectorGetOutOfRangeOfAnEmptiedListThrows) {
  StringVector v;
  v.addString(L"a");
  v.removeAll();
  EXPECT_THROW(v.get(0), std::out_of_range);
}

// Items of every form: empty, ASCII, Latin-1, beyond U+00FF, astral, a
// negative wide value, long; the list's index is crossed many times over.
std::vector<std::wstring> listItems(std::size_t count) {
  const std::vector<std::wstring> forms = {L"",
                                           L"a",
                                           L"line of text",
                                           L"caf\u00e9",
                                           L"\u20ac",
                                           L"\U0001F600",
                                           std::wstring(1, static_cast<wchar_t>(-7)),
                                           std::wstring(300, L'x'),
                                           std::wstring(200, L'\u0416'),
                                           std::wstring(1, static_cast<wchar_t>(0xDCFF))};
  std::vector<std::wstring> items;
  for (std::size_t i = 0; i < count; ++i) {
    std::wstring item = forms[(i * 7) % forms.size()];
    if (i % 3 == 0) item += std::to_wstring(i);
    items.push_back(item);
  }
  return items;
}

TEST_F(SdkStringTest, VectorGivesBackEveryItemOfEveryFormAtEveryIndex) {
  const std::vector<std::wstring> items = listItems(1000);
  StringVector v;
  for (const std::wstring& item : items) v.addString(item.c_str());
  ASSERT_EQ(v.size(), items.size());
  for (std::size_t i = 0; i < items.size(); ++i) EXPECT_EQ(toWideString(v[i]), items[i]) << i;
  std::size_t i = 0;
  forEachNarrowItem(v, [&](const std::string& narrow) {
    EXPECT_EQ(narrow, hostEncodeNarrow(items[i].data(), items[i].size())) << i;
    ++i;
  });
  EXPECT_EQ(i, items.size());
}

TEST_F(SdkStringTest, VectorCopiesAndMovesKeepTheItems) {
  const std::vector<std::wstring> items = listItems(300);
  StringVector v;
  for (const std::wstring& item : items) v.addString(item.c_str());
  StringVector copy(v);
  StringVector assigned;
  assigned.addString(L"replaced");
  assigned = v;
  v.addString(L"only in the original");
  StringVector moved(std::move(copy));
  StringVector moveAssigned;
  moveAssigned = std::move(assigned);
  for (const StringVector* list : {&moved, &moveAssigned}) {
    ASSERT_EQ(list->size(), items.size());
    for (std::size_t i = 0; i < items.size(); ++i) EXPECT_EQ(toWideString((*list)[i]), items[i]);
  }
  EXPECT_EQ(v.size(), items.size() + 1);
  EXPECT_EQ(toWideString(v[items.size()]), L"only in the original");
  EXPECT_EQ(copy.size(), 0u);       // NOLINT(bugprone-use-after-move): left empty
  copy.addString(L"usable again");  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(toWideString(copy[0]), L"usable again");
}

TEST_F(SdkStringTest, VectorOfMillionsOfEmptyLinesIsOneByteALine) {
  // The cost that matters for a scanner writing empty lines: the block of
  // text holds one byte an item, and the whole list reads back.
  StringVector v;
  const std::size_t n = 3000000;
  for (std::size_t i = 0; i < n; ++i) v.addString(L"");
  ASSERT_EQ(v.size(), n);
  EXPECT_EQ(toWideString(v[n - 1]), L"");
  EXPECT_EQ(toWideString(v[n / 2]), L"");
  std::size_t visited = 0;
  forEachNarrowItem(v, [&](const std::string& narrow) { visited += narrow.empty() ? 1 : 0; });
  EXPECT_EQ(visited, n);
}

TEST_F(SdkStringTest, VectorThatCannotGrowThrowsAndStaysAsItWas) {
  StringVector v;
  v.addString(L"kept");
  // The list grows through the host allocator: the next growth fails.
  const std::wstring big(100000, L'b');
  HostFaults::reset();
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_THROW(v.addString(big.c_str()), std::bad_alloc);
  HostFaults::reset();
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(toWideString(v[0]), L"kept");
  v.addString(L"after");
  EXPECT_EQ(toWideString(v[1]), L"after");
}

TEST_F(SdkStringTest, CopiesOfAResultStringShareItsText) {
  String a(std::string(1000, 'r').c_str());
  String b = a;
  String c;
  c = a;
  EXPECT_EQ(asciiView(baseString(b)), asciiView(baseString(a)));
  EXPECT_EQ(asciiView(baseString(c)), asciiView(baseString(a)));
  b.trim();
  b.append(L"!");
  EXPECT_EQ(toNarrow(a), std::string(1000, 'r'));
  EXPECT_EQ(toNarrow(b), std::string(1000, 'r') + "!");
}

TEST_F(SdkStringTest, NarrowTextRestoresTheBytesThatWereNotUtf8) {
  String s(
      "a\xff"
      "b\xc3\xa9");
  EXPECT_EQ(toNarrow(s), std::string("a\xff"
                                     "b\xc3\xa9"));
  EXPECT_EQ(toWideString(s), std::wstring(L"a") + static_cast<wchar_t>(0xDCFF) + L"b\u00e9");
}

}  // namespace
