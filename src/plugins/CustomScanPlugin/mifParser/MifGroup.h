#pragma once

#include <vector>

#include "base/String.h"
#include "mifParser/MifElement.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

// The group scope of one MIF class: its type, its attributes in document
// order and the names of its key attributes. The group borrows its element
// from the tree, which must outlive it.
class MifGroup {
 public:
  // Decided by the group's own "id" and "key" variables.
  enum GroupType {
    Unknown = 0,   // neither
    Scalar = 1,    // "id" only
    Template = 2,  // "key" only
    Keyed = 3      // both
  };

  struct AttributeStruct {
    String id;
    String name;
    String type;
    String value;  // the only value (scalar) or the default (template)
  };

  // Finds the group scope of className below top and reads it. On success the
  // caller owns *group and deletes it; on any failure group is null. Returns
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null top,
  // CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND, or the code of initialize().
  static TErrorCode getMifGroup(const MifElement* top, const String& className, MifGroup*& group);

  MifGroup(const MifElement* groupElement, const String& className);
  MifGroup(const MifGroup&) = delete;
  MifGroup& operator=(const MifGroup&) = delete;
  virtual ~MifGroup();

  // Decides the type, then reads the attributes, then the key (whose ids are
  // resolved against the attributes). Called once, by getMifGroup.
  TErrorCode initialize();

  bool isScalar() const { return m_GroupType == Scalar; }
  bool isTemplate() const { return m_GroupType == Template; }
  const String& getClassName() const { return m_ClassName; }  // for the tests
  // Clears keys, then appends the key attribute names in key order.
  TErrorCode getKeys(std::vector<String>& keys) const;
  unsigned int getAttributeNumber() const { return static_cast<unsigned int>(m_Attributes.size()); }
  // Clear the output, then append every attribute's name (value) in document
  // order; CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND, output empty, when
  // the group has none.
  TErrorCode getAttributeNames(std::vector<String>& names) const;
  TErrorCode getAttributeValues(std::vector<String>& values) const;
  // The name of the first attribute whose id is exactly id;
  // CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND, name untouched,
  // when there is none.
  TErrorCode getAttributeNameById(const String& id, String& name);

 private:
  TErrorCode getType(GroupType& type);
  TErrorCode parseAttributes();
  TErrorCode parseScalarKey();
  TErrorCode parseKey();

  const MifElement* m_GroupElement;
  String m_ClassName;
  GroupType m_GroupType;
  std::vector<String> m_Keys;
  std::vector<AttributeStruct> m_Attributes;
};

}  // namespace CustomScanPlugin
