// Allocation failures of operator new (every String, container and object
// the plug-in and its host make) reach the built libCustomScan.so as a host
// agent loads it. This program replaces the global operator new, so the
// plug-in's and the host library's allocations all come through it; for each
// operand a whole plug-in lifetime (createPlugin to destroyPlugin) is run
// once for every allocation it makes, that allocation failing, in the manner
// of SQLite's malloc tests. Nothing may be thrown across the plug-in's
// boundary; every answer is a code with an empty result and an error record,
// or the good result; the same plug-in then answers the request properly (a
// failure to allocate is never remembered as a broken scanner); and nothing
// leaks (live allocations are counted here, the sanitizer pass adds its own
// leak check). The host allocator's own countdown (zelm_*) is in
// FaultInjectionTest and MifFaultInjectionTest.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "MifSamples.h"
#include "ProcessHygiene.h"
#include "ResultCodes.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "sdk/Plugin.h"

namespace {

// ------------------------------------------------------------ operator new

// While armed, the Nth allocation fails (g_FailAt counts down to 0; -1:
// none). Allocations and live blocks are counted throughout. The test
// program has one thread.
long g_FailAt = -1;
bool g_Armed = false;
long g_Live = 0;

bool failNow() { return g_Armed && g_FailAt > 0 && --g_FailAt == 0; }

void* allocate(std::size_t size, bool nothrow) {
  if (failNow()) {
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) {
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  ++g_Live;
  return block;
}

void* allocateAligned(std::size_t size, std::size_t alignment, bool nothrow) {
  if (failNow()) {
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
  void* block = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
  if (block == nullptr) {
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  ++g_Live;
  return block;
}

void release(void* block) noexcept {
  if (block == nullptr) return;
  --g_Live;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size, false); }
void* operator new[](std::size_t size) { return allocate(size, false); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, true);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, true);
}
void* operator new(std::size_t size, std::align_val_t a) {
  return allocateAligned(size, static_cast<std::size_t>(a), false);
}
void* operator new[](std::size_t size, std::align_val_t a) {
  return allocateAligned(size, static_cast<std::size_t>(a), false);
}
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }

