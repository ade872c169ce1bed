#include "mifParser/MifUtil.h"

#include <cstddef>

#include "Assert.h"
#include "mifParser/MifTreeWalk.h"
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

TErrorCode MifUtil::getScopeElement(const String& scopeType, const String& className,
                                    const MifElement* top, const MifElement*& result) {
  if (top == nullptr) return PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  result = nullptr;
  // The first scope of the class in document order; only scopes hold scopes.
  auto enter = [&](const MifElement* element, std::size_t depth) {
    CS_ASSERT(element != 0);
    if (depth > 0 && element->getType() != MifElement::Scope) return MifWalkStep::SkipChildren;
    if (!isScopeOfClass(element, scopeType, className)) return MifWalkStep::Continue;
    result = element;
    return MifWalkStep::Stop;
  };
  walkMifTree(
      top, enter, [](const MifElement*) {}, true);
  return 0;
}

}  // namespace CustomScanPlugin
