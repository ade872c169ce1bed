#include "mifParser/MifUtil.h"

#include <cstddef>
#include <vector>

#include "Assert.h"
#include "mifParser/VariableElement.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/mifParser/MifUtil";
const wchar_t kClassVariableName[] = L"class";

// Whether scope is of scopeType and one of its direct "class" variables holds
// className.
bool isScopeOfClass(const CustomScanPlugin::MifElement* scope, const String& scopeType,
                    const String& className) {
  using CustomScanPlugin::MifElement;
  using CustomScanPlugin::VariableElement;
  if (scope->m_Name.compareTo(scopeType, 0) != 0) return false;
  const String classVariableName(kClassVariableName);
  const unsigned int count = scope->childrenSize();
  for (unsigned int i = 0; i < count; ++i) {
    const MifElement* element = scope->getChildAt(i);
    CS_ASSERT(element != 0);
    if (element->getType() != MifElement::Variable) continue;
    const VariableElement* variable = dynamic_cast<const VariableElement*>(element);
    CS_ASSERT(variable != 0);
    if (variable->m_Name.compareTo(classVariableName, 1) != 0) continue;
    if (variable->m_Value.compareTo(className, 0) == 0) return true;
  }
  return false;
}
}  // namespace

namespace CustomScanPlugin {

TErrorCode MifUtil::getScopeElement(const String& scopeType, const String& className, const MifElement* top,
                                    const MifElement*& result) {
  if (top == nullptr) return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  result = nullptr;
  if (isScopeOfClass(top, scopeType, className)) {
    result = top;
    return 0;
  }
  // Each frame is a scope whose children are being searched and the index of
  // the next child: the order of a recursive walk, without its stack depth.
  struct Frame {
    const MifElement* scope;
    unsigned int next;
  };
  std::vector<Frame> frames{{top, 0}};
  while (!frames.empty()) {
    Frame& frame = frames.back();
    if (frame.next >= frame.scope->childrenSize()) {
      frames.pop_back();
      continue;
    }
    const MifElement* element = frame.scope->getChildAt(frame.next++);
    CS_ASSERT(element != 0);
    if (element->getType() != MifElement::Scope) continue;
    if (isScopeOfClass(element, scopeType, className)) {
      result = element;
      return 0;
    }
    frames.push_back(Frame{element, 0});
  }
  return 0;
}

}  // namespace CustomScanPlugin