namespace {

// Allocations count towards the failure only while one lives: during the
// plug-in's own work, not this host's.
class Armed {
 public:
  Armed() { g_Armed = true; }
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
  ~Armed() { g_Armed = false; }
};

// ------------------------------------------------------------ the plug-in

class LoadedPlugin {
 public:
  LoadedPlugin() {
    m_Handle = ::dlopen(CUSTOMSCAN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (m_Handle == nullptr) return;
    create = reinterpret_cast<PluginSDK::CreatePluginFunction>(::dlsym(m_Handle, "createPlugin"));
    destroy =
        reinterpret_cast<PluginSDK::DestroyPluginFunction>(::dlsym(m_Handle, "destroyPlugin"));
  }
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;
  ~LoadedPlugin() {
    if (m_Handle != nullptr) ::dlclose(m_Handle);
  }
  bool loaded() const { return create != nullptr && destroy != nullptr; }

  PluginSDK::CreatePluginFunction create = nullptr;
  PluginSDK::DestroyPluginFunction destroy = nullptr;

 private:
  void* m_Handle = nullptr;
};

typedef std::vector<std::pair<std::wstring, std::wstring>> Properties;

struct Answer {
  TErrorCode code = 0;
  std::wstring scalar;
  std::vector<std::wstring> items;
};

bool operator==(const Answer& a, const Answer& b) {
  return a.code == b.code && a.scalar == b.scalar && a.items == b.items;
}

// Asks a new operand for its result once; the properties are set by this
// host, whose own allocations never fail.
Answer ask(PluginSDK::Plugin& plugin, const std::wstring& operand, const Properties& properties) {
  Answer answer;
  PluginSDK::Expression* expression = nullptr;
  {
    Armed armed;
    EXPECT_NO_THROW(answer.code = plugin.createExpression(operand.c_str(), &expression));
  }
  if (answer.code != 0) {
    EXPECT_EQ(expression, nullptr) << "a failed createExpression leaves no operand";
    return answer;
  }
  for (const auto& p : properties) expression->setProperty(p.first.c_str(), p.second.c_str());
  if (expression->getType() == PluginSDK::Expression::Scalar) {
    PluginSDK::String result(L"(unset)");
    {
      Armed armed;
      EXPECT_NO_THROW(
          answer.code =
              static_cast<PluginSDK::ScalarExpression*>(expression)->getScalarResult(result));
    }
    answer.scalar = result.wstr();
  } else {
    PluginSDK::StringVector result;
    result.addString(L"(stale)");
    {
      Armed armed;
      EXPECT_NO_THROW(
          answer.code =
              static_cast<PluginSDK::VectorExpression*>(expression)->getVectorResult(result));
    }
    for (std::size_t i = 0; i < result.size(); ++i) answer.items.push_back(result[i].wstr());
  }
  Armed armed;
  EXPECT_NO_THROW(plugin.destroyExpression(expression));
  return answer;
}

struct CountdownReport {
  long points = 0;
  std::map<TErrorCode, long> outcomes;
};

std::string describe(const CountdownReport& report) {
  std::string text = std::to_string(report.points) + " allocation points;";
  for (const auto& o : report.outcomes) {
    text += " code " + std::to_string(o.first) + " x" + std::to_string(o.second);
  }
  return text;
}

class OutOfMemoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_Library.loaded()) << ::dlerror();
    m_Sandbox.installChild("child");
    const std::string mif = std::string(
                                "// Laufwerksgr\xC3\xB6\xC3\x9F"
                                "e\n") +
                            cstest::kDisksMif;
    m_Sandbox.installScript("disks", std::string("cat <<'MIF'\n") + mif + "MIF");
  }
  void TearDown() override {
    g_FailAt = -1;
    EXPECT_FALSE(m_Sandbox.canaryRan());
    m_Hygiene.verify();
  }

  // One plug-in lifetime as a host drives it, every allocation of the
  // plug-in's and its host's work failing in turn: createPlugin,
  // initializePlugin, setProperty, createExpression, the result,
  // destroyExpression, cleanupPlugin, destroyPlugin. Outcomes outside
  // allowed, a partial result, a missing error record, a fault remembered
  // or a leak are test failures.
  CountdownReport countdown(const std::wstring& operand, const Properties& properties,
                            const Answer& good, const std::set<TErrorCode>& allowed) {
    CountdownReport report;
    // A first lifetime makes what the host keeps for the process (its
    // tracers, its spare read buffer, its copy of the environment).
    EXPECT_EQ(lifetime(operand, properties, -1).answer, good);
    for (long n = 1;; ++n) {
      const long liveBefore = g_Live;
      bool reached = false;
      TErrorCode code = 0;
      {
        const Step step = lifetime(operand, properties, n);
        reached = step.reached;
        code = step.answer.code;
        if (!reached) {
          EXPECT_EQ(step.answer, good) << "no failure at " << n;
        } else if (code == 0) {
          EXPECT_EQ(step.answer, good) << "allocation " << n;
        } else {
          EXPECT_TRUE(allowed.count(code)) << "allocation " << n << ": code " << code;
          EXPECT_TRUE(step.answer.scalar.empty()) << "allocation " << n;
          EXPECT_TRUE(step.answer.items.empty()) << "allocation " << n;
          EXPECT_GE(step.errorRecords, 1u) << "allocation " << n << ": no error record";
        }
        EXPECT_EQ(step.again, good) << "asked again after the failure at " << n;
      }
      const long leaked = g_Live - liveBefore;
      EXPECT_LE(leaked, 0) << "allocation " << n << ": " << leaked << " blocks not freed";
      if (!reached) {
        report.points = n - 1;
        break;
      }
      ++report.outcomes[code];
      if (n > 20000) {
        ADD_FAILURE() << "the countdown does not end";
        break;
      }
    }
    std::printf("%s: %s\n", cstest::narrow(operand).c_str(), describe(report).c_str());
    return report;
  }

 private:
  struct Step {
    bool reached = false;
    Answer answer;  // the answer of the lifetime with the failure
    Answer again;   // the same request, asked again in the same lifetime
    std::size_t errorRecords = 0;
  };

  // createPlugin, initializePlugin, setProperty, the request, the request
  // again (nothing failing), cleanupPlugin, destroyPlugin; the failAt-th
  // allocation of the plug-in's work fails.
  Step lifetime(const std::wstring& operand, const Properties& properties, long failAt) {
    Step step;
    cstest::TraceCapture trace(Trace::Error);
    g_FailAt = failAt;
    PluginSDK::Plugin* plugin = nullptr;
    {
      Armed armed;
      EXPECT_NO_THROW(plugin = m_Library.create());
    }
    if (plugin == nullptr) {
      // The answer a host gets: no plug-in, and the record.
      step.reached = g_FailAt == 0;
      EXPECT_TRUE(step.reached) << "createPlugin gave null without a failure";
      step.answer.code = PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
      step.errorRecords = trace.texts(Trace::Error).size();
      g_FailAt = -1;
      plugin = m_Library.create();
      plugin->initializePlugin();
      step.again = ask(*plugin, operand, properties);
      plugin->cleanupPlugin();
      m_Library.destroy(plugin);
      return step;
    }
    {
      Armed armed;
      EXPECT_NO_THROW(plugin->initializePlugin());
      EXPECT_NO_THROW(plugin->setProperty(L"onDuplicatedKeys", L"error"));
    }
    step.answer = ask(*plugin, operand, properties);
    if (step.answer.code != 0) step.errorRecords = trace.texts(Trace::Error).size();
    const long left = g_FailAt;
    g_FailAt = -1;
    step.again = ask(*plugin, operand, properties);
    g_FailAt = left;
    {
      Armed armed;
      EXPECT_NO_THROW(plugin->cleanupPlugin());
      EXPECT_NO_THROW(m_Library.destroy(plugin));
    }
    step.reached = g_FailAt == 0;
    g_FailAt = -1;
    return step;
  }

 protected:
  LoadedPlugin m_Library;

 private:
  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
};

const std::set<TErrorCode> kCommandOutcomes = {0, PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY,
                                               CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS};

