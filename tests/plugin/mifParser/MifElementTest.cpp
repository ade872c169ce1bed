#include "mifParser/MifElement.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "MifTestSupport.h"
#include "TestSupport.h"
#include "mifParser/RowElement.h"
#include "mifParser/ScopeElement.h"
#include "mifParser/VariableElement.h"

using cstest::newRow;
using cstest::newScope;
using cstest::newVariable;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::RowElement;
using CustomScanPlugin::ScopeElement;
using CustomScanPlugin::VariableElement;

namespace {

// Elements that count how many of them are alive.
int g_Alive = 0;
class CountedScope : public ScopeElement {
 public:
  CountedScope() { ++g_Alive; }
  ~CountedScope() override { --g_Alive; }
};
class CountedVariable : public VariableElement {
 public:
  CountedVariable() { ++g_Alive; }
  ~CountedVariable() override { --g_Alive; }
};
class CountedRow : public RowElement {
 public:
  CountedRow() { ++g_Alive; }
  ~CountedRow() override { --g_Alive; }
};

struct Record {
  int level;
  std::string label;
  std::string text;
};

std::vector<Record> recordsOf(const cstest::TraceCapture& trace) {
  std::vector<Record> out;
  for (const TraceRecord& r : trace.records())
    out.push_back(Record{r.level, r.label, cstest::narrow(r.text)});
  return out;
}

class MifElementTest : public ::testing::Test {
 protected:
  // Validates top and returns the texts of the records it wrote.
  std::vector<std::string> validationMessages(const MifElement& top, int* result) {
    cstest::TraceCapture trace;
    *result = top.validate();
    return trace.texts();
  }
};

TEST_F(MifElementTest, NewElementsAreEmptyAndReportTheirType) {
  ScopeElement scope;
  VariableElement variable;
  RowElement row;
  EXPECT_EQ(scope.getType(), MifElement::Scope);
  EXPECT_EQ(variable.getType(), MifElement::Variable);
  EXPECT_EQ(row.getType(), MifElement::Row);
  EXPECT_EQ(static_cast<int>(MifElement::Scope), 0);
  EXPECT_EQ(static_cast<int>(MifElement::Variable), 1);
  EXPECT_EQ(static_cast<int>(MifElement::Row), 2);
  for (const MifElement* e : std::vector<const MifElement*>{&scope, &variable, &row}) {
    EXPECT_TRUE(isEmpty(e->m_Name));
    EXPECT_EQ(e->m_LineNumber, 0);
    EXPECT_EQ(e->childrenSize(), 0u);
  }
  EXPECT_TRUE(isEmpty(variable.m_Value));
  EXPECT_TRUE(row.m_Values.empty());
  RowElement::RowElementStruct item;
  EXPECT_FALSE(item.isEmpty);
  EXPECT_TRUE(isEmpty(item.value));
}

TEST_F(MifElementTest, GetChildAtChildrenSizeIsNull) {
  std::unique_ptr<ScopeElement> scope(
      newScope(L"group", {newVariable(L"a", L"1"), newVariable(L"b", L"2")}));
  ASSERT_EQ(scope->childrenSize(), 2u);
  EXPECT_EQ(toWideString(scope->getChildAt(0)->m_Name), L"a");
  EXPECT_EQ(toWideString(scope->getChildAt(1)->m_Name), L"b");
  EXPECT_EQ(scope->getChildAt(scope->childrenSize()), nullptr);
}

TEST_F(MifElementTest, GetChildAtWithoutChildrenIsNullForEveryIndex) {
  ScopeElement scope;
  for (unsigned int index : {0u, 1u, 2u, 1000u, UINT_MAX})
    EXPECT_EQ(scope.getChildAt(index), nullptr) << index;
}

TEST_F(MifElementTest, AddChildKeepsOrderAndChecksNothing) {
  std::unique_ptr<ScopeElement> scope(newScope(L"group"));
  RowElement* row = newRow({L"x"});
  scope->addChild(row);
  scope->addChild(nullptr);
  VariableElement* variable = newVariable(L"v", L"1");
  scope->addChild(variable);
  ASSERT_EQ(scope->childrenSize(), 3u);
  EXPECT_EQ(scope->getChildAt(0), row);
  EXPECT_EQ(scope->getChildAt(1), nullptr);
  EXPECT_EQ(scope->getChildAt(2), variable);
}

// ------------------------------------------------------------- child rules

TEST_F(MifElementTest, ChildRulesByScopeName) {
  std::unique_ptr<ScopeElement> table(newScope(L"table"));
  std::unique_ptr<ScopeElement> group(newScope(L"group"));
  std::unique_ptr<ScopeElement> upperTable(newScope(L"Table"));
  std::unique_ptr<MifElement> scope(newScope(L"attribute"));
  std::unique_ptr<MifElement> variable(newVariable(L"a", L"1"));
  std::unique_ptr<MifElement> row(newRow({L"1"}));
  EXPECT_TRUE(table->isValidChild(variable.get()));
  EXPECT_TRUE(table->isValidChild(row.get()));
  EXPECT_FALSE(table->isValidChild(scope.get()));
  EXPECT_TRUE(group->isValidChild(variable.get()));
  EXPECT_TRUE(group->isValidChild(scope.get()));
  EXPECT_FALSE(group->isValidChild(row.get()));
  // The name is compared exactly; the parser is what lower-cases it.
  EXPECT_FALSE(upperTable->isValidChild(row.get()));
  EXPECT_TRUE(upperTable->isValidChild(scope.get()));
  EXPECT_FALSE(table->isValidChild(nullptr));
  EXPECT_FALSE(group->isValidChild(nullptr));
}

// -------------------------------------------------------------- validation

TEST_F(MifElementTest, ScopeWithoutChildrenValidates) {
  int result = 0;
  ScopeElement scope;
  EXPECT_TRUE(validationMessages(scope, &result).empty());
  EXPECT_NE(result, 0);
}

TEST_F(MifElementTest, WellFormedTreeValidatesWithoutRecords) {
  std::unique_ptr<ScopeElement> top(newScope(
      L"component", {newVariable(L"name", L"c"),
                     newScope(L"group", {newVariable(L"class", L"Disks"),
                                         newScope(L"attribute", {newVariable(L"id", L"1")})}),
                     newScope(L"table", {newVariable(L"class", L"Disks"), newRow({L"a", L""}),
                                         newRow({L"b", L"2"})})}));
  int result = 0;
  EXPECT_TRUE(validationMessages(*top, &result).empty());
  EXPECT_NE(result, 0);
}

TEST_F(MifElementTest, TableHoldingAttributeScopeIsOfAnUnexpectedType) {
  std::unique_ptr<ScopeElement> table(newScope(L"table", {newScope(L"attribute", {}, 4)}, 3));
  cstest::TraceCapture trace;
  EXPECT_EQ(table->validate(), 0);
  std::vector<Record> records = recordsOf(trace);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 1);
  EXPECT_EQ(records[0].label, "ScopeElement::validate()");
  EXPECT_EQ(records[0].text,
            "Validation (line 3) scope = table The child attribute is of an expected type.");
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].file,
            "../../../../src/plugins/CustomScanPlugin/mifParser/ScopeElement");
}

