// Loads the built libCustomScan.so as a host agent does and drives it only
// through the exported entry points and the SDK's virtual interface. The
// constant tables are used as macros only, so this program does not contain
// the plug-in's own code: everything it checks comes from the library.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cwchar>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "ResultCodes.h"
#include "TestSupport.h"
#include "sdk/Configuration.h"
#include "sdk/Plugin.h"

namespace {

using PluginSDK::Configuration;
using PluginSDK::Expression;
using PluginSDK::Plugin;

struct CodeEntry {
  const char* name;
  int value;
};
struct TextEntry {
  const char* name;
  const wchar_t* text;
};

#define CS_CODE_ENTRY(name, value, meaning) {#name, value},
const CodeEntry kCodes[] = {CUSTOM_SCAN_PLUGIN_RESULT_CODES(CS_CODE_ENTRY)};
#undef CS_CODE_ENTRY

#define CS_TEXT_ENTRY(name, text) {#name, text},
const TextEntry kTexts[] = {CUSTOM_SCAN_PLUGIN_TEXT_CONSTANTS(CS_TEXT_ENTRY)};
#undef CS_TEXT_ENTRY

// The loaded library and its two entry points.
class LoadedPlugin {
 public:
  LoadedPlugin() {
    m_Handle = ::dlopen(CUSTOMSCAN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (m_Handle == nullptr) return;
    m_Create = reinterpret_cast<PluginSDK::CreatePluginFunction>(::dlsym(m_Handle, "createPlugin"));
    m_Destroy =
        reinterpret_cast<PluginSDK::DestroyPluginFunction>(::dlsym(m_Handle, "destroyPlugin"));
  }
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;
  ~LoadedPlugin() {
    if (m_Handle != nullptr) ::dlclose(m_Handle);
  }
  void* handle() const { return m_Handle; }
  PluginSDK::CreatePluginFunction create() const { return m_Create; }
  PluginSDK::DestroyPluginFunction destroy() const { return m_Destroy; }

 private:
  void* m_Handle = nullptr;
  PluginSDK::CreatePluginFunction m_Create = nullptr;
  PluginSDK::DestroyPluginFunction m_Destroy = nullptr;
};

class PluginLoadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(library.handle(), nullptr) << ::dlerror();
    ASSERT_NE(library.create(), nullptr);
    ASSERT_NE(library.destroy(), nullptr);
  }
  void TearDown() override { Configuration::cleanup(L"CustomScan"); }

  static bool stored(const wchar_t* name, std::wstring& value) {
    Configuration* configuration = nullptr;
    if (Configuration::get(L"CustomScan", configuration) != 0) return false;
    PluginSDK::String v;
    if (!configuration->getProperty(PluginSDK::String(name), v)) return false;
    value = toWideString(v);
    return true;
  }

  LoadedPlugin library;
};

TEST_F(PluginLoadTest, TestProgramDoesNotContainThePlugin) {
  // The entry points resolve only in the loaded library.
  EXPECT_EQ(::dlsym(RTLD_DEFAULT, "createPlugin"), nullptr);
}

TEST_F(PluginLoadTest, HostLifeCycleThroughTheVirtualInterface) {
  cstest::TraceCapture trace(Trace::Scope);

  Plugin* plugin = library.create()();
  ASSERT_NE(plugin, nullptr);

  EXPECT_STREQ(plugin->getName(), L"CustomScan");
  PluginSDK::Version version = plugin->getVersion();
  EXPECT_EQ(version.major, 1u);
  EXPECT_EQ(version.minor, 1u);
  EXPECT_EQ(version.release, 1u);
  EXPECT_EQ(version.build, 1u);
  EXPECT_EQ(plugin->getUnknownSoftware(), nullptr);

  plugin->initializePlugin();
  std::vector<std::wstring> names = {L"CustomScanList", L"CustomScanInfo", L"CustomScanExists",
                                     L"RunCommand", L"RunCommandEx"};
  EXPECT_EQ(plugin->getExpressionNames(), names);

  // The plug-in and this host share one configuration store.
  plugin->setProperty(L"onDuplicatedKeys", L"warn");
  std::wstring value;
  ASSERT_TRUE(stored(L"onDuplicatedKeys", value));
  EXPECT_EQ(value, L"warn");

  // ... and one tracer: the refused property's record reaches this host's sink.
  plugin->setProperty(L"limitChars", L"10");
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].level, 2);
  EXPECT_EQ(trace.records()[0].component, 5);
  EXPECT_EQ(trace.texts()[0],
            "Unexpected plugin property, skipping. plugin=[CustomScan] name=[limitChars] "
            "value=[10]");

  Expression* expression = reinterpret_cast<Expression*>(0x1);
  EXPECT_EQ(plugin->createExpression(L"NoSuchOperand", &expression), -10008);
  EXPECT_EQ(expression, nullptr);
  EXPECT_EQ(plugin->createExpression(L"runcommand", &expression), -10008);
  EXPECT_EQ(expression, nullptr);

  Expression* untouched = reinterpret_cast<Expression*>(0x1);
  EXPECT_EQ(plugin->createExpression(nullptr, &untouched), -101);
  EXPECT_EQ(untouched, reinterpret_cast<Expression*>(0x1));
  EXPECT_EQ(plugin->destroyExpression(nullptr), 0);

  EXPECT_EQ(plugin->cleanupPlugin(), 0);
  EXPECT_FALSE(stored(L"onDuplicatedKeys", value));

  library.destroy()(plugin);

  // The traced operations opened their scopes.
  std::set<std::string> labels;
  for (const auto& s : trace.scopes()) labels.insert(s.label);
  EXPECT_TRUE(labels.count("CustomScanPlugin::initializePlugin()"));
  EXPECT_TRUE(labels.count("CustomScanPlugin::setProperty()"));
  EXPECT_TRUE(labels.count("CustomScanPlugin::createExpression"));
}