TEST_F(OutOfMemoryTest, RunCommandAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.scalar = L"first\nsecond line\nthird";
  CountdownReport report =
      countdown(L"RunCommand", {{L"path", L"child print \\x20first\\n\\nsecond\\x20line\\nthird"}},
                good, kCommandOutcomes);
  EXPECT_GT(report.points, 10);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 0);
}

TEST_F(OutOfMemoryTest, RunCommandUntrimmedAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.scalar = L" raw \n";
  CountdownReport report =
      countdown(L"RunCommand", {{L"path", L"child print \\x20raw\\x20\\n"}, {L"trim", L"false"}},
                good, kCommandOutcomes);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 0);
}

TEST_F(OutOfMemoryTest, RunCommandExAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.items = {L"a", L"b \u00e9", L"c"};
  CountdownReport report =
      countdown(L"RunCommandEx", {{L"path", L"child print a\\n\\nb\\x20\\xc3\\xa9\\nc\\n"}}, good,
                kCommandOutcomes);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 0);
}

const std::set<TErrorCode> kMifOutcomes = {0, PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY,
                                           CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS};

Properties mifRequest(std::initializer_list<std::pair<std::wstring, std::wstring>> more) {
  Properties p = {{L"command", L"disks"}, {L"class", L"Disks"}};
  p.insert(p.end(), more.begin(), more.end());
  return p;
}

TEST_F(OutOfMemoryTest, CustomScanInfoAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.scalar = L"100";
  CountdownReport report = countdown(
      L"CustomScanInfo", mifRequest({{L"code", L"sda"}, {L"field", L"Size"}}), good, kMifOutcomes);
  // The parser, the group, the table and the cache entry each allocate.
  EXPECT_GT(report.points, 50);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 30);
}

TEST_F(OutOfMemoryTest, CustomScanExistsAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.scalar = PLUGIN_RESULT_TRUE;
  CountdownReport report =
      countdown(L"CustomScanExists", mifRequest({{L"code", L"sdc"}}), good, kMifOutcomes);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 30);
}

TEST_F(OutOfMemoryTest, CustomScanListAnswersOrReportsEveryFailureToAllocate) {
  Answer good;
  good.items = {L"sda", L"sdb", L"sdc"};
  CountdownReport report = countdown(L"CustomScanList", mifRequest({}), good, kMifOutcomes);
  EXPECT_GT(report.outcomes[PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY], 30);
}

TEST_F(OutOfMemoryTest, FailedCreatePluginGivesNullAndItsRecord) {
  cstest::TraceCapture trace(Trace::Error);
  PluginSDK::Plugin* plugin = nullptr;
  g_FailAt = 1;
  {
    Armed armed;
    plugin = m_Library.create();
  }
  EXPECT_EQ(g_FailAt, 0);
  EXPECT_EQ(plugin, nullptr);
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].label, "createPlugin");
  EXPECT_EQ(trace.records()[0].component, 5);
  EXPECT_EQ(trace.texts(Trace::Error)[0], "Out of memory: std::bad_alloc");
}

TEST_F(OutOfMemoryTest, FailedCreateExpressionGivesItsCodeAndANullOperand) {
  PluginSDK::Plugin* plugin = m_Library.create();
  ASSERT_NE(plugin, nullptr);
  plugin->initializePlugin();
  cstest::TraceCapture trace(Trace::Error);
  for (const wchar_t* name : {L"RunCommand", L"RunCommandEx", L"CustomScanInfo",
                              L"CustomScanExists", L"CustomScanList"}) {
    PluginSDK::Expression* expression = reinterpret_cast<PluginSDK::Expression*>(&trace);
    g_FailAt = 1;
    {
      Armed armed;
      EXPECT_EQ(plugin->createExpression(name, &expression), PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY);
    }
    EXPECT_EQ(g_FailAt, 0);
    EXPECT_EQ(expression, nullptr);
  }
  ASSERT_EQ(trace.records().size(), 5u);
  EXPECT_EQ(trace.records()[0].label, "CustomScanPlugin::createExpression");
  plugin->cleanupPlugin();
  m_Library.destroy(plugin);
}

TEST_F(OutOfMemoryTest, RefusedPropertyForWantOfMemoryIsNotStoredAndIsRecorded) {
  PluginSDK::Plugin* plugin = m_Library.create();
  ASSERT_NE(plugin, nullptr);
  // Makes the plug-in's tracer, which lives for the process.
  plugin->initializePlugin();
  cstest::TraceCapture trace(Trace::Error);
  // The first allocation is the configuration store of the plug-in.
  g_FailAt = 1;
  {
    Armed armed;
    EXPECT_NO_THROW(plugin->setProperty(L"onDuplicatedKeys", L"warn"));
  }
  EXPECT_EQ(g_FailAt, 0);
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].label, "CustomScanPlugin::setProperty()");
  // A later call, with room, stores it.
  plugin->setProperty(L"onDuplicatedKeys", L"warn");
  EXPECT_EQ(trace.records().size(), 1u);
  plugin->cleanupPlugin();
  m_Library.destroy(plugin);
}

}  // namespace
