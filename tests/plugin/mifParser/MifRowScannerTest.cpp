// The row scanner delimits a row's items a whole item at a time, over wide
// text and, for an ASCII line of a narrow text, over its bytes. These tests
// hold it against a plain reader that walks the row one character at a time
// through every state (started, inside quotes, after a closing quote, after a
// backslash), on random rows built from the characters that matter.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifRowReference.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifParser.h"
#include "mifParser/RowElement.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::RowElement;

namespace {

struct Reading {
  TErrorCode code = 0;
  std::vector<cstest::RowItem> values;
};

Reading readCharacterByCharacter(const std::wstring& row) {
  Reading reading;
  if (!cstest::referenceRow(row, reading.values))
    reading.code = CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF;
  return reading;
}

std::vector<cstest::RowItem> itemsOf(const std::vector<RowElement::RowElementStruct>& values) {
  std::vector<cstest::RowItem> items;
  items.reserve(values.size());
  for (const auto& v : values) items.push_back(cstest::RowItem{v.isEmpty, toWideString(v.value)});
  return items;
}

std::string describe(const std::vector<cstest::RowItem>& items) {
  std::string out;
  for (const auto& item : items) {
    out += item.isEmpty ? "<empty>" : "[" + fromWideString(item.value).toNarrow() + "]";
    out += ' ';
  }
  return out;
}

// A random row: braces around characters drawn mostly from those that
// steer the reading, now and then one beyond ASCII.
std::wstring randomRow(std::mt19937& random) {
  static const wchar_t kAlphabet[] = L"\",\\ \t ax,\"\\ }";
  std::uniform_int_distribution<int> length(0, 24);
  std::uniform_int_distribution<int> pick(0, sizeof kAlphabet / sizeof kAlphabet[0] - 2);
  std::uniform_int_distribution<int> rare(0, 40);
  std::wstring row = L"{";
  const int n = length(random);
  for (int i = 0; i < n; ++i) row += rare(random) == 0 ? L'\u00e9' : kAlphabet[pick(random)];
  row += L'}';
  return row;
}

std::string toUtf8(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

void expectSameValues(const std::vector<RowElement::RowElementStruct>& values,
                      const std::vector<cstest::RowItem>& want, const std::string& row) {
  const std::vector<cstest::RowItem> got = itemsOf(values);
  ASSERT_EQ(got.size(), want.size())
      << row << "\n got  " << describe(got) << "\n want " << describe(want);
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].isEmpty, want[i].isEmpty) << row << " item " << i;
    EXPECT_EQ(got[i].value, want[i].value) << row << " item " << i;
  }
}

TEST(MifRowScannerTest, RandomRowsReadAsCharacterByCharacterReading) {
  std::mt19937 random(20261122);
  MifParser parser;
  int failures = 0;
  for (int round = 0; round < 40000; ++round) {
    const std::wstring row = randomRow(random);
    const Reading want = readCharacterByCharacter(row);
    std::vector<RowElement::RowElementStruct> got;
    const TErrorCode code = parser.getRowValues(row.c_str(), got);
    const std::string shown = toUtf8(row);
    ASSERT_EQ(code, want.code) << shown;
    // The items before a malformed one are appended all the same.
    expectSameValues(got, want.values, shown);
    if (want.code != 0) ++failures;
    if (::testing::Test::HasFailure()) return;
  }
  // Both outcomes were well represented.
  EXPECT_GT(failures, 4000);
  EXPECT_LT(failures, 36000);
}

TEST(MifRowScannerTest, RandomRowsInANarrowTextReadAsCharacterByCharacterReading) {
  // The row as the only row of a table scope, read by parseNarrow: an ASCII
  // row as its bytes, any other decoded first.
  std::mt19937 random(112026);
  MifParser parser;
  int asciiRows = 0;
  for (int round = 0; round < 20000; ++round) {
    const std::wstring row = randomRow(random);
    const Reading want = readCharacterByCharacter(row);
    const std::string text = "start table\n" + toUtf8(row) + "\nend table\n";
    MifElement* top = nullptr;
    const TErrorCode code = parser.parseNarrow(text.c_str(), top);
    if (row.find(L'\u00e9') == std::wstring::npos) ++asciiRows;
    if (want.code != 0) {
      ASSERT_EQ(code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF) << text;
      ASSERT_EQ(top, nullptr);
      continue;
    }
    ASSERT_EQ(code, 0) << text;
    ASSERT_EQ(top->childrenSize(), 1u);
    const auto* element = dynamic_cast<const RowElement*>(top->getChildAt(0));
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(toWideString(element->m_Name), L"row");
    EXPECT_EQ(element->m_LineNumber, 2);
    expectSameValues(element->m_Values, want.values, text);
    delete top;
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(asciiRows, 5000);
  EXPECT_LT(asciiRows, 19000);
}

TEST(MifRowScannerTest, RowsOfMoreItemsThanOneBatchKeepEveryItemInOrder) {
  // Items are delimited up to 64 at a time; a row of any length keeps all.
  MifParser parser;
  for (int count : {63, 64, 65, 128, 129, 1000}) {
    std::wstring row = L"{";
    for (int i = 0; i < count; ++i) {
      if (i != 0) row += L", ";
      row += i % 3 == 0 ? L"\"v" + std::to_wstring(i) + L"\"" : (i % 3 == 1 ? L"" : L"w");
    }
    row += L"}";
    std::vector<RowElement::RowElementStruct> values;
    ASSERT_EQ(parser.getRowValues(row.c_str(), values), 0);
    const Reading want = readCharacterByCharacter(row);
    expectSameValues(values, want.values, toUtf8(row));
    ASSERT_EQ(values.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(toWideString(values[0].value), L"v0");
    EXPECT_TRUE(values[1].isEmpty);
    EXPECT_EQ(values[static_cast<std::size_t>(count) - 1].isEmpty, (count - 1) % 3 == 1);
  }
}

TEST(MifRowScannerTest, MalformedItemAfterAFullBatchKeepsTheItemsBeforeIt) {
  MifParser parser;
  std::wstring row = L"{";
  for (int i = 0; i < 70; ++i) row += L"a" + std::to_wstring(i) + L",";
  row += L"b\"c\", d}";
  std::vector<RowElement::RowElementStruct> values;
  EXPECT_EQ(parser.getRowValues(row.c_str(), values), CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
  ASSERT_EQ(values.size(), 70u);
  EXPECT_EQ(toWideString(values[69].value), L"a69");
}

}  // namespace
