#include "MifClassIndex.h"

#include <utility>

#include "mifParser/MifTreeWalk.h"
#include "mifParser/VariableElement.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifWalkStep;
using CustomScanPlugin::VariableElement;
using CustomScanPlugin::walkMifTree;

namespace CustomScanTool {

namespace {

// A scope over borrowed children: the top that the plug-in's lookups start
// from when one class is built. Its empty name is neither "group" nor
// "table", so only its children can match.
class BorrowingScope : public MifElement {
 public:
  explicit BorrowingScope(const std::vector<const MifElement*>& children) {
    for (const MifElement* child : children) m_Children.push_back(const_cast<MifElement*>(child));
  }
  // The children belong to the parsed tree.
  ~BorrowingScope() override { m_Children.clear(); }
  ElementType getType() const override { return Scope; }
  int validate() const override { return 1; }
  void appendDumpBuffer(String& buffer) override { buffer.concat(L"Scope <>\n"); }
};

const VariableElement* asVariable(const MifElement* element) {
  if (element == nullptr || element->getType() != MifElement::Variable) return nullptr;
  return dynamic_cast<const VariableElement*>(element);
}

}  // namespace

MifClassIndex::MifClassIndex(const MifElement* top) {
  const String groupName(L"group");
  const String tableName(L"table");
  const String classVariable(L"class");
  // In document order, as the plug-in's lookup visits scopes.
  std::size_t order = 0;
  walkMifTree(top, [&](const MifElement* element, std::size_t) {
    if (element->getType() != MifElement::Scope) return MifWalkStep::SkipChildren;
    ++order;
    const bool isGroup = element->m_Name.compareTo(groupName, 0) == 0;
    const bool isTable = element->m_Name.compareTo(tableName, 0) == 0;
    if (!isGroup && !isTable) return MifWalkStep::Continue;
    bool named = false;
    for (unsigned int i = 0; i < element->childrenSize(); ++i) {
      const VariableElement* variable = asVariable(element->getChildAt(i));
      if (variable == nullptr || variable->m_Name.compareTo(classVariable, 1) != 0) continue;
      named = true;
      std::string className = variable->m_Value.toNarrow();
      auto& found = isGroup ? m_Groups : m_Tables;
      const bool first = found.emplace(className, Found{element, order}).second;
      if (isGroup) {
        m_GroupClasses.push_back(
            GroupClass{std::move(className), element, element->m_LineNumber, first});
      }
    }
    if (isGroup && !named) m_UnnamedGroups.push_back(element->m_LineNumber);
    return MifWalkStep::Continue;
  });
}

std::vector<std::string> MifClassIndex::classNames() const {
  std::vector<std::string> names;
  for (const GroupClass& groupClass : m_GroupClasses) {
    if (groupClass.first) names.push_back(groupClass.className);
  }
  return names;
}

std::pair<const MifElement*, const MifElement*> MifClassIndex::scopesOf(
    const std::string& className) const {
  const auto group = m_Groups.find(className);
  if (group == m_Groups.end()) return {nullptr, nullptr};
  const auto table = m_Tables.find(className);
  return {group->second.scope, table == m_Tables.end() ? nullptr : table->second.scope};
}

std::unique_ptr<MifElement> MifClassIndex::classTop(const std::string& className) const {
  const auto group = m_Groups.find(className);
  if (group == m_Groups.end()) return nullptr;
  std::vector<const MifElement*> children{group->second.scope};
  const auto table = m_Tables.find(className);
  if (table != m_Tables.end()) {
    // In document order, so that neither scope's contents can hide the
    // other from a pre-order search: a table holds no scopes, and a table
    // inside the group would have come first.
    if (table->second.order < group->second.order) {
      children.insert(children.begin(), table->second.scope);
    } else {
      children.push_back(table->second.scope);
    }
  }
  return std::unique_ptr<MifElement>(new BorrowingScope(children));
}

}  // namespace CustomScanTool
