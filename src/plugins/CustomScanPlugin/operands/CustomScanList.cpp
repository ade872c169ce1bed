#include "operands/CustomScanList.h"

#include <vector>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "common/OutOfMemory.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"
#include "operands/MifRequest.h"

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
  return MifRequest::validate(
      *this, {{&CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS, CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS}});
}

const wchar_t* CustomScanList::getOptionalProperty(const wchar_t* name,
                                                   const wchar_t* defaultValue) {
  return MifRequest::optionalProperty(*this, name, defaultValue);
}

TErrorCode CustomScanList::getVectorResult(PluginSDK::StringVector& result) try {
  result.removeAll();
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = MifRequest::getTable(*cache, *this, mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  std::vector<String> keys;
  rc = mifTable->getKeys(keys);
  if (rc != 0) return rc;
  for (const String& key : keys) result.addString(key.c_str());
  return 0;
} catch (...) {
  result.removeAll();
  // The one record a MIF operand writes: a failure to allocate.
  return outOfMemory("CustomScanList::getVectorResult()", kSourceLabel, __LINE__);
}

}  // namespace CustomScanPlugin
