#include "sdk/SdkString.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "TestSupport.h"

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

}  // namespace
