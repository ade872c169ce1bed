#include "base/String.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "base/HostFaults.h"
#include "base/Memory.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace {

class StringTest : public ::testing::Test {
 protected:
  void TearDown() override { HostFaults::reset(); }
};

// ------------------------------------------------------------ construction

TEST_F(StringTest, DefaultIsEmpty) {
  String s;
  EXPECT_EQ(s.length(), 0);
  EXPECT_TRUE(isEmpty(s));
  EXPECT_STREQ(s.c_str(), L"");
}

TEST_F(StringTest, NullWidePointerGivesEmptyString) {
  String s(static_cast<const wchar_t*>(nullptr));
  EXPECT_TRUE(isEmpty(s));
  EXPECT_STREQ(s.c_str(), L"");
}

TEST_F(StringTest, NullNarrowPointerGivesEmptyString) {
  String s(static_cast<const char*>(nullptr));
  EXPECT_TRUE(isEmpty(s));
}

TEST_F(StringTest, NullPointerWithCountGivesEmptyString) {
  String s(static_cast<const wchar_t*>(nullptr), 5);
  EXPECT_TRUE(isEmpty(s));
}

TEST_F(StringTest, WideWithCountKeepsEmbeddedZero) {
  const wchar_t text[] = {L'a', L'\0', L'b'};
  String s(text, 3);
  EXPECT_EQ(s.length(), 3);
  EXPECT_EQ(s.charAt(1), L'\0');
  EXPECT_EQ(s.charAt(2), L'b');
}

TEST_F(StringTest, NarrowWithCountIsTheDecodedByteRange) {
  EXPECT_TRUE(isEmpty(String(static_cast<const char*>(nullptr), 5)));
  EXPECT_TRUE(isEmpty(String("abc", 0)));
  // Short and long, ASCII, UTF-8, Latin-1 bytes (not UTF-8) and a sequence
  // cut by the count: the same as the text decoded whole.
  const std::string texts[] = {"a",
                               "/dev/vd00001",
                               "exactly twenty-two ch.",
                               "twenty-three characters",
                               std::string(300, 'x'),
                               "caf\xC3\xA9",
                               std::string(40, 'y') + "\xE2\x82\xAC",
                               "caf\xE9",
                               "\xF0\x9F\x98\x80"};
  for (const std::string& text : texts) {
    for (std::size_t count = 0; count <= text.size(); ++count) {
      const std::string bytes = text.substr(0, count);
      EXPECT_EQ(toWideString(String(text.data(), count)), toWideString(String(bytes.c_str())))
          << bytes;
    }
  }
  // Zero bytes are characters like any other.
  const char withZero[] = {'a', '\0', 'b'};
  const String s(withZero, 3);
  EXPECT_EQ(s.length(), 3);
  EXPECT_EQ(s.charAt(1), L'\0');
  EXPECT_EQ(s.charAt(2), L'b');
}

TEST_F(StringTest, FromStdWstringCopiesAndMoves) {
  std::wstring source = L"moved text";
  String copy = fromWideString(source);
  // An rvalue is taken too (as a copy: there is no moving constructor).
  String moved = fromWideString(std::move(source));  // NOLINT(performance-move-const-arg)
  EXPECT_EQ(toWideString(copy), L"moved text");
  EXPECT_EQ(toWideString(moved), L"moved text");
}

TEST_F(StringTest, CopiesAreIndependentValues) {
  String a(L"value");
  String b = a;
  b.concat(L"!");
  EXPECT_EQ(toWideString(a), L"value");
  EXPECT_EQ(toWideString(b), L"value!");
}

TEST_F(StringTest, ConvertsImplicitlyToWidePointer) {
  String s(L"abc");
  const wchar_t* p = s;
  EXPECT_STREQ(p, L"abc");
}

// ------------------------------------------------------------ charAt, indexOf

TEST_F(StringTest, CharAtReturnsEachCharacter) {
  String s(L"a\u00e9\U0001F600");
  EXPECT_EQ(s.length(), 3);
  EXPECT_EQ(s.charAt(0), L'a');
  EXPECT_EQ(s.charAt(1), L'\u00e9');
  EXPECT_EQ(static_cast<std::uint32_t>(s.charAt(2)), 0x1F600u);
}

TEST_F(StringTest, CharAtOutOfRangeYieldsZero) {
  String s(L"abc");
  EXPECT_EQ(s.charAt(-1), 0);
  EXPECT_EQ(s.charAt(3), 0);
  EXPECT_EQ(s.charAt(1000), 0);
  EXPECT_EQ(String().charAt(0), 0);
  EXPECT_EQ(String().charAt(-5), 0);
}

