#pragma once
// The classes of a parsed MIF text, found in one walk over its tree, and for
// each class the group and table scopes that the plug-in's lookup finds: the
// first in document order (pre-order) whose "class" variable holds it.

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mifParser/MifElement.h"

namespace CustomScanTool {

class MifClassIndex {
 public:
  // One "class" variable of a group scope, in document order.
  struct GroupClass {
    std::string className;  // UTF-8, as the tool prints it
    const CustomScanPlugin::MifElement* group;
    int line;    // the group's start line
    bool first;  // whether the plug-in's lookup finds this group for the class
  };

  // Walks the tree below top (null: an empty index). The tree must outlive
  // the index.
  explicit MifClassIndex(const CustomScanPlugin::MifElement* top);

  const std::vector<GroupClass>& groupClasses() const { return m_GroupClasses; }
  // The start lines of the group scopes that have no "class" variable.
  const std::vector<int>& unnamedGroups() const { return m_UnnamedGroups; }
  // Every class that a group answers for, each once, in document order.
  std::vector<std::string> classNames() const;

  // The group and the table scope (null when none) that the plug-in's
  // lookups find for className; both null when no group has the class.
  std::pair<const CustomScanPlugin::MifElement*, const CustomScanPlugin::MifElement*> scopesOf(
      const std::string& className) const;

  // A top element under which the plug-in's lookups for className find, at
  // once, what they would find below the whole tree: the class's group and
  // table scopes, in document order. It borrows them; the caller owns it.
  // Null when no group has the class.
  std::unique_ptr<CustomScanPlugin::MifElement> classTop(const std::string& className) const;

 private:
  struct Found {
    const CustomScanPlugin::MifElement* scope;
    std::size_t order;  // position in document order
  };

  std::vector<GroupClass> m_GroupClasses;
  std::vector<int> m_UnnamedGroups;
  std::unordered_map<std::string, Found> m_Groups;
  std::unordered_map<std::string, Found> m_Tables;
};

}  // namespace CustomScanTool
