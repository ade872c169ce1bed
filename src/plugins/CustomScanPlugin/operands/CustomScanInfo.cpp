#include "operands/CustomScanInfo.h"

#include "Assert.h"
#include "CustomScanConstants.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/CustomScanInfo";
// Where hosts have always seen these two assertions reported.
constexpr int kCacheAssertLine = 58;
constexpr int kTableAssertLine = 65;
}  // namespace

namespace CustomScanPlugin {

CustomScanInfo::CustomScanInfo() : PluginSDK::ScalarOperand() {}

CustomScanInfo::~CustomScanInfo() = default;

void CustomScanInfo::disposeExpression() {}

TErrorCode CustomScanInfo::validateProperties() {
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_FIELD;
  return 0;
}

const wchar_t* CustomScanInfo::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  const wchar_t* value = getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode CustomScanInfo::getScalarResult(PluginSDK::String& result) {
  result = L"";
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  const wchar_t* command = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND);
  const wchar_t* className = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS);
  const wchar_t* code = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE);
  const wchar_t* field = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD);
  const wchar_t* output = getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"");

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = cache->getMifTable(String(command), String(output), String(className), mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  String value;
  rc = mifTable->getField(String(code), String(field), value);
  if (rc != 0) return rc;
  result = value.c_str();
  return 0;
}

}  // namespace CustomScanPlugin