TEST_F(MifElementTest, GroupHoldingRowIsOfAnUnexpectedType) {
  std::unique_ptr<ScopeElement> group(
      newScope(L"group", {newVariable(L"class", L"x"), newRow({L"1"}, 9)}, 8));
  int result = 1;
  EXPECT_EQ(validationMessages(*group, &result),
            std::vector<std::string>{
                "Validation (line 8) scope = group The child row is of an expected type."});
  EXPECT_EQ(result, 0);
}

TEST_F(MifElementTest, VariableWithEmptyNameFailsItsScopeAfterItsOwnMessage) {
  std::unique_ptr<ScopeElement> group(newScope(L"group", {newVariable(L"", L"x", 5)}, 4));
  cstest::TraceCapture trace;
  EXPECT_EQ(group->validate(), 0);
  std::vector<Record> records = recordsOf(trace);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].label, "VariableElement::validate()");
  EXPECT_EQ(records[0].level, 1);
  EXPECT_EQ(records[0].text, "Validation (line 5) name =  value = x");
  EXPECT_EQ(records[1].label, "ScopeElement::validate()");
  EXPECT_EQ(records[1].text, "Validation (line 4) scope = group The child  is not valid.");
}

TEST_F(MifElementTest, VariableWithEmptyValueIsValid) {
  std::unique_ptr<VariableElement> variable(newVariable(L"name", L""));
  int result = 0;
  EXPECT_TRUE(validationMessages(*variable, &result).empty());
  EXPECT_NE(result, 0);
}

