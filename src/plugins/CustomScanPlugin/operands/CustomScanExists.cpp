#include "operands/CustomScanExists.h"

#include "Assert.h"
#include "CustomScanConstants.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/CustomScanExists";
// Where hosts have always seen these two assertions reported.
constexpr int kCacheAssertLine = 57;
constexpr int kTableAssertLine = 64;
}  // namespace

namespace CustomScanPlugin {

CustomScanExists::CustomScanExists() : PluginSDK::ScalarOperand() {}

CustomScanExists::~CustomScanExists() = default;

void CustomScanExists::disposeExpression() {}

TErrorCode CustomScanExists::validateProperties() {
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE;
  return 0;
}

const wchar_t* CustomScanExists::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  const wchar_t* value = getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode CustomScanExists::getScalarResult(PluginSDK::String& result) {
  result = L"";
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  const wchar_t* command = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND);
  const wchar_t* className = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS);
  const wchar_t* code = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE);
  const wchar_t* output = getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"");

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = cache->getMifTable(String(command), String(output), String(className), mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  bool exists = false;
  rc = mifTable->rowExists(String(code), exists);
  if (rc != 0) return rc;
  result = exists ? PLUGIN_RESULT_TRUE : PLUGIN_RESULT_FALSE;
  return 0;
}

}  // namespace CustomScanPlugin