TEST_F(StringTest, IndexOfFindsFirstOccurrenceFromStart) {
  String s(L"a/b/c");
  EXPECT_EQ(s.indexOf(L'/'), 1);
  EXPECT_EQ(s.indexOf(L'/', 0), 1);
  EXPECT_EQ(s.indexOf(L'/', 1), 1);
  EXPECT_EQ(s.indexOf(L'/', 2), 3);
  EXPECT_EQ(s.indexOf(L'/', 4), -1);
  EXPECT_EQ(s.indexOf(L'x'), -1);
}

TEST_F(StringTest, IndexOfWithNegativeOrTooLargeStart) {
  String s(L"abc");
  EXPECT_EQ(s.indexOf(L'a', -3), 0);
  EXPECT_EQ(s.indexOf(L'c', 3), -1);
  EXPECT_EQ(s.indexOf(L'c', 99), -1);
  EXPECT_EQ(String().indexOf(L'a'), -1);
}

// ------------------------------------------------------------ substring

TEST_F(StringTest, OneArgumentSubstringRunsToEnd) {
  String s(L"abcdef");
  EXPECT_EQ(toWideString(s.substring(0)), L"abcdef");
  EXPECT_EQ(toWideString(s.substring(2)), L"cdef");
  EXPECT_EQ(toWideString(s.substring(5)), L"f");
  EXPECT_EQ(toWideString(s.substring(6)), L"");
  EXPECT_EQ(toWideString(s.substring(60)), L"");
  EXPECT_EQ(toWideString(s.substring(-2)), L"abcdef");
}

struct SubstringCase {
  const wchar_t* text;
  int begin;
  int end;
  const wchar_t* expected;
};

TEST_F(StringTest, TwoArgumentSubstringIncludesItsEndIndex) {
  const SubstringCase cases[] = {
      {L"abcdef", 0, 0, L"a"},
      {L"abcdef", 0, 2, L"abc"},
      {L"abcdef", 2, 4, L"cde"},
      {L"abcdef", 5, 5, L"f"},
      {L"abcdef", 0, 5, L"abcdef"},
      // Indexes are clamped to the string.
      {L"abcdef", 3, 99, L"def"},
      {L"abcdef", -4, 1, L"ab"},
      // An empty range is the empty string.
      {L"abcdef", 3, 2, L""},
      {L"abcdef", 6, 9, L""},
      {L"abcdef", 0, -1, L""},
      {L"", 0, 0, L""},
      // The program-name split of the command gate keeps the separating blank.
      {L"my scan.sh -a", 0, 2, L"my "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "substring(" << c.begin << ", " << c.end << ")");
    EXPECT_EQ(toWideString(String(c.text).substring(c.begin, c.end)), c.expected);
  }
}

// ------------------------------------------------------------ startsWith

TEST_F(StringTest, StartsWithComparesExactlyAtOffset) {
  String s(L"/opt/scan2/x");
  EXPECT_TRUE(s.startsWith(String(L"/opt/scan"), 0));
  EXPECT_TRUE(s.startsWith(String(L"/opt/scan2/x"), 0));
  EXPECT_TRUE(s.startsWith(String(L""), 0));
  EXPECT_TRUE(s.startsWith(String(L"scan2"), 5));
  EXPECT_TRUE(s.startsWith(String(L""), s.length()));
  EXPECT_FALSE(s.startsWith(String(L"/OPT"), 0));
  EXPECT_FALSE(s.startsWith(String(L"/opt/scan2/xy"), 0));
  EXPECT_FALSE(s.startsWith(String(L"scan2"), 4));
  EXPECT_FALSE(s.startsWith(String(L""), -1));
  EXPECT_FALSE(s.startsWith(String(L""), s.length() + 1));
  EXPECT_FALSE(s.startsWith(String(L"x"), s.length()));
}

// ------------------------------------------------------------ compareTo

int sign(int v) { return (v > 0) - (v < 0); }

struct CompareCase {
  const wchar_t* a;
  const wchar_t* b;
  int exact;   // sign of compareTo(b, 0)
  int folded;  // sign of compareTo(b, 1)
};

