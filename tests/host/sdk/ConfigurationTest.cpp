#include "sdk/Configuration.h"

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

using PluginSDK::Configuration;

class ConfigurationTest : public ::testing::Test {
 protected:
  void TearDown() override {
    Configuration::cleanup(L"Alpha");
    Configuration::cleanup(L"Beta");
    Configuration::cleanup(L"alpha");
  }
  static Configuration* store(const wchar_t* name) {
    Configuration* configuration = nullptr;
    EXPECT_EQ(Configuration::get(name, configuration), PluginSDK::PLUGIN_OK);
    return configuration;
  }
  static bool lookup(Configuration* configuration, const wchar_t* name, std::wstring& value) {
    PluginSDK::String v;
    if (!configuration->getProperty(PluginSDK::String(name), v)) return false;
    value = toWideString(v);
    return true;
  }
};

TEST_F(ConfigurationTest, GetCreatesStoreOnFirstUse) {
  Configuration* configuration = nullptr;
  EXPECT_EQ(Configuration::get(L"Alpha", configuration), 0);
  EXPECT_NE(configuration, nullptr);
}

TEST_F(ConfigurationTest, GetTwiceGivesSameStore) {
  Configuration* first = store(L"Alpha");
  Configuration* second = store(L"Alpha");
  EXPECT_EQ(first, second);
}

TEST_F(ConfigurationTest, StoresAreKeptPerPluginNameExactly) {
  Configuration* alpha = store(L"Alpha");
  EXPECT_NE(alpha, store(L"Beta"));
  EXPECT_NE(alpha, store(L"alpha"));
  alpha->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"v"));
  std::wstring value;
  EXPECT_FALSE(lookup(store(L"Beta"), L"k", value));
  EXPECT_FALSE(lookup(store(L"alpha"), L"k", value));
}

TEST_F(ConfigurationTest, GetWithNullNameIsInvalidArgumentAndNullsOutPointer) {
  Configuration* configuration = reinterpret_cast<Configuration*>(0x1);
  EXPECT_EQ(Configuration::get(nullptr, configuration), PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(configuration, nullptr);
}

TEST_F(ConfigurationTest, SetPropertyThenGetProperty) {
  Configuration* configuration = store(L"Alpha");
  configuration->setProperty(PluginSDK::String(L"onDuplicatedKeys"), PluginSDK::String(L"warn"));
  std::wstring value;
  ASSERT_TRUE(lookup(configuration, L"onDuplicatedKeys", value));
  EXPECT_EQ(value, L"warn");
}

TEST_F(ConfigurationTest, PropertyNamesAreExact) {
  Configuration* configuration = store(L"Alpha");
  configuration->setProperty(PluginSDK::String(L"onDuplicatedKeys"), PluginSDK::String(L"warn"));
  std::wstring value;
  EXPECT_FALSE(lookup(configuration, L"ondupLicatedkeys", value));
  EXPECT_FALSE(lookup(configuration, L"onDuplicatedKeys ", value));
}

TEST_F(ConfigurationTest, SetPropertyAgainReplacesValue) {
  Configuration* configuration = store(L"Alpha");
  configuration->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"error"));
  configuration->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"warn"));
  std::wstring value;
  ASSERT_TRUE(lookup(configuration, L"k", value));
  EXPECT_EQ(value, L"warn");
}

TEST_F(ConfigurationTest, EmptyValueIsAValue) {
  Configuration* configuration = store(L"Alpha");
  configuration->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L""));
  std::wstring value = L"untouched";
  ASSERT_TRUE(lookup(configuration, L"k", value));
  EXPECT_EQ(value, L"");
}

TEST_F(ConfigurationTest, GetPropertyOfUnsetNameLeavesValueUntouched) {
  Configuration* configuration = store(L"Alpha");
  PluginSDK::String value(L"untouched");
  EXPECT_FALSE(configuration->getProperty(PluginSDK::String(L"missing"), value));
  EXPECT_EQ(toWideString(value), L"untouched");
}

TEST_F(ConfigurationTest, CleanupDiscardsStore) {
  store(L"Alpha")->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"v"));
  store(L"Beta")->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"b"));
  EXPECT_EQ(Configuration::cleanup(L"Alpha"), 0);
  std::wstring value;
  EXPECT_FALSE(lookup(store(L"Alpha"), L"k", value));
  // Other plug-ins' stores are not touched.
  ASSERT_TRUE(lookup(store(L"Beta"), L"k", value));
  EXPECT_EQ(value, L"b");
}

TEST_F(ConfigurationTest, CleanupOfUnknownNameSucceeds) {
  EXPECT_EQ(Configuration::cleanup(L"NeverCreated"), 0);
  EXPECT_EQ(Configuration::cleanup(L"NeverCreated"), 0);
}

TEST_F(ConfigurationTest, CleanupWithNullNameIsInvalidArgument) {
  EXPECT_EQ(Configuration::cleanup(nullptr), PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT);
}

TEST_F(ConfigurationTest, CleanupTwiceSucceedsBothTimes) {
  store(L"Alpha");
  EXPECT_EQ(Configuration::cleanup(L"Alpha"), 0);
  EXPECT_EQ(Configuration::cleanup(L"Alpha"), 0);
}

TEST_F(ConfigurationTest, GetAfterCleanupGivesFreshEmptyStore) {
  store(L"Alpha")->setProperty(PluginSDK::String(L"k"), PluginSDK::String(L"v"));
  Configuration::cleanup(L"Alpha");
  Configuration* fresh = store(L"Alpha");
  ASSERT_NE(fresh, nullptr);
  std::wstring value;
  EXPECT_FALSE(lookup(fresh, L"k", value));
}

}  // namespace
