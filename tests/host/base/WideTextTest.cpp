#include "base/WideText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cwchar>
#include <random>
#include <string>
#include <vector>

#include "base/HostFaults.h"
#include "base/Memory.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

namespace {

class WideTextTest : public ::testing::Test {
 protected:
  void TearDown() override { HostFaults::reset(); }
};

int sign(int v) { return (v > 0) - (v < 0); }

// ------------------------------------------------------------ hostFoldCase

struct FoldCase {
  std::uint32_t from;
  std::uint32_t to;
};

TEST_F(WideTextTest, IsAsciiAtEveryLengthAndPosition) {
  EXPECT_TRUE(hostIsAscii(nullptr, 0));
  // Lengths around the eight-byte steps, with one high byte at each place.
  for (std::size_t length = 0; length <= 20; ++length) {
    // 0x7F is the highest ASCII byte.
    const std::string text(length, '\x7f');
    EXPECT_TRUE(hostIsAscii(text.data(), length)) << length;
    for (std::size_t at = 0; at < length; ++at) {
      std::string high(length, 'z');
      high[at] = '\x80';
      EXPECT_FALSE(hostIsAscii(high.data(), length)) << length << " " << at;
      high[at] = '\xff';
      EXPECT_FALSE(hostIsAscii(high.data(), length)) << length << " " << at;
    }
  }
}

TEST_F(WideTextTest, FoldCaseTable) {
  const FoldCase cases[] = {
      // ASCII letters fold; neighbours of the range do not.
      {'A', 'a'},
      {'Z', 'z'},
      {'M', 'm'},
      {'a', 'a'},
      {'z', 'z'},
      {'@', '@'},
      {'[', '['},
      {'`', '`'},
      {'{', '{'},
      {'0', '0'},
      {0, 0},
      // Latin-1 capitals, except the multiplication sign; small sharp s stays.
      {0xC0, 0xE0},
      {0xC9, 0xE9},
      {0xD6, 0xF6},
      {0xD7, 0xD7},
      {0xD8, 0xF8},
      {0xDE, 0xFE},
      {0xDF, 0xDF},
      {0xE9, 0xE9},
      {0xFF, 0xFF},
      {0xB5, 0xB5},
      // Latin Extended-A: even/odd pairs, the odd/even stretches, and the
      // letters without a simple partner in the block.
      {0x100, 0x101},
      {0x101, 0x101},
      {0x12E, 0x12F},
      {0x130, 0x130},
      {0x131, 0x131},
      {0x132, 0x133},
      {0x136, 0x137},
      {0x138, 0x138},
      {0x139, 0x13A},
      {0x13A, 0x13A},
      {0x147, 0x148},
      {0x148, 0x148},
      {0x149, 0x149},
      {0x14A, 0x14B},
      {0x160, 0x161},
      {0x176, 0x177},
      {0x178, 0xFF},
      {0x179, 0x17A},
      {0x17D, 0x17E},
      {0x17E, 0x17E},
      {0x17F, 0x17F},
      // Greek capitals; the unassigned U+03A2 is left alone.
      {0x391, 0x3B1},
      {0x3A1, 0x3C1},
      {0x3A2, 0x3A2},
      {0x3A3, 0x3C3},
      {0x3A9, 0x3C9},
      {0x3AB, 0x3CB},
      {0x3B1, 0x3B1},
      // Cyrillic capitals, both blocks.
      {0x400, 0x450},
      {0x401, 0x451},
      {0x40F, 0x45F},
      {0x410, 0x430},
      {0x42F, 0x44F},
      {0x430, 0x430},
      {0x450, 0x450},
      // Everything else is left as it is.
      {0x20AC, 0x20AC},
      {0xDCC9, 0xDCC9},
      {0x1F600, 0x1F600},
      {0x1E9E, 0x1E9E},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(static_cast<std::uint32_t>(hostFoldCase(static_cast<wchar_t>(c.from))), c.to)
        << "U+" << std::hex << c.from;
  }
}

TEST_F(WideTextTest, FoldCaseIsIdempotent) {
  for (std::uint32_t c = 0; c < 0x600; ++c) {
    wchar_t once = hostFoldCase(static_cast<wchar_t>(c));
    EXPECT_EQ(hostFoldCase(once), once) << "U+" << std::hex << c;
  }
}

TEST_F(WideTextTest, FoldCaseIgnoresLocale) {
  const char* previous = std::setlocale(LC_ALL, nullptr);
  std::string saved = previous != nullptr ? previous : "C";
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(hostFoldCase(0xC9), static_cast<wchar_t>(0xE9));
  std::setlocale(LC_ALL, "C.UTF-8");
  EXPECT_EQ(hostFoldCase(0xC9), static_cast<wchar_t>(0xE9));
  EXPECT_EQ(hostFoldCase(L'I'), L'i');
  std::setlocale(LC_ALL, saved.c_str());
}

// ------------------------------------------------------------ i_wcsicmp, i_wcsnicmp

struct CompareCase {
  const wchar_t* a;
  const wchar_t* b;
  int expected;
};

TEST_F(WideTextTest, WcsicmpFoldsCaseAndOrders) {
  const CompareCase cases[] = {
      {L"", L"", 0},
      {L"abc", L"ABC", 0},
      {L"Value", L"vALUE", 0},
      {L"\u00c9T\u00c9", L"\u00e9t\u00e9", 0},
      {L"\u0416", L"\u0436", 0},
      {L"\u0178", L"\u00ff", 0},
      {L"a", L"B", -1},
      {L"B", L"a", 1},
      {L"abc", L"abcd", -1},
      {L"abcd", L"ABC", 1},
      {L"", L"a", -1},
      // Case folding happens before ordering: '[' (0x5B) is after 'Z' but before 'a'.
      {L"[", L"A", -1},
      {L"\U0001F600", L"\uffff", 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(sign(i_wcsicmp(c.a, c.b)), c.expected)
        << testing::PrintToString(std::wstring(c.a)) << " vs "
        << testing::PrintToString(std::wstring(c.b));
  }
}

TEST_F(WideTextTest, WcsicmpTreatsNullAsEmpty) {
  EXPECT_EQ(i_wcsicmp(nullptr, nullptr), 0);
  EXPECT_EQ(i_wcsicmp(nullptr, L""), 0);
  EXPECT_LT(i_wcsicmp(nullptr, L"a"), 0);
  EXPECT_GT(i_wcsicmp(L"a", nullptr), 0);
}

TEST_F(WideTextTest, WcsnicmpComparesAtMostNCharacters) {
  EXPECT_EQ(i_wcsnicmp(L"START.GROUP", L"start", 5), 0);
  EXPECT_NE(i_wcsnicmp(L"START.GROUP", L"start", 6), 0);
  EXPECT_EQ(i_wcsnicmp(L"abc", L"xyz", 0), 0);
  EXPECT_EQ(i_wcsnicmp(L"abc", L"ABC", 100), 0);
  EXPECT_LT(i_wcsnicmp(L"ab", L"ABC", 3), 0);
  EXPECT_GT(i_wcsnicmp(L"abd", L"ABC", 3), 0);
  EXPECT_EQ(i_wcsnicmp(nullptr, L"", 4), 0);
}

// ------------------------------------------------------------ i_wcsdup

TEST_F(WideTextTest, WcsdupCopiesIntoHostAllocator) {
  const wchar_t* text = L"copy \u00e9\U0001F600";
  long before = HostFaults::instance().allocationCount;
  wchar_t* copy = i_wcsdup(text);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(HostFaults::instance().allocationCount, before + 1);
  EXPECT_NE(copy, text);
  EXPECT_STREQ(copy, text);
  zelm_free(copy);
}

TEST_F(WideTextTest, WcsdupOfEmptyAndNull) {
  wchar_t* copy = i_wcsdup(L"");
  ASSERT_NE(copy, nullptr);
  EXPECT_STREQ(copy, L"");
  zelm_free(copy);
  EXPECT_EQ(i_wcsdup(nullptr), nullptr);
}

TEST_F(WideTextTest, WcsdupGivesNullWhenAllocationFails) {
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(i_wcsdup(L"abc"), nullptr);
}

// ------------------------------------------------------------ i_mbstowcs

TEST_F(WideTextTest, MbstowcsDecodesLikeString) {
  const char* inputs[] = {
      "",
      "plain",
      "START GROUP\n  Name = \"caf\xc3\xa9\"\n",
      "\xe2\x82\xac \xf0\x9f\x98\x80",
      "caf\xe9",
      "\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xff\xfe",
      "truncated \xe2\x82",
  };
  for (const char* input : inputs) {
    SCOPED_TRACE(input);
    wchar_t* wide = i_mbstowcs(input);
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::wstring(wide), toWideString(String(input)));
    zelm_free(wide);
  }
}

TEST_F(WideTextTest, MbstowcsAgreesWithStringOnRandomBytes) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> byte(1, 255);
  for (int round = 0; round < 5000; ++round) {
    std::string bytes;
    for (int k = 0; k < 24; ++k) bytes.push_back(static_cast<char>(byte(random)));
    wchar_t* wide = i_mbstowcs(bytes.c_str());
    ASSERT_NE(wide, nullptr);
    ASSERT_EQ(std::wstring(wide), toWideString(String(bytes.c_str()))) << "round " << round;
    zelm_free(wide);
  }
}

