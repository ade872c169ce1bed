#include "mifParser/MifTable.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifTableText.h"
#include "MifTestSupport.h"
#include "TestSupport.h"
#include "sdk/Configuration.h"

using cstest::MifTree;
using cstest::treeDump;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifTable;
using PluginSDK::Configuration;

namespace {

const char kParseRowsLabel[] = "MifTable::parseRows(unsigned int)";
const char kGetMifTableLabel[] = "MifTable::getMifTable(MifElement *, String &, MifTable *&)";

std::vector<std::wstring> wide(const std::vector<String>& strings) {
  std::vector<std::wstring> out;
  out.reserve(strings.size());
  for (const String& s : strings) out.push_back(toWideString(s));
  return out;
}

// Lines of a template group of class C: the key list, then attributes given
// as "id|name|value", then a table of the same class with the given rows.
std::wstring templateText(const std::wstring& key, const std::vector<std::wstring>& attributes,
                          const std::vector<std::wstring>& rows) {
  std::wstring text = L"start component\nstart group\nclass = \"C\"\nkey = " + key + L"\n";
  for (const std::wstring& a : attributes) {
    const std::size_t bar1 = a.find(L'|');
    const std::size_t bar2 = a.find(L'|', bar1 + 1);
    text += L"start attribute\nid = " + a.substr(0, bar1) + L"\nname = \"" +
            a.substr(bar1 + 1, bar2 - bar1 - 1) + L"\"\nvalue = \"" + a.substr(bar2 + 1) +
            L"\"\nend attribute\n";
  }
  text += L"end group\nstart table\nclass = \"C\"\n";
  for (const std::wstring& row : rows) text += row + L"\n";
  return text + L"end table\nend component\n";
}

const std::wstring kDisks =
    L"start component\n"
    L"start group\nclass = \"Disks\"\nkey = 1\n"
    L"start attribute\nid = 1\nname = \"Device\"\nvalue = \"\"\nend attribute\n"
    L"start attribute\nid = 2\nname = \"Size\"\nvalue = \"0\"\nend attribute\n"
    L"end group\n"
    L"start table\nclass = \"Disks\"\n{\"sda\", 100}\n{\"sdb\", }\nend table\n"
    L"end component\n";

const std::wstring kAgents =
    L"start component\n"
    L"start group\nclass = \"Agents\"\nid = 3\n"
    L"start attribute\nid = 1\nname = \"Name\"\nvalue = \"Agent\"\nend attribute\n"
    L"start attribute\nid = 2\nname = \"Version\"\nvalue = \"2.1\"\nend attribute\n"
    L"end group\n"
    L"end component\n";

class MifTableTest : public ::testing::Test {
 protected:
  void TearDown() override { Configuration::cleanup(CUSTOM_SCAN_PLUGIN_NAME); }

  void setPolicy(const wchar_t* value) {
    Configuration* configuration = nullptr;
    ASSERT_EQ(Configuration::get(CUSTOM_SCAN_PLUGIN_NAME, configuration), 0);
    configuration->setProperty(PluginSDK::String(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS),
                               PluginSDK::String(value));
  }

  // Parses text and builds the table of className; the tree is deleted at
  // once, since a built table must not need it.
  TErrorCode build(const std::wstring& text, const wchar_t* className = L"C") {
    MifTree tree(text);
    EXPECT_EQ(tree.code(), 0) << cstest::narrow(text);
    MifTable* raw = reinterpret_cast<MifTable*>(0x1);
    const TErrorCode rc = MifTable::getMifTable(tree.top(), String(className), raw);
    table.reset(raw);
    return rc;
  }

  std::vector<std::wstring> keys() {
    std::vector<String> out;
    EXPECT_EQ(table->getKeys(out), 0);
    return wide(out);
  }

  std::wstring field(const wchar_t* code, const wchar_t* name) {
    String value(L"<untouched>");
    const TErrorCode rc = table->getField(String(code), String(name), value);
    if (rc != 0) return L"<" + std::to_wstring(rc) + L">";
    return toWideString(value);
  }

