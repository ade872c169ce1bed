#include "mifParser/MifGroup.h"

#include <memory>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "mifParser/MifUtil.h"
#include "mifParser/VariableElement.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/MifGroup";
constexpr char kGetMifGroupLabel[] = "MifGroup::getMifGroup(MifElement *, String &, MifGroup *&)";
constexpr char kInitializeLabel[] = "MifGroup::initialize()";

// MIF words: scope names as the parser stores them (lower case), variable
// names matched without regard to case.
const wchar_t kGroupScopeName[] = L"group";
const wchar_t kAttributeScopeName[] = L"attribute";
const wchar_t kIdVariableName[] = L"id";
const wchar_t kKeyVariableName[] = L"key";
const wchar_t kNameVariableName[] = L"name";
const wchar_t kTypeVariableName[] = L"type";
const wchar_t kValueVariableName[] = L"value";
const wchar_t kKeySeparator = L',';

bool namedLike(const String& name, const wchar_t* word) {
  return name.compareTo(String(word), 1) == 0;
}
}  // namespace

namespace CustomScanPlugin {

TErrorCode MifGroup::getMifGroup(const MifElement* top, const String& className, MifGroup*& group) {
  CS_TRACE_SCOPE(kGetMifGroupLabel);
  group = nullptr;
  if (top == nullptr) {
    CS_TRACE(Trace::Error, kGetMifGroupLabel) << "Invalid top MIF element specified" << Trace::End;
    return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  }
  const MifElement* found = nullptr;
  // Only the element found counts; with a non-null top the lookup cannot fail.
  MifUtil::getScopeElement(String(kGroupScopeName), className, top, found);
  if (found == nullptr) {
    CS_TRACE(Trace::Error, kGetMifGroupLabel)
        << "Group not found (class = " << className << ")" << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND;
  }
  // A half-read group goes if reading it fails or runs out of room.
  std::unique_ptr<MifGroup> made(new MifGroup(found, className));
  const TErrorCode rc = made->initialize();
  if (rc != 0) {
    CS_TRACE(Trace::Error, kGetMifGroupLabel)
        << "Failure initializing the group (class = " << className << ")" << Trace::End;
    return rc;
  }
  group = made.release();
  return 0;
}

MifGroup::MifGroup(const MifElement* groupElement, const String& className)
    : m_GroupElement(groupElement), m_ClassName(className), m_GroupType(Unknown) {}

MifGroup::~MifGroup() = default;

TErrorCode MifGroup::initialize() {
  CS_TRACE_SCOPE(kInitializeLabel);
  CS_ASSERT(m_GroupElement != 0);
  TErrorCode rc = getType(m_GroupType);
  if (rc != 0) {
    CS_TRACE(Trace::Error, kInitializeLabel)
        << "Failure parsing group's type (err = " << rc << ")" << Trace::End;
  } else {
    CS_TRACE(Trace::Detail, kInitializeLabel)
        << "The MIF group is of type " << static_cast<int>(m_GroupType) << Trace::End;
    if (m_GroupType == Unknown || m_GroupType == Keyed) {
      CS_TRACE(Trace::Error, kInitializeLabel)
          << "Unsupported group type (type = " << static_cast<int>(m_GroupType) << ")"
          << Trace::End;
      rc = CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE;
    } else if ((rc = parseAttributes()) != 0) {
      CS_TRACE(Trace::Error, kInitializeLabel)
          << "Failure parsing group's attributes (err = " << rc << ")" << Trace::End;
    } else if (m_GroupType == Scalar) {
      rc = parseScalarKey();
      if (rc == 0) return 0;
      CS_TRACE(Trace::Error, kInitializeLabel)
          << "Unable to get a key for the scalar group (err = " << rc << ")" << Trace::End;
    } else {
      CS_ASSERT(m_GroupType == Template);
      rc = parseKey();
      if (rc == 0) return 0;
      CS_TRACE(Trace::Error, kInitializeLabel)
          << "Failure parsing group's key (err = " << rc << ")" << Trace::End;
    }
  }
  m_GroupType = Unknown;
  m_Keys.clear();
  m_Attributes.clear();
  return rc;
}

TErrorCode MifGroup::getType(GroupType& type) {
  bool idSeen = false;
  bool keySeen = false;
  const unsigned int count = m_GroupElement->childrenSize();
  for (unsigned int i = 0; i < count; ++i) {
    const MifElement* variable = m_GroupElement->getChildAt(i);
    CS_ASSERT(variable != 0);
    if (variable->getType() != MifElement::Variable) continue;
    if (namedLike(variable->m_Name, kIdVariableName)) {
      if (idSeen) return CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED;
      idSeen = true;
    } else if (namedLike(variable->m_Name, kKeyVariableName)) {
      if (keySeen) return CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED;
      keySeen = true;
    }
  }
  if (idSeen) {
    type = keySeen ? Keyed : Scalar;
  } else {
    type = keySeen ? Template : Unknown;
  }
  return 0;
}

TErrorCode MifGroup::parseAttributes() {
  m_Attributes.clear();
  const String attributeScopeName(kAttributeScopeName);
  const unsigned int count = m_GroupElement->childrenSize();
  for (unsigned int i = 0; i < count; ++i) {
    const MifElement* scope = m_GroupElement->getChildAt(i);
    CS_ASSERT(scope != 0);
    if (scope->getType() != MifElement::Scope ||
        scope->m_Name.compareTo(attributeScopeName, 0) != 0)
      continue;
    AttributeStruct attribute;
    const unsigned int fields = scope->childrenSize();
    for (unsigned int j = 0; j < fields; ++j) {
      const MifElement* mifAttribute = scope->getChildAt(j);
      CS_ASSERT(mifAttribute != 0);
      if (mifAttribute->getType() != MifElement::Variable) continue;
      const VariableElement* variable = dynamic_cast<const VariableElement*>(mifAttribute);
      CS_ASSERT(variable != 0);
      // A later variable of the same name wins.
      if (namedLike(variable->m_Name, kNameVariableName)) {
        attribute.name = variable->m_Value;
      } else if (namedLike(variable->m_Name, kIdVariableName)) {
        attribute.id = variable->m_Value;
      } else if (namedLike(variable->m_Name, kTypeVariableName)) {
        attribute.type = variable->m_Value;
      } else if (namedLike(variable->m_Name, kValueVariableName)) {
        attribute.value = variable->m_Value;
      }
    }
    m_Attributes.push_back(attribute);
  }
  return m_Attributes.empty() ? CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND : 0;
}

TErrorCode MifGroup::parseScalarKey() {
  if (m_Attributes.empty()) return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND;
  m_Keys.push_back(m_Attributes.front().name);
  return 0;
}

TErrorCode MifGroup::parseKey() {
  m_Keys.clear();
  const VariableElement* keyVariable = nullptr;
  const unsigned int count = m_GroupElement->childrenSize();
  for (unsigned int i = 0; i < count && keyVariable == nullptr; ++i) {
    const MifElement* element = m_GroupElement->getChildAt(i);
    CS_ASSERT(element != 0);
    if (element->getType() != MifElement::Variable) continue;
    const VariableElement* variable = dynamic_cast<const VariableElement*>(element);
    CS_ASSERT(variable != 0);
    if (namedLike(variable->m_Name, kKeyVariableName)) keyVariable = variable;
  }
  if (keyVariable != nullptr) {
    // Pieces are taken as written: no trimming; empty ones are passed over.
    const String& list = keyVariable->m_Value;
    int begin = 0;
    while (begin <= list.length()) {
      int end = list.indexOf(kKeySeparator, begin);
      if (end < 0) end = list.length();
      if (end > begin) {
        String name;
        const TErrorCode rc = getAttributeNameById(list.substring(begin, end - 1), name);
        if (rc != 0) {
          m_Keys.clear();
          return rc;
        }
        m_Keys.push_back(name);
      }
      begin = end + 1;
    }
  }
  return m_Keys.empty() ? CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE : 0;
}

TErrorCode MifGroup::getKeys(std::vector<String>& keys) const {
  keys.clear();
  keys.insert(keys.end(), m_Keys.begin(), m_Keys.end());
  return 0;
}

TErrorCode MifGroup::getAttributeNames(std::vector<String>& names) const {
  names.clear();
  if (m_Attributes.empty()) return CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND;
  names.reserve(m_Attributes.size());
  for (const AttributeStruct& attribute : m_Attributes) names.push_back(attribute.name);
  return 0;
}

TErrorCode MifGroup::getAttributeValues(std::vector<String>& values) const {
  values.clear();
  if (m_Attributes.empty()) return CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND;
  values.reserve(m_Attributes.size());
  for (const AttributeStruct& attribute : m_Attributes) values.push_back(attribute.value);
  return 0;
}

TErrorCode MifGroup::getAttributeNameById(const String& id, String& name) {
  for (const AttributeStruct& attribute : m_Attributes) {
    if (attribute.id.compareTo(id, 0) == 0) {
      name = attribute.name;
      return 0;
    }
  }
  return CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND;
}

}  // namespace CustomScanPlugin