TEST_F(StringTest, CompareToOrdersBySignAndSecondArgumentChoosesCaseFolding) {
  const CompareCase cases[] = {
      {L"abc", L"abc", 0, 0},
      {L"abc", L"abd", -1, -1},
      {L"abd", L"abc", 1, 1},
      {L"ab", L"abc", -1, -1},
      {L"abc", L"ab", 1, 1},
      {L"", L"", 0, 0},
      {L"", L"a", -1, -1},
      // Exact comparison orders code points: 'B' (0x42) before 'a' (0x61).
      {L"B", L"a", -1, 1},
      {L"ABC", L"abc", -1, 0},
      {L"abc", L"ABC", 1, 0},
      {L"\u00c9t\u00e9", L"\u00e9T\u00c9", -1, 0},
      // Code points order as unsigned values, beyond the Basic Multilingual Plane too.
      {L"\uffff", L"\U00010000", -1, -1},
      {L"z", L"\u00e9", -1, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "a=" << testing::PrintToString(std::wstring(c.a))
                                    << " b=" << testing::PrintToString(std::wstring(c.b)));
    EXPECT_EQ(sign(String(c.a).compareTo(String(c.b), 0)), c.exact);
    EXPECT_EQ(sign(String(c.a).compareTo(String(c.b), 1)), c.folded);
    // Any non-zero second argument folds case.
    EXPECT_EQ(sign(String(c.a).compareTo(String(c.b), -7)), c.folded);
    EXPECT_EQ(sign(String(c.a).compareTo(c.b)), c.exact);
  }
}

TEST_F(StringTest, CompareToNullWidePointerComparesWithEmpty) {
  EXPECT_EQ(String().compareTo(static_cast<const wchar_t*>(nullptr)), 0);
  EXPECT_GT(String(L"a").compareTo(static_cast<const wchar_t*>(nullptr)), 0);
}

TEST_F(StringTest, CompareToKeepsEmbeddedZeroSignificant) {
  const wchar_t withZero[] = {L'a', L'\0', L'b'};
  EXPECT_GT(String(withZero, 3).compareTo(String(L"a"), 0), 0);
}

TEST_F(StringTest, SameTextAndStringLessFollowExactComparison) {
  EXPECT_TRUE(sameText(String(L"a"), String(L"a")));
  EXPECT_FALSE(sameText(String(L"a"), String(L"A")));
  EXPECT_TRUE(StringLess()(String(L"A"), String(L"a")));
  EXPECT_FALSE(StringLess()(String(L"a"), String(L"a")));
  StringLess less;
  EXPECT_TRUE(less(String(L"abc"), String(L"abd")));
  EXPECT_FALSE(less(String(L"abd"), String(L"abc")));
}

// ------------------------------------------------------------ concat

TEST_F(StringTest, ConcatOfStringWideNarrowAndCharacter) {
  String s(L"a");
  s.concat(String(L"b")).concat(L"c").concat("d").concat(L'e');
  EXPECT_EQ(toWideString(s), L"abcde");
}

TEST_F(StringTest, ConcatOfNarrowDecodesUtf8AndEscapesInvalidBytes) {
  String s;
  s.concat("\xc3\xa9");
  s.concat("\xff");
  EXPECT_EQ(toWideString(s), std::wstring(L"\u00e9") + static_cast<wchar_t>(0xDCFF));
}

TEST_F(StringTest, ConcatOfNullPointersAddsNothing) {
  String s(L"x");
  s.concat(static_cast<const wchar_t*>(nullptr));
  s.concat(static_cast<const char*>(nullptr));
  EXPECT_EQ(toWideString(s), L"x");
}

TEST_F(StringTest, ConcatOfZeroCharacterAppendsIt) {
  String s(L"x");
  s.concat(L'\0');
  EXPECT_EQ(s.length(), 2);
  EXPECT_EQ(s.charAt(1), L'\0');
}

TEST_F(StringTest, ConcatOfItself) {
  String s(L"ab");
  s.concat(s);
  EXPECT_EQ(toWideString(s), L"abab");
}

// ------------------------------------------------------------ deleteCharAt

TEST_F(StringTest, DeleteCharAtRemovesOneCharacter) {
  EXPECT_EQ(toWideString(String(L"\"name\"").deleteCharAt(0)), L"name\"");
  EXPECT_EQ(toWideString(String(L"\"name\"").deleteCharAt(5)), L"\"name");
  EXPECT_EQ(toWideString(String(L"abc").deleteCharAt(1)), L"ac");
  EXPECT_EQ(toWideString(String(L"a").deleteCharAt(0)), L"");
}

TEST_F(StringTest, DeleteCharAtOutOfRangeDoesNothing) {
  EXPECT_EQ(toWideString(String(L"abc").deleteCharAt(-1)), L"abc");
  EXPECT_EQ(toWideString(String(L"abc").deleteCharAt(3)), L"abc");
  EXPECT_EQ(toWideString(String().deleteCharAt(0)), L"");
}

// ------------------------------------------------------------ trim