  std::unique_ptr<MifTable> table;
};

// ---------------------------------------------------------- worked examples

TEST_F(MifTableTest, TemplateExampleFromTextToAnswers) {
  ASSERT_EQ(build(kDisks, L"Disks"), 0);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->getRowNumber(), 2u);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"sda", L"sdb"}));
  EXPECT_EQ(field(L"sdb", L"Size"), L"0");
  EXPECT_EQ(field(L"sda", L"Size"), L"100");
  EXPECT_EQ(field(L"sda", L"Device"), L"sda");
  std::vector<String> row;
  EXPECT_EQ(table->getRow(String(L"sdb"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"sdb", L"0"}));
  bool exists = false;
  EXPECT_EQ(table->rowExists(String(L"sda"), exists), 0);
  EXPECT_TRUE(exists);
}

TEST_F(MifTableTest, ScalarExampleFromTextToAnswers) {
  ASSERT_EQ(build(kAgents, L"Agents"), 0);
  EXPECT_EQ(table->getRowNumber(), 1u);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"Agent"});
  EXPECT_EQ(field(L"Agent", L"Name"), L"Agent");
  EXPECT_EQ(field(L"Agent", L"Version"), L"2.1");
  std::vector<String> row;
  EXPECT_EQ(table->getRow(String(L"Agent"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"Agent", L"2.1"}));
}

TEST_F(MifTableTest, ABuiltTableShowsItsGroupsNamesAndKind) {
  ASSERT_EQ(build(templateText(L"3,1", {L"1|A|", L"2|B|", L"3|C|"}, {L"{a, b, c}"})), 0);
  EXPECT_EQ(wide(table->attributeNames()), (std::vector<std::wstring>{L"A", L"B", L"C"}));
  EXPECT_EQ(wide(table->keyNames()), (std::vector<std::wstring>{L"C", L"A"}));
  EXPECT_FALSE(table->isScalar());

  ASSERT_EQ(build(kAgents, L"Agents"), 0);
  EXPECT_EQ(wide(table->attributeNames()), (std::vector<std::wstring>{L"Name", L"Version"}));
  EXPECT_EQ(wide(table->keyNames()), std::vector<std::wstring>{L"Name"});
  EXPECT_TRUE(table->isScalar());
}

TEST_F(MifTableTest, AScalarGroupIsOneRowKeyedByItsFirstValue) {
  ASSERT_EQ(build(L"start group\nclass = C\nid = 1\n"
                  L"start attribute\nid = 1\nname = a\nvalue = 7\nend attribute\n"
                  L"start attribute\nid = 2\nname = b\nvalue = x\nend attribute\nend group"),
            0);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"7"});
  std::vector<String> row;
  EXPECT_EQ(table->getRow(String(L"7"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"7", L"x"}));
}

TEST_F(MifTableTest, AScalarGroupNeedsNoTableScopeAndIgnoresOne) {
  ASSERT_EQ(build(L"start component\nstart group\nclass = C\nid = 1\n"
                  L"start attribute\nname = a\nvalue = only\nend attribute\nend group\n"
                  L"start table\nclass = C\n{other}\n{more}\nend table\nend component"),
            0);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"only"});
}

// ------------------------------------------------------------ failure codes

TEST_F(MifTableTest, NullTopIsInvalidArgument) {
  cstest::TraceCapture trace(Trace::Scope);
  MifTable* raw = reinterpret_cast<MifTable*>(0x1);
  EXPECT_EQ(MifTable::getMifTable(nullptr, String(L"C"), raw), -101);
  EXPECT_EQ(raw, nullptr);
  EXPECT_EQ(trace.texts(), std::vector<std::string>{"Invalid input parameters."});
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].label, kGetMifTableLabel);
  ASSERT_FALSE(trace.scopes().empty());
  EXPECT_EQ(trace.scopes().front().label, kGetMifTableLabel);
}

