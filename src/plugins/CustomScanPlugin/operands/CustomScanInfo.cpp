#include "operands/CustomScanInfo.h"

#include "Assert.h"
#include "CustomScanConstants.h"
#include "common/OutOfMemory.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"
#include "operands/MifRequest.h"

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
  return MifRequest::validate(
      *this, {{&CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS, CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_CODE, CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE},
              {&CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD, CUSTOM_SCAN_ERROR_UNSPECIFIED_FIELD}});
}

const wchar_t* CustomScanInfo::getOptionalProperty(const wchar_t* name,
                                                   const wchar_t* defaultValue) {
  return MifRequest::optionalProperty(*this, name, defaultValue);
}

TErrorCode CustomScanInfo::getScalarResult(PluginSDK::String& result) try {
  result = L"";
  TErrorCode rc = validateProperties();
  if (rc != 0) return rc;

  const wchar_t* code = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE);
  const wchar_t* field = getProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD);

  MifCache* cache = MifCache::getCache();
  CS_ASSERT_LINE(cache != 0, kCacheAssertLine);
  MifTable* mifTable = nullptr;
  rc = MifRequest::getTable(*cache, *this, mifTable);
  if (rc != 0) return rc;
  CS_ASSERT_LINE(mifTable != 0, kTableAssertLine);

  String value;
  rc = mifTable->getField(String(code), String(field), value);
  if (rc != 0) return rc;
  result = value.c_str();
  return 0;
} catch (...) {
  result = L"";
  // The one record a MIF operand writes: a failure to allocate.
  return outOfMemory("CustomScanInfo::getScalarResult()", kSourceLabel, __LINE__);
}

}  // namespace CustomScanPlugin
