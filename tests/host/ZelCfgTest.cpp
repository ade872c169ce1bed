#include "config/ZelCfg.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

class ZelCfgTest : public ::testing::Test {
 protected:
  void TearDown() override { ZelCfg::setCustomScannerDir(String()); }
};

// Declared first: a fresh process has no directory set.
TEST_F(ZelCfgTest, UnsetDirectoryIsEmpty) { EXPECT_TRUE(ZelCfg::getCustomScannerDir().isEmpty()); }

TEST_F(ZelCfgTest, DirectoryIsReturnedExactlyAsSet) {
  const wchar_t* values[] = {L"/opt/scan",    L"/opt/scan/",         L"/opt//scan/../scan",
                             L"relative/dir", L"/d\u00e9j\u00e0 vu", L" /padded "};
  for (const wchar_t* value : values) {
    ZelCfg::setCustomScannerDir(String(value));
    EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), value);
  }
}

TEST_F(ZelCfgTest, LastSetWins) {
  ZelCfg::setCustomScannerDir(String(L"/first"));
  ZelCfg::setCustomScannerDir(String(L"/second"));
  EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), L"/second");
}

TEST_F(ZelCfgTest, SettingEmptyClearsDirectory) {
  ZelCfg::setCustomScannerDir(String(L"/opt/scan"));
  ZelCfg::setCustomScannerDir(String());
  EXPECT_TRUE(ZelCfg::getCustomScannerDir().isEmpty());
}

TEST_F(ZelCfgTest, ReturnedValueIsACopy) {
  ZelCfg::setCustomScannerDir(String(L"/opt/scan"));
  String copy = ZelCfg::getCustomScannerDir();
  copy.concat(L"/changed");
  EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), L"/opt/scan");
}

TEST_F(ZelCfgTest, SetterKeepsItsOwnCopy) {
  String value(L"/opt/scan");
  ZelCfg::setCustomScannerDir(value);
  value.concat(L"2");
  EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), L"/opt/scan");
}

TEST_F(ZelCfgTest, NonUtf8DirectoryKeepsItsBytes) {
  ZelCfg::setCustomScannerDir(String("/opt/caf\xe9"));
  EXPECT_EQ(ZelCfg::getCustomScannerDir().toNarrow(), "/opt/caf\xe9");
}

TEST_F(ZelCfgTest, ScannerDirScopeRestoresPreviousValue) {
  ZelCfg::setCustomScannerDir(String(L"/outer"));
  {
    cstest::ScannerDirScope scope("/inner");
    EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), L"/inner");
  }
  EXPECT_EQ(ZelCfg::getCustomScannerDir().wstr(), L"/outer");
}

}  // namespace
