#include "mifParser/MifUtil.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "MifTestSupport.h"
#include "TestSupport.h"

using cstest::MifTree;
using cstest::newScope;
using cstest::newVariable;
using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifUtil;
using CustomScanPlugin::VariableElement;

namespace {

// The value of the direct variable "tag" of a scope, to tell scopes apart.
std::wstring tagOf(const MifElement* scope) {
  if (scope == nullptr) return L"<none>";
  for (unsigned int i = 0; i < scope->childrenSize(); ++i) {
    auto* variable = dynamic_cast<const VariableElement*>(scope->getChildAt(i));
    if (variable != nullptr && toWideString(variable->m_Name) == L"tag")
      return toWideString(variable->m_Value);
  }
  return L"<untagged>";
}

// Looks a scope up in the tree parsed from text and returns its tag.
std::wstring find(const std::wstring& text, const wchar_t* type, const wchar_t* className) {
  MifTree tree(text);
  EXPECT_EQ(tree.code(), 0) << cstest::narrow(text);
  const MifElement* result = reinterpret_cast<const MifElement*>(0x1);
  EXPECT_EQ(MifUtil::getScopeElement(String(type), String(className), tree.top(), result), 0);
  return tagOf(result);
}

TEST(MifUtilTest, NullTopIsInvalidArgumentAndLeavesResult) {
  const MifElement* const sentinel = reinterpret_cast<const MifElement*>(0x1);
  const MifElement* result = sentinel;
  EXPECT_EQ(MifUtil::getScopeElement(String(L"group"), String(L"A"), nullptr, result), -101);
  EXPECT_EQ(result, sentinel);
}

TEST(MifUtilTest, TheTopScopeItselfCanMatch) {
  EXPECT_EQ(find(L"start group\nclass = A\ntag = top\nend group", L"group", L"A"), L"top");
}

TEST(MifUtilTest, AGroupInsideAnotherScopeIsFound) {
  EXPECT_EQ(find(L"start component\nstart x\nstart group\nclass = A\ntag = deep\nend group\nend "
                 L"x\nend component",
                 L"group", L"A"),
            L"deep");
}

TEST(MifUtilTest, AnEnclosingScopeComesBeforeItsContents) {
  EXPECT_EQ(find(L"start component\n"
                 L"start group\nstart group\nclass = A\ntag = inner\nend group\nclass = A\ntag = "
                 L"outer\nend group\n"
                 L"end component",
                 L"group", L"A"),
            L"outer");
}

TEST(MifUtilTest, AnEarlierSiblingWithItsWholeContentsComesBeforeALaterOne) {
  EXPECT_EQ(find(L"start component\n"
                 L"start x\nstart y\nstart group\nclass = A\ntag = first\nend group\nend y\nend x\n"
                 L"start group\nclass = A\ntag = second\nend group\n"
                 L"end component",
                 L"group", L"A"),
            L"first");
}

TEST(MifUtilTest, TheClassValueIsMatchedExactly) {
  const std::wstring text =
      L"start component\nstart group\nclass = Disks\ntag = g\nend group\nend component";
  EXPECT_EQ(find(text, L"group", L"Disks"), L"g");
  EXPECT_EQ(find(text, L"group", L"disks"), L"<none>");
  EXPECT_EQ(find(text, L"group", L"Disks "), L"<none>");
  EXPECT_EQ(find(text, L"group", L""), L"<none>");
}

TEST(MifUtilTest, TheClassVariableNameMayBeInAnyCase) {
  EXPECT_EQ(find(L"start group\nCLASS = A\ntag = g\nend group", L"group", L"A"), L"g");
  EXPECT_EQ(find(L"start group\nClass = A\ntag = g\nend group", L"group", L"A"), L"g");
}

TEST(MifUtilTest, AnyOfSeveralClassVariablesCanMatch) {
  const std::wstring text = L"start group\nclass = A\nclass = B\ntag = g\nend group";
  EXPECT_EQ(find(text, L"group", L"A"), L"g");
  EXPECT_EQ(find(text, L"group", L"B"), L"g");
}

TEST(MifUtilTest, TheScopeTypeIsMatchedExactly) {
  // The parser stores scope names in lower case, so a capital never matches.
  const std::wstring text = L"start Group\nclass = A\ntag = g\nend group";
  EXPECT_EQ(find(text, L"group", L"A"), L"g");
  EXPECT_EQ(find(text, L"Group", L"A"), L"<none>");
  EXPECT_EQ(find(text, L"table", L"A"), L"<none>");
}

TEST(MifUtilTest, AClassVariableOfANestedScopeDoesNotMakeItsParentMatch) {
  EXPECT_EQ(find(L"start group\ntag = g\nstart attribute\nclass = A\nend attribute\nend group",
                 L"group", L"A"),
            L"<none>");
}

TEST(MifUtilTest, AScopeOfAnotherTypeWithTheClassIsPassedOver) {
  EXPECT_EQ(find(L"start component\n"
                 L"start group\nclass = A\ntag = group\nend group\n"
                 L"start table\nclass = A\ntag = table\n{1}\nend table\n"
                 L"end component",
                 L"table", L"A"),
            L"table");
}

TEST(MifUtilTest, NotFoundIsSuccessWithANullResult) {
  EXPECT_EQ(find(L"start component\nend component", L"group", L"A"), L"<none>");
}

TEST(MifUtilTest, ANullChildIsAnAssertion) {
  std::unique_ptr<MifElement> top(newScope(L"component", {newScope(L"x"), nullptr}));
  const MifElement* result = nullptr;
  EXPECT_DEATH(MifUtil::getScopeElement(String(L"group"), String(L"A"), top.get(), result),
               "mifParser/MifUtil.*element != 0");
}

TEST(MifUtilTest, AVariableThatIsNoVariableElementIsAnAssertion) {
  // Claims to be a variable without being one.
  class Impostor : public CustomScanPlugin::ScopeElement {
   public:
    ElementType getType() const override { return Variable; }
  };
  std::unique_ptr<MifElement> top(newScope(L"group", {new Impostor()}));
  const MifElement* result = nullptr;
  EXPECT_DEATH(MifUtil::getScopeElement(String(L"group"), String(L"A"), top.get(), result),
               "mifParser/MifUtil.*variable != 0");
}

}  // namespace
