#include "operands/CommandRequest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "common/MemoryBuffer.h"

using CustomScanPlugin::CommandRequest;
using CustomScanPlugin::MemoryBuffer;

namespace {

// Two label sets, as two operands would pass them: every record and scope
// must carry the set of the request that wrote it.
const CommandRequest::Labels kFirst = {"source/First", "First::validate", "First::optional",
                                       "First::command", "First::result"};
const CommandRequest::Labels kSecond = {"source/Second", "Second::validate", "Second::optional",
                                        "Second::command", "Second::result"};

// The least an expression needs to hold properties.
class PropertyHolder : public PluginSDK::ScalarOperand {
 public:
  void disposeExpression() override {}
  TErrorCode getScalarResult(PluginSDK::String& /*result*/) override { return 0; }
};

struct Seen {
  std::string label;
  std::string file;
  std::string text;
};

class CommandRequestTest : public ::testing::Test {
 protected:
  void SetUp() override { m_Child = m_Sandbox.installChild("child"); }
  void TearDown() override { m_Hygiene.verify(); }

  std::vector<Seen> seen() const {
    std::vector<Seen> out;
    for (const auto& r : m_Trace.records()) {
      out.push_back(Seen{r.label, r.file, cstest::narrow(r.text)});
    }
    return out;
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
  cstest::TraceCapture m_Trace;
  std::string m_Child;
};

TEST_F(CommandRequestTest, MissingPathIsRecordedUnderEachRequestsOwnLabels) {
  const CommandRequest first(kFirst);
  const CommandRequest second(kSecond);
  PropertyHolder expression;
  for (const CommandRequest* request : {&first, &second}) {
    SCOPED_TRACE(request == &first ? "first" : "second");
    const CommandRequest::Labels& labels = request == &first ? kFirst : kSecond;
    m_Trace.clear();
    EXPECT_EQ(request->open(expression), CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND);
    const std::vector<Seen> records = seen();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].label, labels.validate);
    EXPECT_EQ(records[0].file, labels.source);
    EXPECT_EQ(records[0].text, "Path attribute not specified.");
    EXPECT_EQ(records[1].label, labels.result);
    EXPECT_EQ(records[1].file, labels.source);
    EXPECT_EQ(records[1].text, "Properties not validated properly, error number = -14203");
  }
}

TEST_F(CommandRequestTest, EmptyPathIsValidAndValidateAloneWritesNoResultRecord) {
  const CommandRequest request(kFirst);
  PropertyHolder expression;
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"");
  EXPECT_EQ(request.open(expression), 0);
  EXPECT_TRUE(m_Trace.records().empty());

  PropertyHolder unset;
  EXPECT_EQ(request.validate(unset), CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND);
  ASSERT_EQ(m_Trace.records().size(), 1u);
  EXPECT_EQ(m_Trace.records()[0].label, kFirst.validate);
}

TEST_F(CommandRequestTest, ScopesCarryTheGivenLabels) {
  cstest::TraceCapture trace(Trace::Scope);
  const CommandRequest request(kSecond);
  PropertyHolder expression;
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child");
  const wchar_t kDefault[] = L"default";
  EXPECT_EQ(request.open(expression), 0);
  EXPECT_EQ(request.optionalProperty(expression, CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, kDefault),
            kDefault);
  MemoryBuffer buffer(1024, 4096);
  String resolved;
  EXPECT_EQ(request.run(expression, buffer, resolved), 0);
  std::vector<std::string> entered;
  for (const auto& s : trace.scopes()) {
    if (s.entering) entered.push_back(s.label);
  }
  EXPECT_EQ(entered,
            (std::vector<std::string>{"Second::validate", "Second::optional", "Second::command",
                                      "Command::run(String&, MemoryBuffer&)"}));
}

TEST_F(CommandRequestTest, OptionalPropertyIsTheValueOrTheVeryDefault) {
  const CommandRequest request(kFirst);
  PropertyHolder expression;
  const wchar_t kDefault[] = L"true";
  EXPECT_EQ(request.optionalProperty(expression, CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, kDefault),
            kDefault);
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"");
  EXPECT_STREQ(request.optionalProperty(expression, CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, kDefault),
               L"");
}

TEST_F(CommandRequestTest, RunResolvesInTheDirectoryReadWhenTheRequestWasMade) {
  const CommandRequest request(kFirst);
  // Another directory set later does not move a request already made.
  cstest::TempDir elsewhere;
  cstest::ScannerDirScope later(elsewhere.path());
  PropertyHolder expression;
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child print out");
  MemoryBuffer buffer(1024, 4096);
  String resolved;
  ASSERT_EQ(request.run(expression, buffer, resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Child + " print out");
  EXPECT_STREQ(reinterpret_cast<const char*>(buffer.getData()), "out");
  EXPECT_TRUE(m_Trace.texts(Trace::Error).empty());
}

TEST_F(CommandRequestTest, RefusedCommandIsRecordedByTheGateUnderTheCommandLabelOnly) {
  const CommandRequest request(kSecond);
  PropertyHolder expression;
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"sub/../../canary");
  MemoryBuffer buffer(1024, 4096);
  String resolved(L"untouched");
  EXPECT_EQ(request.run(expression, buffer, resolved), CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_EQ(resolved.toNarrow(), "untouched");
  EXPECT_FALSE(m_Sandbox.canaryRan());
  const std::vector<Seen> records = seen();
  ASSERT_FALSE(records.empty());
  for (const Seen& r : records) {
    EXPECT_EQ(r.label, kSecond.command) << r.text;
    EXPECT_EQ(r.file, kSecond.source) << r.text;
  }
}

TEST_F(CommandRequestTest, FailedRunIsRecordedUnderTheResultLabel) {
  const CommandRequest request(kFirst);
  PropertyHolder expression;
  expression.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child exit 4");
  MemoryBuffer buffer(1024, 4096);
  String resolved;
  EXPECT_EQ(request.run(expression, buffer, resolved), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(resolved.toNarrow(), m_Child + " exit 4");
  const std::vector<Seen> records = seen();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back().label, kFirst.result);
  EXPECT_EQ(records.back().file, kFirst.source);
  EXPECT_EQ(records.back().text, "Error executing command, error number = -14202");
}

}  // namespace
