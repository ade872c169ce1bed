#include "CustomScanPlugin.h"

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "sdk/Configuration.h"

using PluginSDK::Configuration;
using PluginSDK::CustomScanPlugin;
using PluginSDK::Expression;

namespace {

class CustomScanPluginTest : public ::testing::Test {
 protected:
  void TearDown() override { Configuration::cleanup(CUSTOM_SCAN_PLUGIN_NAME); }
  bool storedValue(const wchar_t* name, std::wstring& value) {
    Configuration* cfg = nullptr;
    Configuration::get(CUSTOM_SCAN_PLUGIN_NAME, cfg);
    PluginSDK::String v;
    if (!cfg->getProperty(PluginSDK::String(name), v)) return false;
    value = toWideString(v);
    return true;
  }
  CustomScanPlugin plugin;
};

TEST_F(CustomScanPluginTest, NameIsCustomScan) {
  EXPECT_STREQ(plugin.getName(), L"CustomScan");
  EXPECT_EQ(plugin.getName(), CUSTOM_SCAN_PLUGIN_NAME);
}

TEST_F(CustomScanPluginTest, VersionIsOneOneOneOne) {
  PluginSDK::Version v = plugin.getVersion();
  EXPECT_EQ(v.major, 1u);
  EXPECT_EQ(v.minor, 1u);
  EXPECT_EQ(v.release, 1u);
  EXPECT_EQ(v.build, 1u);
}

TEST_F(CustomScanPluginTest, UnknownSoftwareIsNull) {
  EXPECT_EQ(plugin.getUnknownSoftware(), nullptr);
}

TEST_F(CustomScanPluginTest, InitializeRegistersFiveOperandsInOrder) {
  cstest::TraceCapture trace(Trace::Scope);
  plugin.initializePlugin();
  std::vector<std::wstring> expected = {L"CustomScanList", L"CustomScanInfo", L"CustomScanExists",
                                        L"RunCommand", L"RunCommandEx"};
  EXPECT_EQ(plugin.getExpressionNames(), expected);
  ASSERT_FALSE(trace.scopes().empty());
  EXPECT_EQ(trace.scopes().front().label, "CustomScanPlugin::initializePlugin()");
}

TEST_F(CustomScanPluginTest, CreateExpressionWithLowerCaseNameIsUnknownAndNullsOutPointer) {
  Expression* e = reinterpret_cast<Expression*>(0x1);
  EXPECT_EQ(plugin.createExpression(L"customscanlist", &e), -10008);
  EXPECT_EQ(e, nullptr);
}

TEST_F(CustomScanPluginTest, CreateExpressionWithNullNameLeavesOutPointer) {
  Expression* sentinel = reinterpret_cast<Expression*>(0x1);
  Expression* e = sentinel;
  EXPECT_EQ(plugin.createExpression(nullptr, &e), -101);
  EXPECT_EQ(e, sentinel);
}

TEST_F(CustomScanPluginTest, CreateExpressionWithNullOutPointerIsInvalidArgument) {
  EXPECT_EQ(plugin.createExpression(L"RunCommand", nullptr), -101);
}

TEST_F(CustomScanPluginTest, CreateExpressionUnknownNameIsMinus10008) {
  Expression* e = nullptr;
  EXPECT_EQ(plugin.createExpression(L"NoSuchOperand", &e), -10008);
  EXPECT_EQ(e, nullptr);
}

TEST_F(CustomScanPluginTest, DestroyExpressionAcceptsNull) {
  EXPECT_EQ(plugin.destroyExpression(nullptr), 0);
}

TEST_F(CustomScanPluginTest, SetPropertyWarnIsStored) {
  plugin.setProperty(L"onDuplicatedKeys", L"warn");
  std::wstring value;
  ASSERT_TRUE(storedValue(L"onDuplicatedKeys", value));
  EXPECT_EQ(value, L"warn");
}

TEST_F(CustomScanPluginTest, SetPropertyErrorIsStored) {
  plugin.setProperty(L"onDuplicatedKeys", L"error");
  std::wstring value;
  ASSERT_TRUE(storedValue(L"onDuplicatedKeys", value));
  EXPECT_EQ(value, L"error");
}

TEST_F(CustomScanPluginTest, SetPropertyWithOtherCaseValueIsRefusedAndTraced) {
  cstest::TraceCapture trace;
  plugin.setProperty(L"onDuplicatedKeys", L"Error");
  std::wstring value;
  EXPECT_FALSE(storedValue(L"onDuplicatedKeys", value));
  ASSERT_EQ(trace.records().size(), 1u);
  const TraceRecord& r = trace.records()[0];
  EXPECT_EQ(r.component, 5);
  EXPECT_EQ(r.level, 2);
  EXPECT_EQ(r.label, "DkrPlugin::setProperty(const wchar_t *, const wchar_t *)");
  EXPECT_EQ(r.file, "../../../src/plugins/CustomScanPlugin/CustomScanPlugin");
  EXPECT_EQ(r.line, 99);
  EXPECT_EQ(cstest::narrow(r.text),
            "Unexpected plugin property, skipping. plugin=[CustomScan] name=[onDuplicatedKeys] "
            "value=[Error]");
}

TEST_F(CustomScanPluginTest, SetPropertyWithOtherNameIsRefused) {
  cstest::TraceCapture trace;
  plugin.setProperty(L"limitChars", L"10");
  std::wstring value;
  EXPECT_FALSE(storedValue(L"limitChars", value));
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(
      cstest::narrow(trace.records()[0].text),
      "Unexpected plugin property, skipping. plugin=[CustomScan] name=[limitChars] value=[10]");
}

TEST_F(CustomScanPluginTest, SetPropertyWithNullNameOrValueIsRefusedWithoutCrash) {
  cstest::TraceCapture trace;
  plugin.setProperty(nullptr, L"warn");
  plugin.setProperty(L"onDuplicatedKeys", nullptr);
  std::wstring value;
  EXPECT_FALSE(storedValue(L"onDuplicatedKeys", value));
  EXPECT_EQ(trace.records().size(), 2u);
}

TEST_F(CustomScanPluginTest, CleanupWithoutCacheDiscardsConfigurationAndReturnsItsResult) {
  plugin.setProperty(L"onDuplicatedKeys", L"error");
  EXPECT_EQ(plugin.cleanupPlugin(), 0);
  std::wstring value;
  EXPECT_FALSE(storedValue(L"onDuplicatedKeys", value));
}

TEST_F(CustomScanPluginTest, CleanupTwiceIsHarmless) {
  EXPECT_EQ(plugin.cleanupPlugin(), 0);
  EXPECT_EQ(plugin.cleanupPlugin(), 0);
}

TEST(ResultCodesTest, EveryCodeHasItsValue) {
  EXPECT_EQ(CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND, -14000);
  EXPECT_EQ(CUSTOM_SCAN_ERROR_UNSPECIFIED_CLASS, -14001);
  EXPECT_EQ(CUSTOM_SCAN_ERROR_UNSPECIFIED_CODE, -14002);
  EXPECT_EQ(CUSTOM_SCAN_ERROR_UNSPECIFIED_FIELD, -14003);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF, -14100);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND, -14101);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_KEYS_SPECIFIED, -14102);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_MULTIPLE_IDS_SPECIFIED, -14103);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_KEY_VALUE, -14105);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE, -14106);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_NOT_A_SCALAR_GROUP, -14107);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_NO_ATTRIBUTES_FOUND, -14109);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_KEY_ATTRIBUTE_NOT_FOUND, -14110);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED, -14111);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND, -14112);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND, -14113);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_TABLE_NOT_FOUND, -14114);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY, -14115);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE, -14116);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT, -14117);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH, -14118);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST, -14119);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_IS_NOT_A_FILE, -14120);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED, -14121);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS, -14200);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT, -14201);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED, -14202);
  EXPECT_EQ(CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND, -14203);
}

TEST(ResultCodesTest, GapsMinus14104AndMinus14108AreUnassigned) {
  std::vector<int> values;
#define CS_COLLECT(name, value, meaning) values.push_back(value);
  CUSTOM_SCAN_PLUGIN_RESULT_CODES(CS_COLLECT)
#undef CS_COLLECT
  EXPECT_EQ(values.size(), 28u);
  for (int v : values) {
    EXPECT_NE(v, -14104);
    EXPECT_NE(v, -14108);
  }
}

TEST(ResultCodesTest, TextConstantsHaveTheirTexts) {
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_NAME, L"CustomScan");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANLIST, L"CustomScanList");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANINFO, L"CustomScanInfo");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANEXISTS, L"CustomScanExists");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMAND, L"RunCommand");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMANDEX, L"RunCommandEx");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, L"command");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"output");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS, L"class");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE, L"code");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD, L"field");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"path");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"trim");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_LIMIT_CHARS, L"limitChars");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS, L"onDuplicatedKeys");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR, L"error");
  EXPECT_STREQ(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN, L"warn");
}

}  // namespace
