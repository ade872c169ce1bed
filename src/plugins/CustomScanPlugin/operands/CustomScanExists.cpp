#include "operands/CustomScanExists.h"

#include "Assert.h"
#include "CustomScanConstants.h"
#include "common/OutOfMemory.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"
#include "operands/MifRequest.h"

namespace {
constexpr char kSourceLabel[] =
    "../../../../src/plugins/CustomScanPlugin/operands/CustomScanExists";
// Where hosts have always seen these two assertions reported.
constexpr int kCacheAssertLine = 57;
constexpr int kTableAssertLine = 64;
}  // namespace

namespace CustomScanPlugin {

CustomScanExists::CustomScanExists() : PluginSDK::ScalarOperand() {}

CustomScanExists::~CustomScanExists() = default;

void CustomScanExists::disposeExpression() {}

TErrorCode CustomScanExists::validateProperties() {
  return MifRequest::validate(
      *this, {{&CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS, CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_CODE, CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE}});
}

const wchar_t* CustomScanExists::getOptionalProperty(const wchar_t* name,
                                                     const wchar_t* defaultValue) {
  return MifRequest::optionalProperty(*this, name, defaultValue);
}

TErrorCode CustomScanExists::getScalarResult(PluginSDK::String& result) try {
  result = L"";
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  const wchar_t* code = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE);

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = MifRequest::getTable(*cache, *this, mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  bool exists = false;
  rc = mifTable->rowExists(String(code), exists);
  if (rc != 0) return rc;
  result = exists ? PLUGIN_RESULT_TRUE : PLUGIN_RESULT_FALSE;
  return 0;
} catch (...) {
  result = L"";
  // The one record a MIF operand writes: a failure to allocate.
  return outOfMemory("CustomScanExists::getScalarResult()", kSourceLabel, __LINE__);
}

}  // namespace CustomScanPlugin
