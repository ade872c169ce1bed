#include "mifParser/MifGroup.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifTestSupport.h"
#include "TestSupport.h"

using cstest::MifTree;
using cstest::newScope;
using cstest::newVariable;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifGroup;

namespace {

const char kGetMifGroupLabel[] = "MifGroup::getMifGroup(MifElement *, String &, MifGroup *&)";
const char kInitializeLabel[] = "MifGroup::initialize()";

std::vector<std::wstring> wide(const std::vector<String>& strings) {
  std::vector<std::wstring> out;
  for (const String& s : strings) out.push_back(toWideString(s));
  return out;
}

// A component holding one group of class C with the given direct lines, and
// attributes given as "id|name|value" lines.
std::wstring groupText(const std::wstring& groupLines,
                       const std::vector<std::wstring>& attributes) {
  std::wstring text = L"start component\nstart group\nclass = \"C\"\n" + groupLines;
  for (const std::wstring& a : attributes) {
    const std::size_t bar1 = a.find(L'|');
    const std::size_t bar2 = a.find(L'|', bar1 + 1);
    text += L"start attribute\nid = " + a.substr(0, bar1) + L"\nname = \"" +
            a.substr(bar1 + 1, bar2 - bar1 - 1) + L"\"\nvalue = \"" + a.substr(bar2 + 1) +
            L"\"\nend attribute\n";
  }
  return text + L"end group\nend component\n";
}

class MifGroupTest : public ::testing::Test {
 protected:
  // Parses text and asks for the group of className.
  TErrorCode load(const std::wstring& text, const wchar_t* className = L"C") {
    tree.reset(new MifTree(text));
    EXPECT_EQ(tree->code(), 0) << cstest::narrow(text);
    MifGroup* raw = reinterpret_cast<MifGroup*>(0x1);
    const TErrorCode rc = MifGroup::getMifGroup(tree->top(), String(className), raw);
    group.reset(raw);
    return rc;
  }

  std::unique_ptr<MifTree> tree;
  std::unique_ptr<MifGroup> group;
};

TEST_F(MifGroupTest, NullTopIsInvalidArgument) {
  cstest::TraceCapture trace(Trace::Scope);
  MifGroup* raw = reinterpret_cast<MifGroup*>(0x1);
  EXPECT_EQ(MifGroup::getMifGroup(nullptr, String(L"C"), raw), -101);
  EXPECT_EQ(raw, nullptr);
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].label, kGetMifGroupLabel);
  EXPECT_EQ(trace.records()[0].level, 1);
  EXPECT_EQ(trace.texts(), std::vector<std::string>{"Invalid top MIF element specified"});
  ASSERT_FALSE(trace.scopes().empty());
  EXPECT_EQ(trace.scopes().front().label, kGetMifGroupLabel);
}