TEST_F(MifElementTest, RowWithoutValuesIsUnexpectedEmptyRow) {
  std::unique_ptr<ScopeElement> table(newScope(L"table"));
  auto* row = new RowElement();
  row->m_Name = String(L"row");
  row->m_LineNumber = 7;
  table->addChild(row);
  table->m_LineNumber = 6;
  cstest::TraceCapture trace;
  EXPECT_EQ(table->validate(), 0);
  std::vector<Record> records = recordsOf(trace);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].label, "RowElement::validate()");
  EXPECT_EQ(records[0].text, "Validation (line 7) unexpected empty row.");
  EXPECT_EQ(records[1].text, "Validation (line 6) scope = table The child row is not valid.");
}

TEST_F(MifElementTest, NullChildIsUnexpectedEmptyChild) {
  std::unique_ptr<ScopeElement> group(newScope(L"group", {newVariable(L"a", L"1"), nullptr}, 2));
  int result = 1;
  EXPECT_EQ(validationMessages(*group, &result),
            std::vector<std::string>{"Validation (line 2) scope = group unexpected empty child"});
  EXPECT_EQ(result, 0);
}

TEST_F(MifElementTest, DeepFailureReportsInnermostFirstOncePerEnclosingScope) {
  std::unique_ptr<ScopeElement> top(newScope(
      L"component",
      {newScope(
          L"group",
          {newVariable(L"class", L"c", 3), newScope(L"attribute", {newVariable(L"", L"v", 5)}, 4)},
          2)},
      1));
  int result = 1;
  EXPECT_EQ(validationMessages(*top, &result),
            (std::vector<std::string>{
                "Validation (line 5) name =  value = v",
                "Validation (line 4) scope = attribute The child  is not valid.",
                "Validation (line 2) scope = group The child attribute is not valid.",
                "Validation (line 1) scope = component The child group is not valid.",
            }));
  EXPECT_EQ(result, 0);
}

TEST_F(MifElementTest, ValidationResumesWithTheSiblingsOfAValidNestedScope) {
  // The first group is valid all the way down; the walk must come back out of
  // it and go on to the table, whose nested scope fails.
  std::unique_ptr<ScopeElement> top(
      newScope(L"component",
               {newScope(L"group", {newScope(L"attribute", {newVariable(L"id", L"1")}, 3)}, 2),
                newScope(L"table", {newRow({L"a"}, 7), newScope(L"group", {}, 8)}, 6)},
               1));
  int result = 1;
  EXPECT_EQ(validationMessages(*top, &result),
            (std::vector<std::string>{
                "Validation (line 6) scope = table The child group is of an expected type.",
                "Validation (line 1) scope = component The child table is not valid.",
            }));
  EXPECT_EQ(result, 0);
}

TEST_F(MifElementTest, ValidationStopsAtTheFirstFailingChild) {
  std::unique_ptr<ScopeElement> group(newScope(
      L"group", {newVariable(L"", L"first", 2), newRow({L"x"}, 3), newVariable(L"", L"third", 4)},
      1));
  int result = 1;
  EXPECT_EQ(
      validationMessages(*group, &result),
      (std::vector<std::string>{"Validation (line 2) name =  value = first",
                                "Validation (line 1) scope = group The child  is not valid."}));
  EXPECT_EQ(result, 0);
}

TEST_F(MifElementTest, ValidatingANestedScopeOnItsOwnReportsFromItUp) {
  std::unique_ptr<ScopeElement> top(
      newScope(L"component", {newScope(L"group", {newRow({L"x"}, 3)}, 2)}, 1));
  int result = 1;
  EXPECT_EQ(validationMessages(*top->getChildAt(0), &result),
            std::vector<std::string>{
                "Validation (line 2) scope = group The child row is of an expected type."});
  EXPECT_EQ(result, 0);
}

// -------------------------------------------------------------------- dump

