#include "operands/CustomScanList.h"

#include <vector>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/CustomScanList";
// Where hosts have always seen these two assertions reported.
constexpr int kCacheAssertLine = 55;
constexpr int kTableAssertLine = 61;
}  // namespace

namespace CustomScanPlugin {

CustomScanList::CustomScanList() : PluginSDK::VectorOperand() {}

CustomScanList::~CustomScanList() = default;

void CustomScanList::disposeExpression() {}

TErrorCode CustomScanList::validateProperties() {
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND;
  if (getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS) == nullptr) return CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS;
  return 0;
}

const wchar_t* CustomScanList::getOptionalProperty(const wchar_t* name, const wchar_t* defaultValue) {
  const wchar_t* value = getProperty(name);
  return value != nullptr ? value : defaultValue;
}

TErrorCode CustomScanList::getVectorResult(PluginSDK::StringVector& result) {
  result.removeAll();
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  const wchar_t* command = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND);
  const wchar_t* className = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS);
  const wchar_t* output = getOptionalProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"");

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = cache->getMifTable(String(command), String(output), String(className), mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  std::vector<String> keys;
  rc = mifTable->getKeys(keys);
  if (rc != 0) return rc;
  for (const String& key : keys) result.addString(key.c_str());
  return 0;
}

}  // namespace CustomScanPlugin
