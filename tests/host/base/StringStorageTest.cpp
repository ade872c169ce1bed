// The String keeps texts in different forms (bytes inside the object, bytes
// on the heap, wide characters) by their length and by whether every
// character is at most U+00FF. None of that may show: every operation must
// give what it gives on a plain sequence of wide characters. These tests set
// each operation against a reference on std::wstring, over texts chosen to
// land in every form and to cross between them.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideText.h"
#include "base/WideTextExtras.h"

namespace {

int sign(int v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

// The exact order: code points as unsigned values, a proper prefix first.
int referenceCompare(const std::wstring& a, const std::wstring& b) {
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t ca = hostCodePoint(a[i]);
    const std::uint32_t cb = hostCodePoint(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

// The text up to its first zero character, as a zero-terminated reader sees it.
std::wstring untilZero(const std::wstring& text) { return text.substr(0, text.find(L'\0')); }

std::wstring repeat(wchar_t c, std::size_t n) { return std::wstring(n, c); }

// Texts at the edges of every form: empty, the longest and the shortest
// texts of each form, characters on both sides of U+00FF, zero characters,
// blanks and control characters for trim, negative wide values.
std::vector<std::wstring> edgeTexts() {
  const std::size_t in = String::kInlineCapacity;
  std::vector<std::wstring> texts = {
      L"",
      L"a",
      L"A",
      repeat(L'x', in),
      repeat(L'x', in + 1),
      repeat(L'x', in - 1) + L"\u00ff",
      repeat(L'x', in - 1) + L"\u0100",
      L"\u00e9",
      L"\u00c9T\u00c9",
      L"\u20ac",
      L"a\u20acb",
      repeat(L'\u00e9', 40),
      repeat(L'\u0416', 40),
      std::wstring(L"a\0b", 3),
      std::wstring(L"\0", 1),
      L" \t padded \r\n",
      L"\x01\x1f\x20",
      L"\U0001F600 astral",
      std::wstring(1, static_cast<wchar_t>(-1)),
      std::wstring(1, static_cast<wchar_t>(0xDCFF)),
      L"/dev/vd00001",
      L"/dev/vd00001#/srv/vol0000001",
  };
  return texts;
}

std::vector<std::wstring> randomTexts(std::size_t count) {
  // An alphabet that mixes every form: ASCII, Latin-1, Latin Extended-A,
  // Cyrillic, astral, zero, blanks and a negative value.
  const wchar_t alphabet[] = {L'a',
                              L'B',
                              L' ',
                              L'\t',
                              L'\0',
                              L'#',
                              L'\u00e9',
                              L'\u00c9',
                              L'\u00ff',
                              L'\u0100',
                              L'\u0416',
                              static_cast<wchar_t>(0x1F600),
                              static_cast<wchar_t>(-5)};
  std::mt19937 random(20261122);
  std::uniform_int_distribution<std::size_t> pick(0, sizeof alphabet / sizeof alphabet[0] - 1);
  std::uniform_int_distribution<std::size_t> length(0, 40);
  std::uniform_int_distribution<int> latinOnly(0, 1);
  std::vector<std::wstring> texts;
  for (std::size_t k = 0; k < count; ++k) {
    std::wstring text;
    const std::size_t n = length(random);
    const bool bytesOnly = latinOnly(random) == 1;
    while (text.size() < n) {
      const wchar_t c = alphabet[pick(random)];
      if (bytesOnly && hostCodePoint(c) > 0xFF) continue;
      text.push_back(c);
    }
    texts.push_back(text);
  }
  return texts;
}

std::vector<std::wstring> allTexts() {
  std::vector<std::wstring> texts = edgeTexts();
  for (const std::wstring& t : randomTexts(60)) texts.push_back(t);
  return texts;
}

std::string show(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) out += std::to_string(hostCodePoint(c)) + " ";
  return out;
}

TEST(StringStorageTest, EveryTextReadsBackWhateverItsForm) {
  for (const std::wstring& text : allTexts()) {
    const String s = fromWideString(text);
    EXPECT_EQ(toWideString(s), text) << show(text);
    EXPECT_EQ(s.length(), static_cast<int>(text.size()));
    EXPECT_EQ(std::wstring(s.c_str(), text.size()), text) << show(text);
    EXPECT_EQ(s.c_str()[text.size()], L'\0');
    for (std::size_t i = 0; i < text.size(); ++i) EXPECT_EQ(s.charAt(static_cast<int>(i)), text[i]);
    EXPECT_EQ(s.charAt(static_cast<int>(text.size())), L'\0');
  }
}

TEST(StringStorageTest, ComparisonsAgreeWithCodePointOrderAcrossForms) {
  const std::vector<std::wstring> texts = allTexts();
  for (const std::wstring& a : texts) {
    for (const std::wstring& b : texts) {
      const String sa = fromWideString(a);
      const String sb = fromWideString(b);
      const int expected = referenceCompare(a, b);
      ASSERT_EQ(sign(sa.compareTo(sb, 0)), expected) << show(a) << "| " << show(b);
      ASSERT_EQ(sameText(sa, sb), expected == 0);
      ASSERT_EQ(StringLess()(sa, sb), expected < 0);
      // Against a wide pointer the text ends at its first zero character.
      const std::wstring bText = untilZero(b);
      ASSERT_EQ(sign(sa.compareTo(b.c_str())), referenceCompare(a, bText));
      // Folding case: as i_wcsicmp on the two zero-terminated texts.
      ASSERT_EQ(sign(sa.compareTo(sb, 1)), sign(i_wcsicmp(a.c_str(), b.c_str())))
          << show(a) << "| " << show(b);
      if (expected == 0) {
        ASSERT_EQ(stringHash(sa), stringHash(sb));
      }
    }
  }
}

TEST(StringStorageTest, EqualTextsMadeByDifferentRoutesAreEqualAndHashAlike) {
  // "é" straight, cut out of a wide text, decoded from UTF-8 and lowered
  // from "É": the same text whatever route made it.
  const String straight(L"\u00e9");
  const String cut = String(L"\u20ac\u00e9").substring(1);
  const String decoded("\xc3\xa9");
  String lowered(L"\u00c9");
  lowered.toLowerCase();
  for (const String* s : std::vector<const String*>{&cut, &decoded, &lowered}) {
    EXPECT_TRUE(sameText(*s, straight));
    EXPECT_EQ(s->compareTo(straight, 0), 0);
    EXPECT_EQ(stringHash(*s), stringHash(straight));
  }
}

TEST(StringStorageTest, ConcatOfEveryPairMatchesTheJoinedText) {
  const std::vector<std::wstring> texts = edgeTexts();
  for (const std::wstring& a : texts) {
    for (const std::wstring& b : texts) {
      String s = fromWideString(a);
      s.concat(fromWideString(b));
      ASSERT_EQ(toWideString(s), a + b) << show(a) << "| " << show(b);
      String w = fromWideString(a);
      w.concat(b.c_str());
      ASSERT_EQ(toWideString(w), a + untilZero(b));
      ASSERT_EQ(std::wstring(w.c_str()), untilZero(a + untilZero(b)));
    }
  }
}

TEST(StringStorageTest, GrowingOneCharacterAtATimeCrossesEveryForm) {
  // Bytes inside the object, then on the heap, then wide when U+20AC comes.
  std::wstring expected;
  String s;
  for (int i = 0; i < 100; ++i) {
    const wchar_t c = i == 60 ? L'\u20ac' : static_cast<wchar_t>(L'a' + i % 26);
    s.concat(c);
    expected.push_back(c);
    ASSERT_EQ(toWideString(s), expected);
    ASSERT_EQ(std::wstring(s.c_str()), expected);
  }
}

TEST(StringStorageTest, ConcatOfItsOwnWidePointerIsSafe) {
  for (const std::wstring& text : edgeTexts()) {
    String s = fromWideString(text);
    const std::wstring own(s.c_str());
    s.concat(s.c_str());
    ASSERT_EQ(toWideString(s), text + own) << show(text);
    String t = fromWideString(text);
    t.concat(t);
    ASSERT_EQ(toWideString(t), text + text);
  }
}

TEST(StringStorageTest, SubstringsMatchTheReferenceForEveryRange) {
  for (const std::wstring& text : edgeTexts()) {
    const String s = fromWideString(text);
    const int n = static_cast<int>(text.size());
    for (int begin = -1; begin <= n + 1; ++begin) {
      const std::size_t from = static_cast<std::size_t>(begin < 0 ? 0 : begin);
      EXPECT_EQ(toWideString(s.substring(begin)),
                from < text.size() ? text.substr(from) : std::wstring());
      for (int end = begin - 1; end <= n + 1; ++end) {
        const int last = end >= n ? n - 1 : end;
        const std::wstring expected =
            static_cast<int>(from) > last
                ? std::wstring()
                : text.substr(from, static_cast<std::size_t>(last) - from + 1);
        ASSERT_EQ(toWideString(s.substring(begin, end)), expected)
            << show(text) << begin << " " << end;
      }
    }
  }
}

TEST(StringStorageTest, StartsWithIndexOfAndDeleteCharAtMatchTheReference) {
  const std::vector<std::wstring> texts = edgeTexts();
  for (const std::wstring& text : texts) {
    const String s = fromWideString(text);
    for (const std::wstring& prefix : texts) {
      for (int offset = -1; offset <= static_cast<int>(text.size()) + 1; ++offset) {
        const bool expected =
            offset >= 0 && static_cast<std::size_t>(offset) <= text.size() &&
            text.compare(static_cast<std::size_t>(offset), prefix.size(), prefix) == 0 &&
            prefix.size() <= text.size() - static_cast<std::size_t>(offset);
        ASSERT_EQ(s.startsWith(fromWideString(prefix), offset), expected)
            << show(text) << "| " << show(prefix);
      }
    }
    for (wchar_t c : {L'a', L'x', L'\0', L'\u00e9', L'\u00ff', L'\u0100', L'\u20ac',
                      static_cast<wchar_t>(-1)}) {
      for (int from = -1; from <= static_cast<int>(text.size()); ++from) {
        const std::size_t start = static_cast<std::size_t>(from < 0 ? 0 : from);
        const std::size_t found = start < text.size() ? text.find(c, start) : std::wstring::npos;
        ASSERT_EQ(s.indexOf(c, from), found == std::wstring::npos ? -1 : static_cast<int>(found));
      }
    }
    for (int i = -1; i <= static_cast<int>(text.size()); ++i) {
      String d = fromWideString(text);
      std::wstring expected = text;
      if (i >= 0 && static_cast<std::size_t>(i) < text.size())
        expected.erase(static_cast<std::size_t>(i), 1);
      d.deleteCharAt(i);
      ASSERT_EQ(toWideString(d), expected);
      ASSERT_EQ(std::wstring(d.c_str()), untilZero(expected));
    }
  }
}

TEST(StringStorageTest, TrimAndLowerCaseMatchTheReference) {
  for (const std::wstring& text : allTexts()) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && hostCodePoint(text[begin]) <= 0x20) ++begin;
    while (end > begin && hostCodePoint(text[end - 1]) <= 0x20) --end;
    String t = fromWideString(text);
    t.trim();
    ASSERT_EQ(toWideString(t), text.substr(begin, end - begin)) << show(text);

    std::wstring lowered = text;
    for (wchar_t& c : lowered) c = hostFoldCase(c);
    String l = fromWideString(text);
    l.toLowerCase();
    ASSERT_EQ(toWideString(l), lowered) << show(text);
  }
}

TEST(StringStorageTest, NarrowFormsRoundTripEveryLatin1Character) {
  // Latin-1 characters are held one byte each, yet convert to UTF-8 like
  // any other character; U+DC80..U+DCFF still carry raw bytes.
  std::wstring all;
  for (wchar_t c = 1; c <= 0xFF; ++c) all.push_back(c);
  const String s = fromWideString(all);
  EXPECT_EQ(s.toNarrow(), fromWideString(all + L"\u20ac").substring(0, 254).toNarrow());
  EXPECT_EQ(toWideString(String(s.toNarrow().c_str())), all);
  EXPECT_EQ(toWideString(String("\xff\xfe")),
            std::wstring({static_cast<wchar_t>(0xDCFF), static_cast<wchar_t>(0xDCFE)}));
}

TEST(StringStorageTest, WidePointerFollowsEveryChange) {
  String s(L"short");
  const wchar_t* before = s.c_str();
  EXPECT_STREQ(before, L"short");
  EXPECT_EQ(s.c_str(), before);  // made once, kept until the text changes
  s.concat(L" and then much longer than the inline room");
  EXPECT_STREQ(s.c_str(), L"short and then much longer than the inline room");
  s.trim();
  s.deleteCharAt(0);
  EXPECT_STREQ(s.c_str(), L"hort and then much longer than the inline room");
  s.toLowerCase();
  s = String(L"other");
  EXPECT_STREQ(s.c_str(), L"other");
  String moved(std::move(s));
  EXPECT_STREQ(moved.c_str(), L"other");
  // A moved-from string is left empty.
  EXPECT_TRUE(isEmpty(s));       // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  EXPECT_STREQ(s.c_str(), L"");  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
}

TEST(StringStorageTest, CopiesAndMovesKeepEveryForm) {
  for (const std::wstring& text : edgeTexts()) {
    String original = fromWideString(text);
    (void)original.c_str();
    String copy(original);
    String assigned;
    assigned = original;
    String moved(std::move(copy));
    String moveAssigned(L"previous text that lives on the heap for a while");
    moveAssigned = std::move(moved);
    EXPECT_EQ(toWideString(assigned), text);
    EXPECT_EQ(toWideString(moveAssigned), text);
    EXPECT_EQ(std::wstring(moveAssigned.c_str()), untilZero(text));
    original = original;  // NOLINT: self-assignment keeps the text
    EXPECT_EQ(toWideString(original), text);
  }
}

// What asciiView may give for a text: nothing, or its narrow text up to the
// first zero character; never anything for a text beyond ASCII; and always
// the text for an ASCII text too long for the room inside the object (held
// on the heap, one byte a character). A shorter ASCII text may be either
// way, depending on how it was made.
void expectAsciiView(const String& s, const std::wstring& text) {
  bool ascii = true;
  for (wchar_t c : text) ascii = ascii && hostCodePoint(c) < 0x80;
  const char* view = asciiView(s);
  if (!ascii) {
    EXPECT_EQ(view, nullptr) << show(text);
    return;
  }
  if (text.size() > 22) {
    ASSERT_NE(view, nullptr) << show(text);
  }
  if (view != nullptr) {
    EXPECT_EQ(std::string(view), fromWideString(untilZero(text)).toNarrow()) << show(text);
  }
}

TEST(StringStorageTest, AsciiViewIsTheNarrowTextAfterEveryChange) {
  std::vector<std::wstring> texts = allTexts();
  for (std::size_t n : {23, 24, 31, 32, 33, 64, 100}) texts.push_back(repeat(L'a', n));
  texts.push_back(repeat(L'a', 30) + L'\0' + repeat(L'b', 10));
  texts.push_back(repeat(L'a', 30) + L"\u00e9");
  for (const std::wstring& text : texts) {
    const String made = fromWideString(text);
    expectAsciiView(made, text);
    expectAsciiView(String(fromWideString(text).toNarrow().c_str()), untilZero(text));
    String grown;
    for (wchar_t c : text) grown.concat(c);
    expectAsciiView(grown, text);
    String copy(made);
    expectAsciiView(copy, text);
    String moved(std::move(copy));
    expectAsciiView(moved, text);
    if (!text.empty()) {
      String shorter = fromWideString(text);
      shorter.deleteCharAt(static_cast<int>(text.size()) - 1);
      expectAsciiView(shorter, text.substr(0, text.size() - 1));
      String front = fromWideString(text);
      front.deleteCharAt(0);
      expectAsciiView(front, text.substr(1));
      expectAsciiView(made.substring(1), text.substr(1));
    }
    String lowered = fromWideString(text);
    lowered.toLowerCase();
    std::wstring reference = text;
    for (wchar_t& c : reference) c = hostFoldCase(c);
    expectAsciiView(lowered, reference);
    String reserved = fromWideString(text);
    reserveString(reserved, text.size() * 2 + 40);
    expectAsciiView(reserved, text);
  }
}

TEST(StringStorageTest, WidePointerMayBeAskedForFromSeveralThreads) {
  // A shared, unchanging text may be read concurrently; the wide copy of a
  // byte-held text is made once and every reader sees the same one.
  for (int round = 0; round < 50; ++round) {
    const String shared(L"read by every thread at the same time");
    std::vector<const wchar_t*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t) {
      threads.emplace_back([&shared, &seen, t] { seen[t] = shared.c_str(); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const wchar_t* p : seen) {
      EXPECT_EQ(p, seen[0]);
      EXPECT_STREQ(p, L"read by every thread at the same time");
    }
  }
}

TEST(StringStorageTest, ReserveKeepsTheTextInEveryForm) {
  for (const std::wstring& text : edgeTexts()) {
    String s = fromWideString(text);
    reserveString(s, 0);
    reserveString(s, 100);
    EXPECT_EQ(toWideString(s), text);
    s.concat(L"\u20ac");
    EXPECT_EQ(toWideString(s), text + L"\u20ac");
  }
}

// ------------------------------------------------------------ shared storage

// Where a string keeps its characters when they are on the heap: the narrow
// text of a byte-held ASCII text, the wide text of a wide one.
const void* storageOf(const String& s) {
  if (const char* view = asciiView(s)) return view;
  return s.c_str();
}

TEST(StringStorageTest, CopiesOfALongTextShareItsStorage) {
  const String bytes(std::string(100000, 'x').c_str());
  const String wideText = fromWideString(repeat(L'\u0416', 1000));
  for (const String* original : {&bytes, &wideText}) {
    String copy(*original);
    String assigned;
    assigned = *original;
    std::vector<String> many(1000, *original);
    EXPECT_EQ(storageOf(copy), storageOf(*original));
    EXPECT_EQ(storageOf(assigned), storageOf(*original));
    EXPECT_EQ(storageOf(many.back()), storageOf(*original));
    EXPECT_TRUE(sameText(copy, *original));
  }
}

// Every change of a copy leaves the text it was copied from as it was, in
// every form, and gives the copy the text the change gives on its own.
TEST(StringStorageTest, ChangingACopyLeavesTheOriginalUntouched) {
  std::vector<std::wstring> texts = allTexts();
  texts.push_back(L"  " + repeat(L'a', 40) + L"  ");
  texts.push_back(L"  " + repeat(L'\u0416', 40) + L"  ");
  texts.push_back(repeat(L'A', 40));
  texts.push_back(repeat(L'A', 40) + L"\u0130");
  typedef void (*Change)(String&);
  const std::vector<std::pair<const char*, Change>> changes = {
      {"concat narrow", [](String& s) { s.concat("tail"); }},
      {"concat wide", [](String& s) { s.concat(L"\u20ac"); }},
      {"concat itself", [](String& s) { s.concat(s); }},
      {"concat char", [](String& s) { s.concat(L'z'); }},
      {"deleteCharAt", [](String& s) { s.deleteCharAt(0); }},
      {"trim", [](String& s) { s.trim(); }},
      {"toLowerCase", [](String& s) { s.toLowerCase(); }},
      {"reserve", [](String& s) { reserveString(s, 500); }},
      {"clear", [](String& s) { clearString(s); }},
      {"assign", [](String& s) { s = String(L"replaced"); }},
  };
  for (const std::wstring& text : texts) {
    for (const auto& change : changes) {
      const String original = fromWideString(text);
      (void)original.c_str();
      String alone = fromWideString(text);
      change.second(alone);
      String copy(original);
      change.second(copy);
      EXPECT_EQ(toWideString(original), text) << change.first << " of " << show(text);
      EXPECT_EQ(std::wstring(original.c_str(), text.size()), text) << change.first;
      EXPECT_EQ(toWideString(copy), toWideString(alone)) << change.first << " of " << show(text);
      EXPECT_EQ(std::wstring(copy.c_str()), std::wstring(alone.c_str())) << change.first;
    }
  }
}

TEST(StringStorageTest, ACopyKeepsItsTextWhenTheOriginalDies) {
  String* original = new String(std::string(1000, 'k').c_str());
  String copy(*original);
  const void* storage = storageOf(copy);
  delete original;
  EXPECT_EQ(copy.toNarrow(), std::string(1000, 'k'));
  EXPECT_EQ(storageOf(copy), storage);
}

TEST(StringStorageTest, CopiesMayBeMadeChangedAndDestroyedOnSeveralThreads) {
  // One text, copied from every thread at once: each thread keeps, changes
  // and drops its copies while the others do the same with theirs.
  const String shared(std::string(200, 's').c_str());
  const String sharedWide = fromWideString(repeat(L'\u0416', 200));
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t t = 0; t < wrong.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 2000; ++round) {
        String a(shared);
        String b = sharedWide;
        std::vector<String> kept(8, a);
        if (round % 3 == 0) a.concat(L'x');
        if (round % 5 == 0) b.deleteCharAt(0);
        kept[round % 8].trim();
        if (kept[7].length() != 200 || (round % 5 != 0 && b.length() != 200)) ++wrong[t];
        if (round % 3 == 0 && a.length() != 201) ++wrong[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int w : wrong) EXPECT_EQ(w, 0);
  EXPECT_EQ(shared.toNarrow(), std::string(200, 's'));
  EXPECT_EQ(toWideString(sharedWide), repeat(L'\u0416', 200));
}

TEST(StringStorageTest, TextReadWideBetweenAppendsIsNotWidenedAnew) {
  // The pattern of a result built a line at a time and traced after each
  // line: once asked for wide, the text grows wide, so the wide pointer is
  // the storage itself and is not made again after every append.
  String s(std::string(100, 'a').c_str());
  (void)s.c_str();
  s.concat(L"b");
  const wchar_t* first = s.c_str();
  EXPECT_EQ(asciiView(s), nullptr);  // held wide now
  s.concat("c");
  EXPECT_EQ(std::wstring(s.c_str()), std::wstring(100, L'a') + L"bc");
  // Grown in place: the wide text is the same storage as before the append.
  EXPECT_EQ(s.c_str(), first);
}

}  // namespace