TEST_F(WideTextTest, MbstowcsOfNullIsNull) { EXPECT_EQ(i_mbstowcs(nullptr), nullptr); }

TEST_F(WideTextTest, MbstowcsGivesNullWhenAllocationFails) {
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(i_mbstowcs("abc"), nullptr);
}

// ------------------------------------------------------------ decode / encode with lengths

TEST_F(WideTextTest, DecodeWithLengthKeepsZeroBytes) {
  std::string bytes("a\0b", 3);
  std::wstring wide = hostDecodeNarrow(bytes.data(), bytes.size());
  EXPECT_EQ(wide, std::wstring(L"a\0b", 3));
  EXPECT_EQ(hostEncodeNarrow(wide.data(), wide.size()), bytes);
}

TEST_F(WideTextTest, DecodeAppendAddsToExistingText) {
  std::wstring out = L"pre:";
  hostDecodeNarrowAppend(out, "\xc3\xa9\xff", 3);
  EXPECT_EQ(out, std::wstring(L"pre:\u00e9") + static_cast<wchar_t>(0xDCFF));
}

// Short ASCII text takes a path of its own; the lengths around its limit,
// and a short text that is not all ASCII, decode as any other text does.
TEST_F(WideTextTest, DecodeAppendAroundTheShortTextLimit) {
  for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 255u, 256u, 257u, 1000u}) {
    std::string ascii;
    for (std::size_t k = 0; k < length; ++k) ascii.push_back(static_cast<char>(1 + k % 127));
    std::wstring expected = L"pre:";
    for (char c : ascii) expected.push_back(static_cast<wchar_t>(c));
    std::wstring out = L"pre:";
    hostDecodeNarrowAppend(out, ascii.data(), ascii.size());
    EXPECT_EQ(out, expected) << "length " << length;

    if (length == 0) continue;
    std::string mixed = ascii;
    mixed.back() = '\xe9';  // not UTF-8 on its own
    expected.back() = static_cast<wchar_t>(0xDCE9);
    out = L"pre:";
    hostDecodeNarrowAppend(out, mixed.data(), mixed.size());
    EXPECT_EQ(out, expected) << "length " << length << ", last byte not ASCII";
  }
}

