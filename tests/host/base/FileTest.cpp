#include "base/File.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.h"

namespace {

class FileTest : public ::testing::Test {
 protected:
  String pathOf(const std::string& name) const { return String(dir.file(name).c_str()); }
  cstest::TempDir dir;
};

TEST_F(FileTest, PathSeparatorIsSlash) { EXPECT_STREQ(File::pathSeparator, L"/"); }

// ------------------------------------------------------------ NormalizePath

struct NormalizeCase {
  const wchar_t* input;
  const wchar_t* expected;
};

TEST_F(FileTest, NormalizePathTable) {
  const NormalizeCase cases[] = {
      // Empty, current and root.
      {L"", L"."},
      {L".", L"."},
      {L"./", L"."},
      {L"./.", L"."},
      {L"/", L"/"},
      {L"//", L"/"},
      {L"///", L"/"},
      {L"/.", L"/"},
      {L"/./", L"/"},
      // Climbing above the root stays at the root.
      {L"/..", L"/"},
      {L"/../..", L"/"},
      {L"/../a", L"/a"},
      {L"/a/b/../../..", L"/"},
      {L"/a/../../b/./c", L"/b/c"},
      // Repeated and trailing separators.
      {L"a//b", L"a/b"},
      {L"///a///b///", L"/a/b"},
      {L"a/b/", L"a/b"},
      {L"/a/b/", L"/a/b"},
      // Current-directory steps.
      {L"./a", L"a"},
      {L"a/.", L"a"},
      {L"a/./b/./c/", L"a/b/c"},
      // Parent steps fold lexically.
      {L"a/b/../c", L"a/c"},
      {L"a/b/c/../../d", L"a/d"},
      {L"a/..", L"."},
      {L"a/../", L"."},
      {L"/opt/scan/../scan2/x", L"/opt/scan2/x"},
      {L"/opt/scan/sub/../../scan/x", L"/opt/scan/x"},
      // A relative path keeps the leading parent steps it cannot fold.
      {L"..", L".."},
      {L"../", L".."},
      {L"../a", L"../a"},
      {L"../../a", L"../../a"},
      {L"a/../..", L".."},
      {L"a/../../b", L"../b"},
      {L"./../a/..", L".."},
      // Names that only look like steps are names.
      {L"...", L"..."},
      {L".a", L".a"},
      {L"a/..b", L"a/..b"},
      {L"a/b..", L"a/b.."},
      {L"a/.../b", L"a/.../b"},
      // Blanks, quotes and other characters are kept as they are.
      {L"/opt/scan/my scan.sh", L"/opt/scan/my scan.sh"},
      {L"/opt/scan/ ", L"/opt/scan/ "},
      {L"/opt/scan/\"x\"", L"/opt/scan/\"x\""},
      {L"/d\u00e9j\u00e0/./\U0001F600", L"/d\u00e9j\u00e0/\U0001F600"},
      {L"a\\..\\b", L"a\\..\\b"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(toWideString(File::NormalizePath(String(c.input))), c.expected)
        << "input " << testing::PrintToString(std::wstring(c.input));
  }
}

TEST_F(FileTest, NormalizePathIsIdempotent) {
  const wchar_t* inputs[] = {L"", L"/a/../b//c/", L"../../x/./y", L"a/..", L"/..", L"./a/b/../"};
  for (const wchar_t* input : inputs) {
    String once = File::NormalizePath(String(input));
    EXPECT_EQ(toWideString(File::NormalizePath(once)), toWideString(once))
        << "input " << testing::PrintToString(std::wstring(input));
  }
}

// The folding rules written the plain way, as a list of steps, for the
// random comparison below.
std::wstring referenceNormalize(const std::wstring& in) {
  const bool absolute = !in.empty() && in[0] == L'/';
  std::vector<std::wstring> steps;
  std::wstring step;
  for (std::size_t i = 0; i <= in.size(); ++i) {
    if (i < in.size() && in[i] != L'/') {
      step.push_back(in[i]);
      continue;
    }
    if (step == L"..") {
      if (!steps.empty() && steps.back() != L"..") {
        steps.pop_back();
      } else if (!absolute) {
        steps.push_back(step);
      }
    } else if (!step.empty() && step != L".") {
      steps.push_back(step);
    }
    step.clear();
  }
  std::wstring out = absolute ? L"/" : L"";
  for (std::size_t k = 0; k < steps.size(); ++k) {
    if (k > 0) out.push_back(L'/');
    out.append(steps[k]);
  }
  return out.empty() ? L"." : out;
}

TEST_F(FileTest, NormalizePathMatchesStepListFoldingOnRandomPaths) {
  // Paths built from separators, dots, short names (one beyond Latin-1, one
  // Latin-1) and the zero character, short and long, so that every kind of
  // step meets every other and the host holds the paths in every form.
  // (Null stands for the zero character, which a literal cannot carry.)
  const wchar_t* pieces[] = {L"/",   L"/",  L".",      L"..",     L"a",   L"bc",
                             L"...", L".x", L"\u00e9", L"\u20ac", nullptr};
  const std::wstring zero(1, L'\0');
  std::mt19937 random(20261122);
  for (int round = 0; round < 40000; ++round) {
    std::wstring path;
    const int count = static_cast<int>(random() % 28);
    // Half the paths keep to ASCII.
    const std::size_t choices = (sizeof pieces / sizeof pieces[0]) - (round % 2 == 0 ? 3 : 0);
    for (int k = 0; k < count; ++k) {
      const wchar_t* piece = pieces[random() % choices];
      path.append(piece != nullptr ? std::wstring(piece) : zero);
    }
    ASSERT_EQ(toWideString(File::NormalizePath(fromWideString(path))), referenceNormalize(path))
        << "input " << testing::PrintToString(path);
  }
}

TEST_F(FileTest, NormalizePathDoesNotResolveSymbolicLinks) {
  ASSERT_EQ(::mkdir(dir.file("real").c_str(), 0755), 0);
  ASSERT_EQ(::symlink(dir.file("real").c_str(), dir.file("link").c_str()), 0);
  // "link/.." folds lexically to the directory, not to the link target's parent.
  String normalized = File::NormalizePath(pathOf("link/../x"));
  String base = File::NormalizePath(String(dir.path().c_str()));
  EXPECT_EQ(normalized.toNarrow(), base.toNarrow() + "/x");
}

// ------------------------------------------------------------ File objects

TEST_F(FileTest, FileWithChildJoinsWithSeparator) {
  File f(String(L"/opt/scan"), L"tool.sh");
  EXPECT_EQ(toWideString(FileAccess::path(f)), L"/opt/scan/tool.sh");
}

TEST_F(FileTest, FileWithNullChildKeepsPathAsGiven) {
  File f(String(L"/opt//scan/../x/"), nullptr);
  EXPECT_EQ(toWideString(FileAccess::path(f)), L"/opt//scan/../x/");
}

TEST_F(FileTest, FileTakingItsPathOverEqualsOneMadeFromACopy) {
  const String path(L"/opt/scan");
  String taken(path);
  File copied(path, L"tool.sh");
  File moved(std::move(taken), L"tool.sh");
  EXPECT_EQ(toWideString(FileAccess::path(moved)), toWideString(FileAccess::path(copied)));
  EXPECT_EQ(toWideString(path), L"/opt/scan");
}

TEST_F(FileTest, ChecksFindTheFileWhateverCharactersItsPathHolds) {
  // Short and long ASCII names, Latin-1, beyond Latin-1, a byte that is not
  // UTF-8: the host keeps these texts in different forms.
  const char* names[] = {"f", "a-name-far-longer-than-twenty-two-characters.txt", "caf\xc3\xa9",
                         "\xe2\x82\xac-euro", "raw-\xff-byte"};
  for (const char* name : names) {
    cstest::writeFile(dir.file(name), "data");
    const String path((dir.path() + "/" + name).c_str());
    EXPECT_TRUE(File(path, nullptr).isFile()) << name;
    EXPECT_TRUE(File(path, nullptr).exists()) << name;
    String missing(path);
    missing.concat(L"-missing");
    EXPECT_FALSE(File(missing, nullptr).exists()) << name;
  }
}

TEST_F(FileTest, RegularFile) {
  cstest::writeFile(dir.file("f.txt"), "data");
  File f(pathOf("f.txt"), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_TRUE(f.isFile());
  EXPECT_FALSE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, EmptyRegularFileIsAFile) {
  cstest::writeFile(dir.file("empty"), "");
  EXPECT_TRUE(File(pathOf("empty"), nullptr).isFile());
}

TEST_F(FileTest, Directory) {
  File f(String(dir.path().c_str()), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_FALSE(f.isFile());
  EXPECT_TRUE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, DirectoryWithTrailingSeparator) {
  File f(String((dir.path() + "/").c_str()), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_TRUE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, MissingPath) {
  File f(pathOf("missing"), nullptr);
  EXPECT_FALSE(f.exists());
  EXPECT_FALSE(f.isFile());
  EXPECT_FALSE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, FileUsedAsDirectoryDoesNotExist) {
  cstest::writeFile(dir.file("f.txt"), "data");
  File f(pathOf("f.txt"), L"child");
  EXPECT_FALSE(f.exists());
}

TEST_F(FileTest, EmptyPathDoesNotExist) {
  File f(String(), nullptr);
  EXPECT_FALSE(f.exists());
  EXPECT_FALSE(f.isFile());
}

TEST_F(FileTest, SymbolicLinkToFileIsFollowed) {
  cstest::writeFile(dir.file("target"), "x");
  ASSERT_EQ(::symlink(dir.file("target").c_str(), dir.file("link").c_str()), 0);
  File f(pathOf("link"), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_TRUE(f.isFile());
  EXPECT_FALSE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, SymbolicLinkToDirectoryIsFollowed) {
  ASSERT_EQ(::mkdir(dir.file("sub").c_str(), 0755), 0);
  ASSERT_EQ(::symlink(dir.file("sub").c_str(), dir.file("link").c_str()), 0);
  File f(pathOf("link"), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_FALSE(f.isFile());
  EXPECT_TRUE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, DanglingSymbolicLinkDoesNotExist) {
  ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), dir.file("link").c_str()), 0);
  File f(pathOf("link"), nullptr);
  EXPECT_FALSE(f.exists());
  EXPECT_FALSE(f.isFile());
  EXPECT_FALSE(FileAccess::isDirectory(f));
}

TEST_F(FileTest, SymbolicLinkLoopDoesNotExist) {
  ASSERT_EQ(::symlink(dir.file("b").c_str(), dir.file("a").c_str()), 0);
  ASSERT_EQ(::symlink(dir.file("a").c_str(), dir.file("b").c_str()), 0);
  EXPECT_FALSE(File(pathOf("a"), nullptr).exists());
}

TEST_F(FileTest, NameWithBlanksAndNonAsciiCharacters) {
  cstest::writeFile(dir.file("my scan \xc3\xa9.sh"), "x");
  EXPECT_TRUE(File(String(dir.path().c_str()), L"my scan \u00e9.sh").isFile());
}

TEST_F(FileTest, NameWithInvalidUtf8BytesIsFoundThroughEscapes) {
  // A file whose name is not UTF-8 is still reachable: its bytes survive the
  // round trip through the wide path.
  cstest::writeFile(dir.file("caf\xe9"), "x");
  String path = pathOf("caf\xe9");
  EXPECT_EQ(path.charAt(path.length() - 1), static_cast<wchar_t>(0xDCE9));
  EXPECT_TRUE(File(path, nullptr).isFile());
}

TEST_F(FileTest, NonExecutableFileIsStillAFile) {
  cstest::writeFile(dir.file("plain"), "x", 0600);
  EXPECT_TRUE(File(pathOf("plain"), nullptr).isFile());
}

TEST_F(FileTest, SpecialFileExistsButIsNeither) {
  File f(String(L"/dev/null"), nullptr);
  EXPECT_TRUE(f.exists());
  EXPECT_FALSE(f.isFile());
  EXPECT_FALSE(FileAccess::isDirectory(f));
}

}  // namespace