TEST_F(MifTableTest, EveryBuildFailureIsReachedFromText) {
  struct Case {
    const char* what;
    std::wstring text;
    TErrorCode code;
    const wchar_t* className = L"C";
  };
  const std::vector<std::wstring> two = {L"1|A|", L"2|B|"};
  const Case cases[] = {
      {"no group of the class", templateText(L"1", two, {L"{a, b}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND, L"D"},
      {"two key variables",
       L"start group\nclass = C\nkey = 1\nkey = 1\nstart attribute\nid = 1\nname = A\nend "
       L"attribute\nend group",
       CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED},
      {"two id variables",
       L"start group\nclass = C\nid = 1\nid = 1\nstart attribute\nid = 1\nname = A\nend "
       L"attribute\nend group",
       CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED},
      {"a key list of commas only", templateText(L",", two, {L"{a, b}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE},
      {"both id and key",
       L"start group\nclass = C\nid = 1\nkey = 1\nstart attribute\nid = 1\nname = A\nend "
       L"attribute\nend group",
       CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE},
      {"neither id nor key",
       L"start group\nclass = C\nstart attribute\nid = 1\nname = A\nend attribute\nend group",
       CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE},
      {"a scalar group without attributes", L"start group\nclass = C\nid = 1\nend group",
       CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND},
      {"a template group without attributes", templateText(L"1", {}, {L"{}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND},
      {"a key id no attribute has", templateText(L"1,9", two, {L"{a, b}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND},
      {"a template without a table",
       L"start group\nclass = C\nkey = 1\nstart attribute\nid = 1\nname = A\nend attribute\nend "
       L"group",
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND},
      {"a table of another class only",
       L"start component\nstart group\nclass = C\nkey = 1\nstart attribute\nid = 1\nname = A\nend "
       L"attribute\n"
       L"end group\nstart table\nclass = c\n{a}\nend table\nend component",
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND},
      {"a row with one value too many after a good row",
       templateText(L"1", two, {L"{a, b}", L"{c, d, e}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED},
      {"a row with one value too few after a good row",
       templateText(L"1", two, {L"{a, b}", L"{c}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED},
      {"an empty row stands for one empty value", templateText(L"1", two, {L"{}"}),
       CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED},
  };
  for (const Case& c : cases) {
    cstest::TraceCapture trace;
    EXPECT_EQ(build(c.text, c.className), c.code) << c.what;
    EXPECT_EQ(table, nullptr) << c.what;
    ASSERT_FALSE(trace.texts(1).empty()) << c.what;
    EXPECT_EQ(trace.texts(1).back(),
              "Failure initializing the MIF table (class = " + cstest::narrow(c.className) + ")")
        << c.what;
  }
}

TEST_F(MifTableTest, DuplicateKeyInErrorModeFailsWithoutAPartialTable) {
  setPolicy(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR);
  cstest::TraceCapture trace;
  EXPECT_EQ(
      build(templateText(L"1", {L"1|A|", L"2|B|"}, {L"{a, 1}", L"{b, 2}", L"{a, 3}", L"{c, 4}"})),
      CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY);
  EXPECT_EQ(table, nullptr);
  std::vector<TraceRecord> errors;
  for (const TraceRecord& r : trace.records()) {
    if (r.level == 1) errors.push_back(r);
  }
  ASSERT_GE(errors.size(), 2u);
  const TraceRecord& record = errors[0];
  EXPECT_EQ(record.level, 1);
  EXPECT_EQ(record.label, kParseRowsLabel);
  EXPECT_EQ(record.file, "../../../../src/plugins/CustomScanPlugin/mifParser/MifTable");
  EXPECT_EQ(cstest::narrow(record.text), "Duplicated row with key a found");
  EXPECT_EQ(trace.texts(1).back(), "Failure initializing the MIF table (class = C)");
}

TEST_F(MifTableTest, DuplicateKeyInWarnModeKeepsTheFirstRowAndWarns) {
  const wchar_t* policies[] = {nullptr,   CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN,
                               L"ERROR",  L"Error",
                               L"error ", L""};
  for (const wchar_t* policy : policies) {
    Configuration::cleanup(CUSTOM_SCAN_PLUGIN_NAME);
    if (policy != nullptr) setPolicy(policy);
    const std::string label = policy == nullptr ? "<unset>" : cstest::narrow(policy);
    cstest::TraceCapture trace;
    ASSERT_EQ(
        build(templateText(L"1", {L"1|A|", L"2|B|"}, {L"{a, 1}", L"{b, 2}", L"{a, 3}", L"{a, 4}"})),
        0)
        << label;
    EXPECT_EQ(keys(), (std::vector<std::wstring>{L"a", L"b"})) << label;
    EXPECT_EQ(field(L"a", L"B"), L"1") << label;
    std::vector<TraceRecord> warnings;
    for (const TraceRecord& r : trace.records()) {
      if (r.level == 2) warnings.push_back(r);
    }
    ASSERT_EQ(warnings.size(), 2u) << label;
    EXPECT_EQ(warnings[0].label, kParseRowsLabel);
    EXPECT_EQ(cstest::narrow(warnings[0].text), "Duplicated row with key a found, skipping row");
    EXPECT_TRUE(trace.texts(1).empty()) << label;
  }
}

TEST_F(MifTableTest, ThePolicyIsReadAfreshForEveryTable) {
  const std::wstring text = templateText(L"1", {L"1|A|"}, {L"{a}", L"{a}"});
  EXPECT_EQ(build(text), 0);
  setPolicy(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR);
  EXPECT_EQ(build(text), CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY);
  setPolicy(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN);
  EXPECT_EQ(build(text), 0);
}

TEST_F(MifTableTest, ValuesHoldingTheSeparatorCanCollide) {
  cstest::TraceCapture trace;
  ASSERT_EQ(build(templateText(L"1,2", {L"1|A|", L"2|B|", L"3|C|"},
                               {L"{a#b, c, first}", L"{a, b#c, second}"})),
            0);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"a#b#c"});
  EXPECT_EQ(field(L"a#b#c", L"C"), L"first");
  EXPECT_EQ(trace.texts(2),
            std::vector<std::string>{"Duplicated row with key a#b#c found, skipping row"});
}

// ------------------------------------------------------------- row building

TEST_F(MifTableTest, AnItemLeftBlankTakesTheTemplateValueEvenAnEmptyOne) {
  ASSERT_EQ(build(templateText(L"1", {L"1|Key|", L"2|Size|0", L"3|Label|", L"4|Owner|root"},
                               {L"{a, , , }", L"{b, \"\", \"\", \"\"}", L"{c, 5, x, me}"})),
            0);
  std::vector<String> row;
  ASSERT_EQ(table->getRow(String(L"a"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"a", L"0", L"", L"root"}));
  // Two quotes are a value, not a blank.
  ASSERT_EQ(table->getRow(String(L"b"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"b", L"", L"", L""}));
  ASSERT_EQ(table->getRow(String(L"c"), row), 0);
  EXPECT_EQ(wide(row), (std::vector<std::wstring>{L"c", L"5", L"x", L"me"}));
}

TEST_F(MifTableTest, ABlankKeyItemTakesTheDefaultKey) {
  ASSERT_EQ(build(templateText(L"1", {L"1|Name|unnamed", L"2|B|"}, {L"{, 1}", L"{x, 2}"})), 0);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"unnamed", L"x"}));
}

TEST_F(MifTableTest, OnlyRowsOfTheTableCountOtherVariablesAreNotRead) {
  ASSERT_EQ(build(L"start component\n"
                  L"start group\nclass = C\nkey = 1\nname = g\n"
                  L"start attribute\nid = 1\nname = A\nend attribute\nend group\n"
                  L"start table\nname = t\nid = 99\nclass = C\n{a}\nref = group\n{b}\nend table\n"
                  L"end component"),
            0);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"a", L"b"}));
}

TEST_F(MifTableTest, TheFirstTableOfTheClassIsUsed) {
  ASSERT_EQ(build(L"start component\n"
                  L"start group\nclass = C\nkey = 1\nstart attribute\nid = 1\nname = A\nend "
                  L"attribute\nend group\n"
                  L"start x\nstart table\nclass = C\n{first}\nend table\nend x\n"
                  L"start table\nclass = C\n{second}\nend table\n"
                  L"end component"),
            0);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"first"});
}

TEST_F(MifTableTest, ATableWithoutRowsIsAnEmptyTable) {
  ASSERT_EQ(build(templateText(L"1", {L"1|A|"}, {})), 0);
  EXPECT_EQ(table->getRowNumber(), 0u);
  EXPECT_TRUE(keys().empty());
}

// One row per case: the key list of a group of attributes 1 A, 2 B, 3 C with
// empty defaults, one table row, and the key it is stored under.
TEST_F(MifTableTest, CompositeKeys) {
  struct Case {
    const wchar_t* key;
    const wchar_t* row;
    const wchar_t* expected;
  };
  const Case cases[] = {
      {L"1", L"{a, b, c}", L"a"},
      {L"1,2", L"{a, b, c}", L"a#b"},
      {L"2,1", L"{a, b, c}", L"b#a"},
      {L"3,1,2", L"{a, b, c}", L"c#a#b"},
      {L"1,1", L"{a, b, c}", L"a#a"},
      {L"2,2,2", L"{a, b, c}", L"b#b#b"},
      {L",1,,3,", L"{a, b, c}", L"a#c"},
      {L"1,2", L"{\"\", b, c}", L"b"},
      {L"1,2", L"{, b, c}", L"b"},
      {L"1,2", L"{a, \"\", c}", L"a#"},
      {L"1,2,3", L"{\"\", \"\", c}", L"c"},
      {L"1,2,3", L"{a, \"\", c}", L"a##c"},
      {L"1,2,3", L"{\"\", b, \"\"}", L"b#"},
      {L"1,2,3", L"{\"\", \"\", \"\"}", L""},
      {L"1", L"{\"a b\", c, d}", L"a b"},
      {L"1,2", L"{\" a \", \"b \", c}", L" a #b "},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(build(templateText(c.key, {L"1|A|", L"2|B|", L"3|C|"}, {c.row})), 0)
        << cstest::narrow(c.key) << " " << cstest::narrow(c.row);
    EXPECT_EQ(keys(), std::vector<std::wstring>{c.expected})
        << cstest::narrow(c.key) << " " << cstest::narrow(c.row);
  }
}

// A key list names attributes by id, but a row's key is read from the first
// attribute that has the named attribute's name.
TEST_F(MifTableTest, AKeyOnAnAttributeWhoseNameAnEarlierOneSharesReadsTheEarlierColumn) {
  struct Case {
    const wchar_t* key;
    const wchar_t* expected;
  };
  const Case cases[] = {
      {L"1", L"x"}, {L"2", L"x"}, {L"3", L"z"}, {L"3,2", L"z#x"}, {L"2,3,1", L"x#z#x"},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(build(templateText(c.key, {L"1|A|", L"2|A|", L"3|B|"}, {L"{x, y, z}"})), 0)
        << cstest::narrow(c.key);
    EXPECT_EQ(keys(), std::vector<std::wstring>{c.expected}) << cstest::narrow(c.key);
  }
}

TEST_F(MifTableTest, KeyListsThatNameNoUsableId) {
  struct Case {
    const wchar_t* key;
    TErrorCode code;
  };
  const Case cases[] = {
      {L"\",\"", CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE},
      {L"\",,,\"", CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE},
      {L"\"\"", CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE},
      {L"\"1, 2\"", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND},
      {L"\" 1\"", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND},
      {L"1,4", CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(build(templateText(c.key, {L"1|A|", L"2|B|", L"3|C|"}, {L"{a, b, c}"})), c.code)
        << cstest::narrow(c.key);
    EXPECT_EQ(table, nullptr);
  }
}

TEST_F(MifTableTest, IdsWithBlanksMatchAKeyListWithTheSameBlanks) {
  ASSERT_EQ(build(templateText(L"\" 2 ,1\"", {L"1|A|", L"\" 2 \"|B|", L"3|C|"}, {L"{a, b, c}"})),
            0);
  EXPECT_EQ(keys(), std::vector<std::wstring>{L"b#a"});
}

// ------------------------------------------------------------------ queries

TEST_F(MifTableTest, ACodeDifferingOnlyInCaseIsNoRow) {
  ASSERT_EQ(build(kDisks, L"Disks"), 0);
  EXPECT_EQ(field(L"SDA", L"Size"), L"<-14113>");
  EXPECT_EQ(field(L"sda ", L"Size"), L"<-14113>");
  EXPECT_EQ(field(L"sd", L"Size"), L"<-14113>");
  EXPECT_EQ(field(L"", L"Size"), L"<-14113>");
}

TEST_F(MifTableTest, AFieldIsNamedNeverNumbered) {
  ASSERT_EQ(build(kDisks, L"Disks"), 0);
  EXPECT_EQ(field(L"sda", L"1"), L"<-14112>");
  EXPECT_EQ(field(L"sda", L"2"), L"<-14112>");
  EXPECT_EQ(field(L"sda", L"size"), L"<-14112>");
  ASSERT_EQ(build(templateText(L"1", {L"1|Name|", L"2|1|"}, {L"{a, numbered}"})), 0);
  EXPECT_EQ(field(L"a", L"1"), L"numbered");
}

TEST_F(MifTableTest, APresentRowWithAnEmptyValueAnswersEmpty) {
  ASSERT_EQ(build(templateText(L"1", {L"1|A|", L"2|B|"}, {L"{a, }"})), 0);
  EXPECT_EQ(field(L"a", L"B"), L"");
}

TEST_F(MifTableTest, TheFirstOfTwoEqualNamesAnswers) {
  ASSERT_EQ(build(templateText(L"1", {L"1|K|", L"2|Dup|", L"3|Dup|"}, {L"{a, first, second}"})), 0);
  EXPECT_EQ(field(L"a", L"Dup"), L"first");
}

TEST_F(MifTableTest, FailedLookupsLeaveTheirOutputsUntouched) {
  ASSERT_EQ(build(kDisks, L"Disks"), 0);
  std::vector<String> row{String(L"kept")};
  EXPECT_EQ(table->getRow(String(L"sdz"), row), CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND);
  EXPECT_EQ(wide(row), std::vector<std::wstring>{L"kept"});
  String value(L"kept");
  EXPECT_EQ(table->getField(String(L"sda"), String(L"Nope"), value),
            CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND);
  EXPECT_EQ(table->getField(String(L"nope"), String(L"Size"), value),
            CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND);
  EXPECT_EQ(toWideString(value), L"kept");
}

TEST_F(MifTableTest, AnUnknownCodeDoesNotExist) {
  ASSERT_EQ(build(kDisks, L"Disks"), 0);
  bool exists = true;
  EXPECT_EQ(table->rowExists(String(L"sdz"), exists), 0);
  EXPECT_FALSE(exists);
  EXPECT_EQ(table->rowExists(String(L"Sda"), exists), 0);
  EXPECT_FALSE(exists);
}

TEST_F(MifTableTest, AScalarTableHasExactlyOneKey) {
  ASSERT_EQ(build(kAgents, L"Agents"), 0);
  std::vector<String> out{String(L"stale"), String(L"stale")};
  EXPECT_EQ(table->getKeys(out), 0);
  EXPECT_EQ(wide(out), std::vector<std::wstring>{L"Agent"});
}

TEST_F(MifTableTest, KeysComeOutSortedNotInDocumentOrder) {
  ASSERT_EQ(build(templateText(L"1", {L"1|A|"}, {L"{b}", L"{a}", L"{c}"})), 0);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"a", L"b", L"c"}));
  // Code point order: capitals before small letters, longer after its prefix.
  ASSERT_EQ(build(templateText(L"1", {L"1|A|"},
                               {L"{b}", L"{B}", L"{ä}", L"{ab}", L"{a}", L"{10}", L"{9}"})),
            0);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"10", L"9", L"B", L"a", L"ab", L"b", L"ä"}));
  EXPECT_EQ(table->getRowNumber(), 7u);
}

TEST_F(MifTableTest, InitializeWithoutATopElementIsAnAssertion) {
  MifTable bare{String(L"C")};
  EXPECT_DEATH(bare.initialize(nullptr), "mifParser/MifTable.*i_TopElement != 0");
}

// ------------------------------------------------------- taking a table

// Everything the table answers: each key and its row.
std::vector<std::wstring> contents(const MifTable* table) {
  if (table == nullptr) return {L"<null>"};
  return cstest::tableText(*table);
}

TEST_F(MifTableTest, TakingATableFromATreeGivesWhatCopyingGives) {
  const std::vector<std::wstring> attributes = {L"1|Device|", L"2|Size|0", L"3|Kind|disk"};
  struct Taken {
    const char* what;
    const wchar_t* policy;
    std::wstring text;
    const wchar_t* className;
  };
  const Taken cases[] = {
      {"rows out of order, blanks and empty values", L"warn",
       templateText(L"1", attributes,
                    {L"{\"sdc\", 3, }", L"{\"sda\", , \"\"}", L"{\"sdb\", 2, x}"}),
       L"C"},
      {"duplicates, first wins", L"warn",
       templateText(L"1", attributes, {L"{a, 1, x}", L"{b, 2, y}", L"{a, 3, z}", L"{c, 4, w}"}),
       L"C"},
      {"duplicates in error mode", L"error",
       templateText(L"1", attributes, {L"{a, 1, x}", L"{b, 2, y}", L"{a, 3, z}", L"{c, 4, w}"}),
       L"C"},
      {"a short row after good ones", L"warn",
       templateText(L"1", attributes, {L"{a, 1, x}", L"{b, 2}", L"{c, 3, z}"}), L"C"},
      {"composite key", L"warn",
       templateText(L"3,1", attributes, {L"{a, 1, x}", L"{b, 2, x}", L"{a, 3, y}"}), L"C"},
      {"no rows", L"warn", templateText(L"1", attributes, {}), L"C"},
      {"scalar class", L"warn", kAgents, L"Agents"},
      {"worked example", L"warn", kDisks, L"Disks"},
      {"missing class", L"warn", kDisks, L"Nothing"},
  };
  for (const Taken& c : cases) {
    setPolicy(c.policy);
    MifTree copied(c.text);
    MifTree given(c.text);
    ASSERT_EQ(copied.code(), 0) << c.what;
    cstest::TraceCapture copyTrace;
    MifTable* copy = nullptr;
    const TErrorCode copyCode = MifTable::getMifTable(copied.top(), String(c.className), copy);
    const std::vector<std::string> copyTexts = copyTrace.texts();
    copyTrace.clear();
    MifTable* taken = nullptr;
    MifElement* top = given.release();
    const TErrorCode takenCode = MifTable::takeMifTable(top, String(c.className), taken);
    delete top;
    EXPECT_EQ(takenCode, copyCode) << c.what;
    EXPECT_EQ(copyTrace.texts(), copyTexts) << c.what;
    EXPECT_EQ(contents(taken), contents(copy)) << c.what;
    delete copy;
    delete taken;
  }
}

// Rows that come before, between and after those stored already, and
// repeats of keys stored first, last and in the middle, taken from the tree:
// every key in order with its first row, a warning for each repeat in
// document order; in error mode the first repeat fails the whole table.
TEST_F(MifTableTest, ATakenTableOrdersRowsInAnyOrderAndKeepsTheFirstOfARepeatedKey) {
  const std::wstring text = templateText(
      L"2,1", {L"1|Slot|", L"2|Name|", L"3|Size|0"},
      {L"{1, c, 30}", L"{1, a, 10}", L"{1, b, 20}", L"{1, e, 50}", L"{1, a, 11}", L"{1, d, 40}",
       L"{1, e, 51}", L"{1, c, 31}", L"{2, a, 12}", L"{1, b, }", L"{1, f, }"});
  for (const wchar_t* policy : {CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN,
                                CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR}) {
    setPolicy(policy);
    const bool failing =
        std::wstring(policy) == CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR;
    MifTree tree(text);
    ASSERT_EQ(tree.code(), 0);
    cstest::TraceCapture trace;
    MifTable* raw = reinterpret_cast<MifTable*>(0x1);
    const TErrorCode rc = MifTable::takeMifTable(tree.top(), String(L"C"), raw);
    table.reset(raw);
    if (failing) {
      EXPECT_EQ(rc, CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY);
      EXPECT_EQ(table, nullptr);
      EXPECT_EQ(trace.texts(1),
                (std::vector<std::string>{"Duplicated row with key a#1 found",
                                          "Failure initializing the MIF table (class = C)"}));
      continue;
    }
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(
        contents(table.get()),
        (std::vector<std::wstring>{L"a#1:|1|a|10", L"a#2:|2|a|12", L"b#1:|1|b|20", L"c#1:|1|c|30",
                                   L"d#1:|1|d|40", L"e#1:|1|e|50", L"f#1:|1|f|0"}));
    EXPECT_EQ(trace.texts(2),
              (std::vector<std::string>{"Duplicated row with key a#1 found, skipping row",
                                        "Duplicated row with key e#1 found, skipping row",
                                        "Duplicated row with key c#1 found, skipping row",
                                        "Duplicated row with key b#1 found, skipping row"}));
    EXPECT_TRUE(trace.texts(1).empty());
  }
}

TEST_F(MifTableTest, TakingATableFreesItsRowsAndLeavesTheRestOfTheTree) {
  std::wstring text = templateText(L"1", {L"1|Device|", L"2|Size|0"}, {L"{a, 1}", L"{b, }"});
  // A second table scope, of another class, after the first.
  text.insert(text.rfind(L"end component"), L"start table\nclass = \"D\"\n{x, 9}\nend table\n");
  MifTree tree(text);
  ASSERT_EQ(tree.code(), 0);
  const std::string before = treeDump(tree.top());
  MifTable* raw = nullptr;
  ASSERT_EQ(MifTable::takeMifTable(tree.top(), String(L"C"), raw), 0);
  table.reset(raw);
  EXPECT_EQ(keys(), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_EQ(field(L"b", L"Size"), L"0");
  // The rows of the class's table are gone, their slots null; the rest of
  // the tree is as it was, and deleting it (by the fixture) is safe.
  std::string expected = before;
  const std::string rows = "    Row <a | 1>\n    Row <b | >\n";
  ASSERT_NE(expected.find(rows), std::string::npos) << before;
  expected.replace(expected.find(rows), rows.size(), "    <null>\n    <null>\n");
  EXPECT_EQ(treeDump(tree.top()), expected);
  EXPECT_NE(expected.find("    Row <x | 9>\n"), std::string::npos);
}

TEST_F(MifTableTest, ATakenTableThatFailsMidwayLeavesOnlyTheRowsTakenSoFarFreed) {
  MifTree tree(templateText(L"1", {L"1|Device|", L"2|Size|0"}, {L"{a, 1}", L"{b}", L"{c, 3}"}));
  ASSERT_EQ(tree.code(), 0);
  MifTable* raw = reinterpret_cast<MifTable*>(0x1);
  EXPECT_EQ(MifTable::takeMifTable(tree.top(), String(L"C"), raw),
            CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED);
  EXPECT_EQ(raw, nullptr);
  const std::string dump = treeDump(tree.top());
  EXPECT_NE(dump.find("    Variable <class = C>\n    <null>\n    Row <b>\n    Row <c | 3>\n"),
            std::string::npos)
      << dump;
}

}  // namespace