TEST_F(WideTextTest, DecodeStopsAtGivenLengthInsideASequence) {
  // Only the first byte of the two-byte sequence is inside the length.
  std::wstring wide = hostDecodeNarrow("\xc3\xa9", 1);
  EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0xDCC3)));
}

TEST_F(WideTextTest, EveryByteStringWithZerosSurvivesRoundTrip) {
  std::mt19937 random(99);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int round = 0; round < 5000; ++round) {
    std::string bytes;
    for (int k = 0; k < 32; ++k) bytes.push_back(static_cast<char>(byte(random)));
    std::wstring wide = hostDecodeNarrow(bytes.data(), bytes.size());
    ASSERT_EQ(hostEncodeNarrow(wide.data(), wide.size()), bytes) << "round " << round;
  }
}

TEST_F(WideTextTest, EncodeAppendAddsWhatEncodeMakes) {
  const std::vector<std::wstring> texts = {
      L"",
      L"PATH=/usr/local/bin:/usr/bin:/bin",
      std::wstring(L"a\0b", 3),
      std::wstring(L"ascii for the first sixteen, then \u00e9"),
      L"\u00e9t\u00e9",
      L"\U0001F600 \u20ac",
      std::wstring(1, static_cast<wchar_t>(0xDCFF)) + L"x",    // an escaped byte
      std::wstring(1, static_cast<wchar_t>(0xD800)) + L"x",    // a lone surrogate
      std::wstring(1, static_cast<wchar_t>(0x110000)) + L"x",  // past the last code point
      std::wstring(1, static_cast<wchar_t>(-1)) + L"x",        // negative as wchar_t
      std::wstring(1, static_cast<wchar_t>(0x7F)) + L"x",      // the last ASCII value
      std::wstring(1, static_cast<wchar_t>(0x80)) + L"x",      // the first beyond it
      std::wstring(600, L'z'),                                 // longer than one piece
      std::wstring(300, L'a') + L"\u00e9" + std::wstring(300, L'b'),
      std::wstring(256, L'a') + L"\u00e9",  // just past a whole piece
  };
  for (const auto& text : texts) {
    std::string out = "pre:";
    hostEncodeNarrowAppend(out, text.data(), text.size());
    EXPECT_EQ(out, "pre:" + hostEncodeNarrow(text.data(), text.size()));
  }
}

