#include "config/ZelCfg.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "config/HostSettings.h"

namespace {

class ZelCfgTest : public ::testing::Test {
 protected:
  void TearDown() override { HostSettings::setCustomScannerDir(String()); }
};

// Declared first: a fresh process has no directory set.
TEST_F(ZelCfgTest, UnsetDirectoryIsEmpty) { EXPECT_TRUE(isEmpty(ZelCfg::getCustomScannerDir())); }

TEST_F(ZelCfgTest, DirectoryIsReturnedExactlyAsSet) {
  const wchar_t* values[] = {L"/opt/scan",    L"/opt/scan/",         L"/opt//scan/../scan",
                             L"relative/dir", L"/d\u00e9j\u00e0 vu", L" /padded "};
  for (const wchar_t* value : values) {
    HostSettings::setCustomScannerDir(String(value));
    EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), value);
  }
}

TEST_F(ZelCfgTest, LastSetWins) {
  HostSettings::setCustomScannerDir(String(L"/first"));
  HostSettings::setCustomScannerDir(String(L"/second"));
  EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), L"/second");
}

TEST_F(ZelCfgTest, SettingEmptyClearsDirectory) {
  HostSettings::setCustomScannerDir(String(L"/opt/scan"));
  HostSettings::setCustomScannerDir(String());
  EXPECT_TRUE(isEmpty(ZelCfg::getCustomScannerDir()));
}

TEST_F(ZelCfgTest, ReturnedValueIsACopy) {
  HostSettings::setCustomScannerDir(String(L"/opt/scan"));
  String copy = ZelCfg::getCustomScannerDir();
  copy.concat(L"/changed");
  EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), L"/opt/scan");
}

TEST_F(ZelCfgTest, SetterKeepsItsOwnCopy) {
  String value(L"/opt/scan");
  HostSettings::setCustomScannerDir(value);
  value.concat(L"2");
  EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), L"/opt/scan");
}

TEST_F(ZelCfgTest, NonUtf8DirectoryKeepsItsBytes) {
  HostSettings::setCustomScannerDir(String("/opt/caf\xe9"));
  EXPECT_EQ(ZelCfg::getCustomScannerDir().toNarrow(), "/opt/caf\xe9");
}

TEST_F(ZelCfgTest, ScannerDirScopeRestoresPreviousValue) {
  HostSettings::setCustomScannerDir(String(L"/outer"));
  {
    cstest::ScannerDirScope scope("/inner");
    EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), L"/inner");
  }
  EXPECT_EQ(toWideString(ZelCfg::getCustomScannerDir()), L"/outer");
}

}  // namespace