TEST_F(PluginLoadTest, EveryOperandNameCreatesAnOperandOfItsKind) {
  struct Kind {
    const wchar_t* name;
    int type;
  };
  const Kind kinds[] = {{L"CustomScanList", Expression::Vector},
                        {L"CustomScanInfo", Expression::Scalar},
                        {L"CustomScanExists", Expression::Scalar},
                        {L"RunCommand", Expression::Scalar},
                        {L"RunCommandEx", Expression::Vector}};
  Plugin* plugin = library.create()();
  ASSERT_NE(plugin, nullptr);
  plugin->initializePlugin();
  for (const auto& kind : kinds) {
    SCOPED_TRACE(cstest::narrow(kind.name));
    Expression* expression = nullptr;
    ASSERT_EQ(plugin->createExpression(kind.name, &expression), 0);
    ASSERT_NE(expression, nullptr);
    EXPECT_EQ(expression->getType(), kind.type);
    EXPECT_FALSE(expression->isOperator());
    EXPECT_TRUE(expression->isReady());
    EXPECT_EQ(plugin->destroyExpression(expression), 0);
  }
  EXPECT_EQ(plugin->cleanupPlugin(), 0);
  library.destroy()(plugin);
}

TEST_F(PluginLoadTest, HostEvaluatesRunCommandOfTheLoadedLibrary) {
  // The scanner directory this host sets is the one the library reads.
  cstest::TempDir dir;
  cstest::installTestChild(dir.file("child"));
  cstest::ScannerDirScope scannerDir(dir.path());

  Plugin* plugin = library.create()();
  ASSERT_NE(plugin, nullptr);
  plugin->initializePlugin();

  Expression* scalar = nullptr;
  ASSERT_EQ(plugin->createExpression(L"RunCommand", &scalar), 0);
  scalar->setProperty(L"path", L"child print \\x20hello\\x20");
  PluginSDK::String text(L"stale");
  EXPECT_EQ(static_cast<PluginSDK::ScalarExpression*>(scalar)->getScalarResult(text), 0);
  EXPECT_EQ(toWideString(text), L"hello");
  scalar->disposeExpression();
  EXPECT_EQ(plugin->destroyExpression(scalar), 0);

  EXPECT_EQ(plugin->cleanupPlugin(), 0);
  library.destroy()(plugin);
  EXPECT_FALSE(cstest::hasZombieChildren());
}

// The tokenizer keeps its last working copy between calls; the library must
// release it when it is unloaded (the asan run's leak check proves it).
TEST_F(PluginLoadTest, HostEvaluatesRunCommandExAndUnloadsWithoutLeaking) {
  cstest::TempDir dir;
  cstest::installTestChild(dir.file("child"));
  cstest::ScannerDirScope scannerDir(dir.path());

  Plugin* plugin = library.create()();
  ASSERT_NE(plugin, nullptr);
  plugin->initializePlugin();

  Expression* vector = nullptr;
  ASSERT_EQ(plugin->createExpression(L"RunCommandEx", &vector), 0);
  vector->setProperty(L"path", L"child print \"a\\n\\n b \\n\"");
  PluginSDK::StringVector lines;
  EXPECT_EQ(static_cast<PluginSDK::VectorExpression*>(vector)->getVectorResult(lines), 0);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(toWideString(lines[0]), L"a");
  EXPECT_EQ(toWideString(lines[1]), L"b");
  EXPECT_EQ(plugin->destroyExpression(vector), 0);

  EXPECT_EQ(plugin->cleanupPlugin(), 0);
  library.destroy()(plugin);
}

TEST_F(PluginLoadTest, DestroyPluginAcceptsNull) { library.destroy()(nullptr); }

TEST_F(PluginLoadTest, TwoPluginObjectsAreIndependentObjects) {
  Plugin* a = library.create()();
  Plugin* b = library.create()();
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  a->initializePlugin();
  EXPECT_TRUE(b->getExpressionNames().empty());
  library.destroy()(a);
  library.destroy()(b);
}

