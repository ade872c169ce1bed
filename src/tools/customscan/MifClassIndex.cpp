#include "MifClassIndex.h"

#include <utility>

#include "mifParser/VariableElement.h"

using CustomScanPlugin::MifElement;
using CustomScanPlugin::VariableElement;

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
  // Pre-order, as the plug-in's lookup visits scopes, with an explicit stack:
  // the tree may be as deep as the text is long.
  std::vector<const MifElement*> stack;
  if (top != nullptr) stack.push_back(top);
  std::size_t order = 0;
  while (!stack.empty()) {
    const MifElement* element = stack.back();
    stack.pop_back();
    if (element->getType() != MifElement::Scope) continue;
    ++order;
    for (unsigned int i = element->childrenSize(); i > 0; --i) {
      const MifElement* child = element->getChildAt(i - 1);
      if (child != nullptr && child->getType() == MifElement::Scope) stack.push_back(child);
    }
    const bool isGroup = element->m_Name.compareTo(groupName, 0) == 0;
    const bool isTable = element->m_Name.compareTo(tableName, 0) == 0;
    if (!isGroup && !isTable) continue;
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
  }
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
