#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <type_traits>

#include "sdk/Plugin.h"
#include "sdk/PluginTypes.h"

namespace {

using PluginSDK::Plugin;

class MinimalPlugin : public Plugin {
 public:
  explicit MinimalPlugin(bool* destroyed = nullptr) : m_Destroyed(destroyed) {}
  ~MinimalPlugin() override {
    if (m_Destroyed != nullptr) *m_Destroyed = true;
  }
  void setProperty(const wchar_t*, const wchar_t*) override {}
  PluginSDK::Version getVersion() const override { return PluginSDK::Version{4, 3, 2, 1}; }
  const wchar_t* getName() const override { return L"Minimal"; }
  PluginSDK::UnknownSoftware* getUnknownSoftware() override { return nullptr; }
  void initializePlugin() override { addExpression(L"One"); }
  TErrorCode cleanupPlugin() override { return 0; }
  TErrorCode createExpression(const wchar_t*, PluginSDK::Expression** e) override {
    *e = nullptr;
    return PluginSDK::PLUGIN_ERROR_UNKNOWN_EXPRESSION;
  }
  TErrorCode destroyExpression(PluginSDK::Expression* e) override {
    delete e;
    return 0;
  }

 private:
  bool* m_Destroyed;
};

class SdkPluginTest : public ::testing::Test {};

TEST_F(SdkPluginTest, NoExpressionNamesBeforeInitialization) {
  MinimalPlugin p;
  EXPECT_TRUE(p.getExpressionNames().empty());
}

TEST_F(SdkPluginTest, AddExpressionKeepsNamesInOrder) {
  MinimalPlugin p;
  EXPECT_EQ(p.addExpression(L"CustomScanList"), 0);
  EXPECT_EQ(p.addExpression(L"RunCommand"), 0);
  EXPECT_EQ(p.addExpression(L"CustomScanInfo"), 0);
  std::vector<std::wstring> expected = {L"CustomScanList", L"RunCommand", L"CustomScanInfo"};
  EXPECT_EQ(p.getExpressionNames(), expected);
}

TEST_F(SdkPluginTest, AddExpressionCopiesTheName) {
  MinimalPlugin p;
  wchar_t name[] = L"Name";
  p.addExpression(name);
  name[0] = L'X';
  EXPECT_EQ(p.getExpressionNames().at(0), L"Name");
}

TEST_F(SdkPluginTest, AddExpressionWithNullNameIsInvalidArgument) {
  MinimalPlugin p;
  EXPECT_EQ(p.addExpression(nullptr), PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT);
  EXPECT_TRUE(p.getExpressionNames().empty());
}

TEST_F(SdkPluginTest, HostDrivesPluginThroughTheBase) {
  std::unique_ptr<Plugin> p(new MinimalPlugin());
  p->initializePlugin();
  EXPECT_EQ(p->getExpressionNames(), std::vector<std::wstring>{L"One"});
  EXPECT_STREQ(p->getName(), L"Minimal");
  PluginSDK::Version v = p->getVersion();
  EXPECT_EQ(v.major, 4u);
  EXPECT_EQ(v.minor, 3u);
  EXPECT_EQ(v.release, 2u);
  EXPECT_EQ(v.build, 1u);
}

TEST_F(SdkPluginTest, DeletingThroughTheBaseRunsThePluginsDestructor) {
  bool destroyed = false;
  Plugin* p = new MinimalPlugin(&destroyed);
  delete p;
  EXPECT_TRUE(destroyed);
}

template <typename Member>
long slotOf(Member member) {
  struct Representation {
    std::uintptr_t ptr;
    std::ptrdiff_t adj;
  };
  static_assert(sizeof(Member) == sizeof(Representation), "Itanium member pointer");
  Representation r;
  std::memcpy(&r, &member, sizeof r);
  if ((r.ptr & 1) == 0) return -1;
  return static_cast<long>((r.ptr - 1) / sizeof(void*));
}

TEST_F(SdkPluginTest, VirtualTableSlotOrderIsTheHosts) {
  // Slots 0 and 1 are the complete and deleting destructors.
  EXPECT_EQ(slotOf(&Plugin::setProperty), 2);
  EXPECT_EQ(slotOf(&Plugin::getVersion), 3);
  EXPECT_EQ(slotOf(&Plugin::getName), 4);
  EXPECT_EQ(slotOf(&Plugin::getUnknownSoftware), 5);
  EXPECT_EQ(slotOf(&Plugin::initializePlugin), 6);
  EXPECT_EQ(slotOf(&Plugin::cleanupPlugin), 7);
  EXPECT_EQ(slotOf(&Plugin::createExpression), 8);
  EXPECT_EQ(slotOf(&Plugin::destroyExpression), 9);
}

// ------------------------------------------------------------ shared vocabulary

TEST_F(SdkPluginTest, ResultCodes) {
  EXPECT_EQ(PluginSDK::PLUGIN_OK, 0);
  EXPECT_EQ(PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY, -100);
  EXPECT_EQ(PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT, -101);
  EXPECT_EQ(PluginSDK::PLUGIN_ERROR_UNKNOWN_EXPRESSION, -10008);
  EXPECT_TRUE((std::is_same<TErrorCode, std::int32_t>::value));
}

TEST_F(SdkPluginTest, ResultTexts) {
  EXPECT_STREQ(PLUGIN_RESULT_TRUE, L"true");
  EXPECT_STREQ(PLUGIN_RESULT_FALSE, L"false");
}

TEST_F(SdkPluginTest, VersionIsFourUnsigned32BitNumbersMajorFirst) {
  EXPECT_EQ(sizeof(PluginSDK::Version), 16u);
  EXPECT_TRUE((std::is_same<decltype(PluginSDK::Version::major), std::uint32_t>::value));
  EXPECT_TRUE((std::is_same<decltype(PluginSDK::Version::build), std::uint32_t>::value));
  EXPECT_EQ(offsetof(PluginSDK::Version, major), 0u);
  EXPECT_EQ(offsetof(PluginSDK::Version, minor), 4u);
  EXPECT_EQ(offsetof(PluginSDK::Version, release), 8u);
  EXPECT_EQ(offsetof(PluginSDK::Version, build), 12u);
}

}  // namespace