TEST_F(WideTextTest, EncodeAppendAgreesWithEncodeOnRandomText) {
  std::mt19937 random(7);
  // Mostly ASCII, now and then anything a wchar_t can hold.
  std::uniform_int_distribution<int> ascii(0, 127);
  std::uniform_int_distribution<int> rare(0, 40);
  std::uniform_int_distribution<std::uint32_t> any;
  for (int round = 0; round < 2000; ++round) {
    std::wstring text;
    for (int k = 0; k < round % 70; ++k) {
      text.push_back(rare(random) == 0 ? static_cast<wchar_t>(any(random))
                                       : static_cast<wchar_t>(ascii(random)));
    }
    std::string out;
    hostEncodeNarrowAppend(out, text.data(), text.size());
    ASSERT_EQ(out, hostEncodeNarrow(text.data(), text.size())) << "round " << round;
  }
}

TEST_F(WideTextTest, EveryCodePointSurvivesWideNarrowWide) {
  // Every scalar value (surrogates excluded) encodes and decodes to itself.
  for (std::uint32_t cp = 1; cp <= 0x10FFFF; cp += (cp < 0x3000 ? 1 : 97)) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    std::wstring wide(1, static_cast<wchar_t>(cp));
    std::string narrow = hostEncodeNarrow(wide.data(), wide.size());
    ASSERT_EQ(hostDecodeNarrow(narrow.data(), narrow.size()), wide) << "U+" << std::hex << cp;
  }
}

}  // namespace