TEST(PluginReloadTest, LoadUseUnloadAndLoadAgain) {
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    LoadedPlugin library;
    ASSERT_NE(library.handle(), nullptr) << ::dlerror();
    Plugin* plugin = library.create()();
    ASSERT_NE(plugin, nullptr);
    plugin->initializePlugin();
    plugin->setProperty(L"onDuplicatedKeys", L"error");
    EXPECT_EQ(plugin->cleanupPlugin(), 0);
    library.destroy()(plugin);
  }
}

// ------------------------------------------------------------ the dynamic export list

// The defined symbols nm lists for the library (its dynamic table with
// dynamic = true, else its full symbol table), with their types.
std::map<std::string, char> definedSymbols(const std::string& path, bool dynamic, int& exitStatus) {
  std::map<std::string, char> symbols;
  std::string command =
      std::string("nm ") + (dynamic ? "-D " : "") + "--defined-only '" + path + "' 2>/dev/null";
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    exitStatus = -1;
    return symbols;
  }
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::istringstream in(line);
    std::string address;
    std::string type;
    std::string name;
    if (!(in >> address >> type >> name)) continue;
    // Strip a symbol version, should the linker ever add one.
    std::string::size_type at = name.find('@');
    if (at != std::string::npos) name.erase(at);
    symbols[name] = type.empty() ? '?' : type[0];
  }
  int status = ::pclose(pipe);
  exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return symbols;
}

TEST_F(PluginLoadTest, ExportListIsExactlyEntryPointsAndConstants) {
  int exitStatus = 0;
  std::map<std::string, char> symbols = definedSymbols(CUSTOMSCAN_PLUGIN_PATH, true, exitStatus);
  ASSERT_EQ(exitStatus, 0) << "nm failed";

  std::set<std::string> expected = {"createPlugin", "destroyPlugin"};
  for (const auto& c : kCodes) expected.insert(c.name);
  for (const auto& t : kTexts) expected.insert(t.name);

  std::set<std::string> actual;
  for (const auto& s : symbols) actual.insert(s.first);
  EXPECT_EQ(actual, expected);

  // The entry points are functions, unmangled.
  EXPECT_EQ(symbols["createPlugin"], 'T');
  EXPECT_EQ(symbols["destroyPlugin"], 'T');
}

TEST_F(PluginLoadTest, ConstantTablesHaveTheDocumentedSizes) {
  EXPECT_EQ(sizeof kCodes / sizeof kCodes[0], 28u);
  EXPECT_EQ(sizeof kTexts / sizeof kTexts[0], 17u);
}

TEST_F(PluginLoadTest, EveryExportedCodeHasItsValue) {
  for (const auto& c : kCodes) {
    const void* symbol = ::dlsym(library.handle(), c.name);
    ASSERT_NE(symbol, nullptr) << c.name;
    EXPECT_EQ(*static_cast<const int*>(symbol), c.value) << c.name;
  }
}

TEST_F(PluginLoadTest, EveryExportedTextHasItsText) {
  for (const auto& t : kTexts) {
    const void* symbol = ::dlsym(library.handle(), t.name);
    ASSERT_NE(symbol, nullptr) << t.name;
    const wchar_t* text = *static_cast<const wchar_t* const*>(symbol);
    ASSERT_NE(text, nullptr) << t.name;
    EXPECT_STREQ(text, t.text) << t.name;
  }
}

TEST_F(PluginLoadTest, NameReturnedByThePluginIsTheExportedConstant) {
  const void* symbol = ::dlsym(library.handle(), "CUSTOM_SCAN_PLUGIN_NAME");
  ASSERT_NE(symbol, nullptr);
  Plugin* plugin = library.create()();
  ASSERT_NE(plugin, nullptr);
  EXPECT_EQ(plugin->getName(), *static_cast<const wchar_t* const*>(symbol));
  library.destroy()(plugin);
}

TEST_F(PluginLoadTest, HostCodesAreNotExportedByThePlugin) {
#define CS_CHECK_NOT_EXPORTED(name, value, meaning) \
  EXPECT_EQ(::dlsym(library.handle(), #name), nullptr) << #name;
  CUSTOM_SCAN_HOST_RESULT_CODES(CS_CHECK_NOT_EXPORTED)
#undef CS_CHECK_NOT_EXPORTED
}

TEST_F(PluginLoadTest, InternalSymbolsAreNotReachable) {
  // Every symbol of the plug-in class in the library's full table stays
  // hidden from dlsym (which searches the library and its dependencies).
  int exitStatus = 0;
  std::map<std::string, char> all = definedSymbols(CUSTOMSCAN_PLUGIN_PATH, false, exitStatus);
  ASSERT_EQ(exitStatus, 0) << "nm failed";
  int checked = 0;
  for (const auto& s : all) {
    if (s.first.find("CustomScanPlugin") == std::string::npos) continue;
    ++checked;
    EXPECT_EQ(::dlsym(library.handle(), s.first.c_str()), nullptr) << s.first;
  }
  EXPECT_GT(checked, 0) << "the library's symbol table lists no plug-in class symbol";
}

}  // namespace
