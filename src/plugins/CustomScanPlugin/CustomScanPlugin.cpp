#include "CustomScanPlugin.h"

#include <cwchar>

#include "Assert.h"
#include "TraceSupport.h"
#include "common/OutOfMemory.h"
#include "operands/CustomScanExists.h"
#include "operands/CustomScanInfo.h"
#include "operands/CustomScanList.h"
#include "operands/MifCache.h"
#include "operands/RunCommand.h"
#include "operands/RunCommandEx.h"
#include "sdk/Configuration.h"

namespace {
constexpr char kSourceLabel[] = "../../../src/plugins/CustomScanPlugin/CustomScanPlugin";
// Positions of the refused-property record and of the configuration assertion,
// as hosts have always seen them.
constexpr int kRefusedPropertyLine = 99;
constexpr int kConfigurationAssertLine = 108;

template <class Operand>
PluginSDK::Expression* makeOperand() {
  return new Operand();
}

// The operands by name, in the order createExpression compares them.
struct OperandFactory {
  const wchar_t* const* name;
  PluginSDK::Expression* (*create)();
};
const OperandFactory kOperands[] = {
    {&CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANLIST, &makeOperand<CustomScanPlugin::CustomScanList>},
    {&CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANINFO, &makeOperand<CustomScanPlugin::CustomScanInfo>},
    {&CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANEXISTS,
     &makeOperand<CustomScanPlugin::CustomScanExists>},
    {&CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMAND, &makeOperand<CustomScanPlugin::RunCommand>},
    {&CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMANDEX, &makeOperand<CustomScanPlugin::RunCommandEx>},
};
}  // namespace

// ------------------------------------------------------------ exported constants

#define CUSTOM_SCAN_DEFINE_CODE(name, value, meaning) \
  extern CUSTOM_SCAN_EXPORTED const int name = value;
CUSTOM_SCAN_PLUGIN_RESULT_CODES(CUSTOM_SCAN_DEFINE_CODE)
#undef CUSTOM_SCAN_DEFINE_CODE

#define CUSTOM_SCAN_DEFINE_TEXT(name, text) \
  extern CUSTOM_SCAN_EXPORTED const wchar_t* const name = text;
CUSTOM_SCAN_PLUGIN_TEXT_CONSTANTS(CUSTOM_SCAN_DEFINE_TEXT)
#undef CUSTOM_SCAN_DEFINE_TEXT

namespace PluginSDK {

CustomScanPlugin::CustomScanPlugin() : Plugin() {}

CustomScanPlugin::~CustomScanPlugin() = default;

void CustomScanPlugin::setProperty(const wchar_t* name, const wchar_t* value) try {
  CS_TRACE_SCOPE("CustomScanPlugin::setProperty()");
  const bool accepted =
      name != nullptr && value != nullptr &&
      std::wcscmp(name, CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS) == 0 &&
      (std::wcscmp(value, CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR) == 0 ||
       std::wcscmp(value, CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN) == 0);
  if (!accepted) {
    // The label is a sibling plug-in's; hosts filter on it, so it stays.
    CS_TRACE_AT(Trace::Warning, L"DkrPlugin::setProperty(const wchar_t *, const wchar_t *)",
                kRefusedPropertyLine)
        << "Unexpected plugin property, skipping. "
        << "plugin=[" << CUSTOM_SCAN_PLUGIN_NAME << "] "
        << "name=[" << name << "] "
        << "value=[" << value << "]" << Trace::End;
    return;
  }
  Configuration* configuration = nullptr;
  Configuration::get(CUSTOM_SCAN_PLUGIN_NAME, configuration);
  CS_ASSERT_LINE(configuration != 0, kConfigurationAssertLine);
  configuration->setProperty(String(name), String(value));
} catch (...) {
  // Nothing was stored; the host learns of it as of a refused property, from
  // the record only.
  ::CustomScanPlugin::outOfMemory("CustomScanPlugin::setProperty()", kSourceLabel, __LINE__);
}

Version CustomScanPlugin::getVersion() const { return Version{1, 1, 1, 1}; }

const wchar_t* CustomScanPlugin::getName() const { return CUSTOM_SCAN_PLUGIN_NAME; }

UnknownSoftware* CustomScanPlugin::getUnknownSoftware() { return nullptr; }

void CustomScanPlugin::initializePlugin() try {
  CS_TRACE_SCOPE("CustomScanPlugin::initializePlugin()");
  addExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANLIST);
  addExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANINFO);
  addExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANEXISTS);
  addExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMAND);
  addExpression(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMANDEX);
} catch (...) {
  // The names registered before the failure stay; the others are missing.
  ::CustomScanPlugin::outOfMemory("CustomScanPlugin::initializePlugin()", kSourceLabel, __LINE__);
}

TErrorCode CustomScanPlugin::cleanupPlugin() try {
  ::CustomScanPlugin::MifCache::cleanup();
  return Configuration::cleanup(CUSTOM_SCAN_PLUGIN_NAME);
} catch (...) {
  return ::CustomScanPlugin::outOfMemory("CustomScanPlugin::cleanupPlugin()", kSourceLabel,
                                         __LINE__);
}

TErrorCode CustomScanPlugin::createExpression(const wchar_t* name, Expression** expression) {
  CS_TRACE_SCOPE("CustomScanPlugin::createExpression");
  if (name == nullptr || expression == nullptr) return PLUGIN_ERROR_INVALID_ARGUMENT;
  for (const OperandFactory& operand : kOperands) {
    if (std::wcscmp(name, *operand.name) != 0) continue;
    // A failed factory, as any other, leaves the out pointer null.
    *expression = nullptr;
    try {
      *expression = operand.create();
    } catch (...) {
      return ::CustomScanPlugin::outOfMemory("CustomScanPlugin::createExpression", kSourceLabel,
                                             __LINE__);
    }
    return PLUGIN_OK;
  }
  *expression = nullptr;
  return PLUGIN_ERROR_UNKNOWN_EXPRESSION;
}

TErrorCode CustomScanPlugin::destroyExpression(Expression* expression) {
  delete expression;
  return PLUGIN_OK;
}

}  // namespace PluginSDK