TEST_F(StringTest, TrimRemovesEverythingUpToBlankAtBothEnds) {
  std::wstring controls;
  for (wchar_t c = 0; c <= 0x20; ++c) controls.push_back(c);
  String s = fromWideString(controls + L"a \t b" + controls);
  EXPECT_EQ(toWideString(s.trim()), L"a \t b");
}

TEST_F(StringTest, TrimKeepsCharactersAboveBlank) {
  // No-break space, DEL and the escape of byte 0x85 are not trimmed.
  std::wstring edges = std::wstring(L"\u00a0\x7f") + static_cast<wchar_t>(0xDC85);
  String s = fromWideString(edges + L"x" + edges);
  EXPECT_EQ(toWideString(s.trim()), edges + L"x" + edges);
  EXPECT_EQ(toWideString(String(L"!x~").trim()), L"!x~");
}

TEST_F(StringTest, TrimOfBlanksOnlyIsEmpty) {
  EXPECT_EQ(toWideString(String(L"   \t\r\n ").trim()), L"");
  EXPECT_EQ(toWideString(String().trim()), L"");
}

TEST_F(StringTest, TrimOfNegativeWideCharacterKeepsIt) {
  // wchar_t is signed here; a negative value is no white space.
  std::wstring text(1, static_cast<wchar_t>(-1));
  EXPECT_EQ(fromWideString(text).trim().length(), 1);
}

// ------------------------------------------------------------ toLowerCase

TEST_F(StringTest, ToLowerCaseFoldsWithoutLocale) {
  const char* previous = std::setlocale(LC_ALL, nullptr);
  std::string saved = previous != nullptr ? previous : "C";
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    std::setlocale(LC_ALL, locale);
    EXPECT_EQ(toWideString(String(L"ABC xyz 09_").toLowerCase()), L"abc xyz 09_");
    EXPECT_EQ(toWideString(String(L"I").toLowerCase()), L"i");
    EXPECT_EQ(toWideString(String(L"\u00c0\u00c9\u00de\u00d7\u00df").toLowerCase()),
              L"\u00e0\u00e9\u00fe\u00d7\u00df");
    EXPECT_EQ(toWideString(String(L"\u0391\u03a9\u0416\u0401").toLowerCase()),
              L"\u03b1\u03c9\u0436\u0451");
  }
  std::setlocale(LC_ALL, saved.c_str());
}

TEST_F(StringTest, ToLowerCaseLeavesEscapedBytesAlone) {
  std::wstring escapes;
  for (int b = 0x80; b <= 0xFF; ++b) escapes.push_back(static_cast<wchar_t>(0xDC00 + b));
  EXPECT_EQ(toWideString(fromWideString(escapes).toLowerCase()), escapes);
}

// ------------------------------------------------------------ narrow conversions

struct DecodeCase {
  const char* name;
  std::string bytes;
  std::wstring wide;
};

std::wstring esc(std::initializer_list<int> bytes) {
  std::wstring out;
  for (int b : bytes) out.push_back(static_cast<wchar_t>(0xDC00 + b));
  return out;
}

std::vector<DecodeCase> decodeCases() {
  return {
      {"ascii", "plain ASCII", L"plain ASCII"},
      {"two-byte", "\xc3\xa9t\xc3\xa9", L"\u00e9t\u00e9"},
      {"three-byte", "\xe2\x82\xac", L"\u20ac"},
      {"four-byte", "\xf0\x9f\x98\x80", L"\U0001F600"},
      {"largest code point", "\xf4\x8f\xbf\xbf", L"\U0010FFFF"},
      {"lone continuation byte", "a\x80z", L"a" + esc({0x80}) + L"z"},
      {"byte 0xFF", "\xff", esc({0xFF})},
      {"latin-1 text", "caf\xe9", L"caf" + esc({0xE9})},
      {"overlong slash, two bytes", "\xc0\xaf", esc({0xC0, 0xAF})},
      {"overlong slash, three bytes", "\xe0\x80\xaf", esc({0xE0, 0x80, 0xAF})},
      {"overlong slash, four bytes", "\xf0\x80\x80\xaf", esc({0xF0, 0x80, 0x80, 0xAF})},
      {"overlong NUL", "\xc0\x80", esc({0xC0, 0x80})},
      {"high surrogate encoded", "\xed\xa0\x80", esc({0xED, 0xA0, 0x80})},
      {"low surrogate encoded", "\xed\xbf\xbf", esc({0xED, 0xBF, 0xBF})},
      {"above U+10FFFF", "\xf4\x90\x80\x80", esc({0xF4, 0x90, 0x80, 0x80})},
      {"five-byte form", "\xf8\x88\x80\x80\x80", esc({0xF8, 0x88, 0x80, 0x80, 0x80})},
      {"truncated at end", "x\xe2\x82", L"x" + esc({0xE2, 0x82})},
      {"truncated before ASCII",
       "\xe2\x82"
       "A",
       esc({0xE2, 0x82}) + L"A"},
      {"start byte then start byte", "\xc3\xc3\xa9", esc({0xC3}) + L"\u00e9"},
  };
}

