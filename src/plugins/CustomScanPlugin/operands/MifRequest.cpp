#include "operands/MifRequest.h"

#include "CustomScanConstants.h"
#include "base/String.h"
#include "operands/MifCache.h"

namespace CustomScanPlugin {

TErrorCode MifRequest::validate(const PluginSDK::Expression& expression,
                                std::initializer_list<RequiredProperty> required) {
  for (const RequiredProperty& property : required) {
    if (expression.getProperty(*property.name) == nullptr) return property.missingCode;
  }
  return 0;
}

const wchar_t* MifRequest::optionalProperty(const PluginSDK::Expression& expression,
                                            const wchar_t* name, const wchar_t* defaultValue) {
  const wchar_t* value = expression.getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode MifRequest::getTable(MifCache& cache, const PluginSDK::Expression& expression,
                                MifTable*& table) {
  const wchar_t* command = expression.getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND);
  const wchar_t* className = expression.getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS);
  const wchar_t* output = optionalProperty(expression, CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"");
  return cache.getMifTable(String(command), String(output), String(className), table);
}

}  // namespace CustomScanPlugin