TEST_F(MifGroupTest, MissingGroupIsGroupNotFound) {
  cstest::TraceCapture trace;
  EXPECT_EQ(load(groupText(L"id = 1\n", {L"1|Name|x"}), L"Other"),
            CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
  EXPECT_EQ(group, nullptr);
  EXPECT_EQ(trace.texts(), std::vector<std::string>{"Group not found (class = Other)"});
}

TEST_F(MifGroupTest, AClassDifferingOnlyInCaseIsNotFound) {
  EXPECT_EQ(load(groupText(L"id = 1\n", {L"1|Name|x"}), L"c"),
            CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND);
}

TEST_F(MifGroupTest, IdWithoutKeyIsScalarKeyedByTheFirstAttributeName) {
  cstest::TraceCapture trace(Trace::Scope);
  ASSERT_EQ(load(groupText(L"id = 3\n", {L"1|Name|Agent", L"2|Version|2.1"})), 0);
  ASSERT_NE(group, nullptr);
  EXPECT_TRUE(group->isScalar());
  EXPECT_FALSE(group->isTemplate());
  EXPECT_EQ(toWideString(group->getClassName()), L"C");
  std::vector<String> out{String(L"stale")};
  EXPECT_EQ(group->getKeys(out), 0);
  EXPECT_EQ(wide(out), std::vector<std::wstring>{L"Name"});
  EXPECT_EQ(group->getAttributeNumber(), 2u);
  EXPECT_EQ(group->getAttributeNames(out), 0);
  EXPECT_EQ(wide(out), (std::vector<std::wstring>{L"Name", L"Version"}));
  EXPECT_EQ(group->getAttributeValues(out), 0);
  EXPECT_EQ(wide(out), (std::vector<std::wstring>{L"Agent", L"2.1"}));
  EXPECT_EQ(trace.texts(3), std::vector<std::string>{"The MIF group is of type 1"});
  EXPECT_TRUE(trace.texts(1).empty());
  bool initializeScope = false;
  for (const auto& scope : trace.scopes()) initializeScope |= scope.label == kInitializeLabel;
  EXPECT_TRUE(initializeScope);
}

TEST_F(MifGroupTest, KeyWithoutIdIsTemplate) {
  cstest::TraceCapture trace;
  ASSERT_EQ(load(groupText(L"key = 2\n", {L"1|Device|", L"2|Size|0"})), 0);
  EXPECT_TRUE(group->isTemplate());
  EXPECT_FALSE(group->isScalar());
  std::vector<String> keys;
  group->getKeys(keys);
  EXPECT_EQ(wide(keys), std::vector<std::wstring>{L"Size"});
  EXPECT_EQ(trace.texts(3), std::vector<std::string>{"The MIF group is of type 2"});
}

TEST_F(MifGroupTest, IdAndKeyVariableNamesMayBeInAnyCase) {
  ASSERT_EQ(load(groupText(L"ID = 3\n", {L"1|Name|x"})), 0);
  EXPECT_TRUE(group->isScalar());
  ASSERT_EQ(load(groupText(L"Key = 1\n", {L"1|Name|x"})), 0);
  EXPECT_TRUE(group->isTemplate());
}

TEST_F(MifGroupTest, IdsOfAttributesDoNotCountForTheGroupType) {
  // Each attribute has an id, but none is a direct child of the group.
  cstest::TraceCapture trace;
  EXPECT_EQ(load(groupText(L"", {L"1|Name|x", L"2|Size|y"})),
            CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE);
  ASSERT_FALSE(trace.texts(1).empty());
  EXPECT_EQ(trace.texts(1).front(), "Unsupported group type (type = 0)");
}

TEST_F(MifGroupTest, UnsupportedGroupTypes) {
  struct Case {
    const wchar_t* lines;
    int type;
  };
  const Case cases[] = {{L"", 0}, {L"id = 1\nkey = 1\n", 3}, {L"key = 1\nid = 1\n", 3}};
  for (const Case& c : cases) {
    cstest::TraceCapture trace;
    EXPECT_EQ(load(groupText(c.lines, {L"1|Name|x"})),
              CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE)
        << cstest::narrow(c.lines);
    EXPECT_EQ(group, nullptr);
    const std::string type = std::to_string(c.type);
    EXPECT_EQ(trace.texts(),
              (std::vector<std::string>{"The MIF group is of type " + type,
                                        "Unsupported group type (type = " + type + ")",
                                        "Failure initializing the group (class = C)"}))
        << cstest::narrow(c.lines);
  }
}

TEST_F(MifGroupTest, TheFirstDuplicateInDocumentOrderDecides) {
  struct Case {
    const wchar_t* lines;
    TErrorCode code;
  };
  const Case cases[] = {
      {L"key = 1\nkey = 1\nid = 1\nid = 1\n", CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED},
      {L"id = 1\nid = 2\nkey = 1\nkey = 1\n", CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED},
      {L"id = 1\nkey = 1\nKEY = 1\nID = 1\n", CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED},
      {L"id = 1\nId = 1\n", CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED},
  };
  for (const Case& c : cases) {
    cstest::TraceCapture trace;
    EXPECT_EQ(load(groupText(c.lines, {L"1|Name|x"})), c.code) << cstest::narrow(c.lines);
    EXPECT_EQ(group, nullptr);
    EXPECT_EQ(trace.texts(),
              (std::vector<std::string>{
                  "Failure parsing group's type (err = " + std::to_string(c.code) + ")",
                  "Failure initializing the group (class = C)"}))
        << cstest::narrow(c.lines);
  }
}

TEST_F(MifGroupTest, AGroupWithoutAttributeScopesHasNoAttributesWhateverItsType) {
  for (const wchar_t* lines : {L"id = 1\n", L"key = 1\n"}) {
    cstest::TraceCapture trace;
    EXPECT_EQ(load(groupText(lines, {})), CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND)
        << cstest::narrow(lines);
    EXPECT_EQ(group, nullptr);
    ASSERT_EQ(trace.texts(1).size(), 2u);
    EXPECT_EQ(trace.texts(1)[0], "Failure parsing group's attributes (err = -14109)");
  }
}

TEST_F(MifGroupTest, AttributeFieldsAreReadByNameInAnyCaseTheLastOneWinning) {
  ASSERT_EQ(
      load(L"start group\nclass = C\nid = 1\n"
           L"start Attribute\nNAME = first\nname = \"Second\"\nID = 7\nTYPE = string\nValue = v\n"
           L"other = ignored\nend attribute\n"
           L"start attribute\nend attribute\n"
           L"start group\nclass = D\nstart attribute\nname = nested\nend attribute\nend group\n"
           L"start table\nclass = C\n{1}\nend table\n"
           L"start attributes\nname = not an attribute\nend attributes\n"
           L"end group"),
      0);
  std::vector<String> out;
  EXPECT_EQ(group->getAttributeNumber(), 2u);
  group->getAttributeNames(out);
  EXPECT_EQ(wide(out), (std::vector<std::wstring>{L"Second", L""}));
  group->getAttributeValues(out);
  EXPECT_EQ(wide(out), (std::vector<std::wstring>{L"v", L""}));
  String name(L"untouched");
  EXPECT_EQ(group->getAttributeNameById(String(L"7"), name), 0);
  EXPECT_EQ(toWideString(name), L"Second");
  // The empty attribute has an empty id, which an empty id finds.
  EXPECT_EQ(group->getAttributeNameById(String(L""), name), 0);
  EXPECT_EQ(toWideString(name), L"");
}

TEST_F(MifGroupTest, AttributeIdsAreMatchedExactly) {
  ASSERT_EQ(load(groupText(L"id = 1\n", {L"1|One|x", L"01|Zero one|y", L"1|Again|z"})), 0);
  String name(L"untouched");
  EXPECT_EQ(group->getAttributeNameById(String(L"1"), name), 0);
  EXPECT_EQ(toWideString(name), L"One");
  EXPECT_EQ(group->getAttributeNameById(String(L"01"), name), 0);
  EXPECT_EQ(toWideString(name), L"Zero one");
  name = String(L"untouched");
  EXPECT_EQ(group->getAttributeNameById(String(L" 1"), name),
            CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND);
  EXPECT_EQ(group->getAttributeNameById(String(L"2"), name),
            CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND);
  EXPECT_EQ(toWideString(name), L"untouched");
}

TEST_F(MifGroupTest, TemplateKeyLists) {
  struct Case {
    const wchar_t* key;
    TErrorCode code;
    std::vector<std::wstring> names;
  };
  const TErrorCode notFound = CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND;
  const TErrorCode wrong = CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE;
  const Case cases[] = {
      {L"1", 0, {L"A"}},         {L"1,3", 0, {L"A", L"C"}},
      {L"2,1", 0, {L"B", L"A"}}, {L"3,1,2", 0, {L"C", L"A", L"B"}},
      {L"1,1", 0, {L"A", L"A"}}, {L",1,,2,", 0, {L"A", L"B"}},
      {L"\"2\"", 0, {L"B"}},     {L"1,9", notFound, {}},
      {L"9", notFound, {}},      {L"1, 2", notFound, {}},
      {L"\" 1\"", notFound, {}}, {L",", wrong, {}},
      {L",,,", wrong, {}},       {L"", wrong, {}},
  };
  for (const Case& c : cases) {
    cstest::TraceCapture trace;
    const std::wstring lines = std::wstring(L"key = ") + c.key + L"\n";
    const TErrorCode rc = load(groupText(lines, {L"1|A|a", L"2|B|b", L"3|C|c"}));
    EXPECT_EQ(rc, c.code) << cstest::narrow(c.key);
    if (c.code != 0) {
      EXPECT_EQ(group, nullptr);
      EXPECT_EQ(trace.texts(1),
                (std::vector<std::string>{
                    "Failure parsing group's key (err = " + std::to_string(c.code) + ")",
                    "Failure initializing the group (class = C)"}))
          << cstest::narrow(c.key);
      continue;
    }
    ASSERT_NE(group, nullptr);
    std::vector<String> keys;
    group->getKeys(keys);
    EXPECT_EQ(wide(keys), c.names) << cstest::narrow(c.key);
  }
}

TEST_F(MifGroupTest, KeyIdsMayHoldBlanksWhenTheAttributeIdDoesToo) {
  ASSERT_EQ(load(groupText(L"key = \" 1 \"\n", {L"\" 1 \"|Padded|x", L"1|Plain|y"})), 0);
  std::vector<String> keys;
  group->getKeys(keys);
  EXPECT_EQ(wide(keys), std::vector<std::wstring>{L"Padded"});
}

TEST_F(MifGroupTest, TheFirstMatchingGroupInDocumentOrderIsRead) {
  ASSERT_EQ(
      load(
          L"start component\n"
          L"start x\nstart group\nclass = C\nid = 1\nstart attribute\nname = First\nend attribute\n"
          L"end group\nend x\n"
          L"start group\nclass = C\nid = 2\nstart attribute\nname = Second\nend attribute\nend "
          L"group\n"
          L"end component"),
      0);
  std::vector<String> names;
  group->getAttributeNames(names);
  EXPECT_EQ(wide(names), std::vector<std::wstring>{L"First"});
}

TEST_F(MifGroupTest, AnUninitialisedGroupHasNoAttributesAndNoKeys) {
  std::unique_ptr<MifElement> element(newScope(L"group"));
  MifGroup bare(element.get(), String(L"C"));
  EXPECT_FALSE(bare.isScalar());
  EXPECT_FALSE(bare.isTemplate());
  std::vector<String> out{String(L"stale")};
  EXPECT_EQ(bare.getAttributeNames(out), CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND);
  EXPECT_TRUE(out.empty());
  out.push_back(String(L"stale"));
  EXPECT_EQ(bare.getAttributeValues(out), CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND);
  EXPECT_TRUE(out.empty());
  out.push_back(String(L"stale"));
  EXPECT_EQ(bare.getKeys(out), 0);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(bare.getAttributeNumber(), 0u);
}

TEST_F(MifGroupTest, ANullChildOfTheGroupIsAnAssertion) {
  std::unique_ptr<MifElement> top(newScope(L"group", {newVariable(L"class", L"C"), nullptr}));
  MifGroup* raw = nullptr;
  EXPECT_DEATH(MifGroup::getMifGroup(top.get(), String(L"C"), raw),
               "mifParser/MifGroup.*variable != 0");
}

TEST_F(MifGroupTest, ANullChildOfAnAttributeIsAnAssertion) {
  std::unique_ptr<MifElement> top(newScope(
      L"group",
      {newVariable(L"class", L"C"), newVariable(L"id", L"1"), newScope(L"attribute", {nullptr})}));
  MifGroup* raw = nullptr;
  EXPECT_DEATH(MifGroup::getMifGroup(top.get(), String(L"C"), raw),
               "mifParser/MifGroup.*mifAttribute != 0");
}

}  // namespace