TEST_F(StringTest, NarrowTextDecodesUtf8AndEscapesEveryOtherByte) {
  for (const auto& c : decodeCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(toWideString(String(c.bytes.c_str())), c.wide);
  }
}

TEST_F(StringTest, NarrowTextRoundTripsForEveryCase) {
  for (const auto& c : decodeCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(String(c.bytes.c_str()).toNarrow(), c.bytes);
  }
}

TEST_F(StringTest, EveryByteStringSurvivesNarrowWideNarrow) {
  // Every single byte and every pair of bytes, then random strings.
  for (int a = 1; a < 256; ++a) {
    std::string one(1, static_cast<char>(a));
    ASSERT_EQ(String(one.c_str()).toNarrow(), one) << "byte " << a;
    for (int b = 1; b < 256; ++b) {
      std::string two = one + static_cast<char>(b);
      ASSERT_EQ(String(two.c_str()).toNarrow(), two) << "bytes " << a << " " << b;
    }
  }
  std::mt19937 random(20240601);
  std::uniform_int_distribution<int> byte(1, 255);
  std::uniform_int_distribution<int> size(0, 40);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes;
    int n = size(random);
    for (int k = 0; k < n; ++k) bytes.push_back(static_cast<char>(byte(random)));
    ASSERT_EQ(String(bytes.c_str()).toNarrow(), bytes) << "round " << round;
  }
}

TEST_F(StringTest, EscapesCarryBytes0x80To0xFFAsDc80ToDcff) {
  for (int b = 0x80; b <= 0xFF; ++b) {
    std::wstring wide(1, static_cast<wchar_t>(0xDC00 + b));
    EXPECT_EQ(fromWideString(wide).toNarrow(), std::string(1, static_cast<char>(b)))
        << "byte " << b;
  }
}

TEST_F(StringTest, WideTextUtf8CannotCarryBecomesQuestionMark) {
  // Surrogates outside the escape range, and values beyond U+10FFFF.
  std::wstring wide;
  wide.push_back(static_cast<wchar_t>(0xD800));
  wide.push_back(static_cast<wchar_t>(0xDBFF));
  wide.push_back(static_cast<wchar_t>(0xDC00));
  wide.push_back(static_cast<wchar_t>(0xDC7F));
  wide.push_back(static_cast<wchar_t>(0xDD00));
  wide.push_back(static_cast<wchar_t>(0x110000));
  wide.push_back(static_cast<wchar_t>(-1));
  EXPECT_EQ(fromWideString(wide).toNarrow(), "???????");
}

TEST_F(StringTest, WideTextEncodesAsUtf8) {
  EXPECT_EQ(String(L"a\u00e9\u20ac\U0001F600\u07ff\u0800\uffff").toNarrow(),
            "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf");
}

TEST_F(StringTest, EscapedBytesFormingValidUtf8ReadBackAsTheCharacter) {
  // The narrow text is the authority: two escapes that spell a valid sequence
  // are that sequence once written out.
  String s = fromWideString(esc({0xC3, 0xA9}));
  EXPECT_EQ(s.toNarrow(), "\xc3\xa9");
  EXPECT_EQ(toWideString(String(s.toNarrow().c_str())), L"\u00e9");
}

TEST_F(StringTest, ToNarrowDupIsZeroTerminatedCopyFromHostAllocator) {
  String s = fromWideString(std::wstring(L"x\u00e9") + static_cast<wchar_t>(0xDCFE));
  long before = HostFaults::instance().allocationCount;
  char* copy = toNarrowDup(s);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(HostFaults::instance().allocationCount, before + 1);
  EXPECT_STREQ(copy, "x\xc3\xa9\xfe");
  zelm_free(copy);
}

TEST_F(StringTest, ToNarrowDupGivesNullWhenAllocationFails) {
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(toNarrowDup(String(L"abc")), nullptr);
}

TEST_F(StringTest, ReserveAndClear) {
  String s(L"abc");
  reserveString(s, 100);
  EXPECT_EQ(toWideString(s), L"abc");
  clearString(s);
  EXPECT_TRUE(isEmpty(s));
}

}  // namespace