TEST_F(MifElementTest, DumpLineFormats) {
  std::unique_ptr<ScopeElement> scope(newScope(L"group"));
  std::unique_ptr<VariableElement> variable(newVariable(L"name", L"a = b"));
  std::unique_ptr<RowElement> row(newRow({L"x", L"", L"z"}));
  std::unique_ptr<RowElement> single(newRow({L""}));
  String buffer(L"before|");
  scope->appendDumpBuffer(buffer);
  variable->appendDumpBuffer(buffer);
  row->appendDumpBuffer(buffer);
  single->appendDumpBuffer(buffer);
  EXPECT_EQ(cstest::narrow(toWideString(buffer)),
            "before|Scope <group>\nVariable <name = a = b>\nRow <x |  | z>\nRow <>\n");
}

TEST_F(MifElementTest, DumpWritesTheTreeIndentedByTabsAsOneDetailRecord) {
  std::unique_ptr<ScopeElement> top(newScope(
      L"component",
      {newVariable(L"name", L"c"),
       newScope(L"table", {newRow({L"1", L"2"}), newVariable(L"class", L"d")}), newScope(L"x")}));
  cstest::TraceCapture trace;
  top->dump();
  ASSERT_EQ(trace.records().size(), 1u);
  const TraceRecord& record = trace.records()[0];
  EXPECT_EQ(record.level, 3);
  EXPECT_EQ(record.label, "MifElement::dump()");
  const std::string text = cstest::narrow(record.text);
  ASSERT_EQ(text.substr(0, 1), "\n");
  const std::string expected =
      "Scope <component>\n"
      "\tVariable <name = c>\n"
      "\tScope <table>\n"
      "\t\tRow <1 | 2>\n"
      "\t\tVariable <class = d>\n"
      "\tScope <x>\n";
  ASSERT_GE(text.size(), expected.size());
  // Earlier dumps of this process come first: the buffer is never cleared.
  EXPECT_EQ(text.substr(text.size() - expected.size()), expected);
}

TEST_F(MifElementTest, DumpBufferIsNeverCleared) {
  std::unique_ptr<ScopeElement> first(newScope(L"first", {newVariable(L"a", L"1")}));
  std::unique_ptr<ScopeElement> second(newScope(L"second"));
  cstest::TraceCapture trace;
  first->dump();
  second->dump();
  // Dumping a subtree starts its own indentation at zero.
  first->getChildAt(0)->dump();
  ASSERT_EQ(trace.records().size(), 3u);
  const std::string one = cstest::narrow(trace.records()[0].text);
  const std::string two = cstest::narrow(trace.records()[1].text);
  const std::string three = cstest::narrow(trace.records()[2].text);
  EXPECT_EQ(one.substr(one.size() - std::string("Scope <first>\n\tVariable <a = 1>\n").size()),
            "Scope <first>\n\tVariable <a = 1>\n");
  EXPECT_EQ(two, one + "Scope <second>\n");
  EXPECT_EQ(three, two + "Variable <a = 1>\n");
}

TEST_F(MifElementTest, DumpSkipsNullChildren) {
  std::unique_ptr<ScopeElement> top(newScope(L"top", {nullptr, newScope(L"inner")}));
  cstest::TraceCapture trace;
  top->dump();
  ASSERT_EQ(trace.records().size(), 1u);
  const std::string text = cstest::narrow(trace.records()[0].text);
  const std::string expected = "Scope <top>\n\tScope <inner>\n";
  EXPECT_EQ(text.substr(text.size() - expected.size()), expected);
}

// --------------------------------------------------------------- ownership

TEST_F(MifElementTest, DeletingTheTopFreesTheWholeSubtree) {
  g_Alive = 0;
  auto* top = new CountedScope();
  auto* group = new CountedScope();
  auto* table = new CountedScope();
  top->addChild(group);
  top->addChild(table);
  top->addChild(new CountedVariable());
  group->addChild(new CountedVariable());
  auto* attribute = new CountedScope();
  group->addChild(attribute);
  attribute->addChild(new CountedVariable());
  table->addChild(new CountedRow());
  table->addChild(nullptr);
  table->addChild(new CountedRow());
  EXPECT_EQ(g_Alive, 9);
  delete top;
  EXPECT_EQ(g_Alive, 0);
}

TEST_F(MifElementTest, DeletingAChildlessElementFreesOnlyItself) {
  g_Alive = 0;
  MifElement* variable = new CountedVariable();
  EXPECT_EQ(g_Alive, 1);
  delete variable;
  EXPECT_EQ(g_Alive, 0);
}

}  // namespace
