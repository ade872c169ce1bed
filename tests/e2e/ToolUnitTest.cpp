// Unit tests of the customscan tool's own pieces.

#include <dlfcn.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "BatchRequest.h"
#include "Evaluation.h"
#include "JsonText.h"
#include "NameValue.h"
#include "PluginLibrary.h"
#include "ResultCodeTable.h"
#include "StderrTraceSink.h"
#include "TableFormatter.h"
#include "UsageError.h"

using namespace CustomScanTool;

namespace {

struct HeaderCode {
  std::string name;
  int value;
};

// Every X(NAME, VALUE, "meaning") entry of ResultCodes.h, read from the source
// text itself rather than through the macros the tool is built from.
std::vector<HeaderCode> codesInHeader() {
  std::ifstream in(CUSTOMSCAN_SOURCE_DIR "/src/plugins/CustomScanPlugin/ResultCodes.h");
  std::stringstream text;
  text << in.rdbuf();
  std::string source = text.str();
  std::vector<HeaderCode> codes;
  std::regex entry(R"(X\(\s*([A-Z_]+)\s*,\s*(-?[0-9]+)\s*,)");
  for (std::sregex_iterator it(source.begin(), source.end(), entry), end; it != end; ++it) {
    codes.push_back(HeaderCode{(*it)[1].str(), std::stoi((*it)[2].str())});
  }
  return codes;
}

}  // namespace

// ------------------------------------------------------------ result codes

TEST(ResultCodeTableTest, LookupCoversEveryCodeOfTheHeader) {
  std::vector<HeaderCode> codes = codesInHeader();
  ASSERT_GE(codes.size(), 31u) << "ResultCodes.h could not be read or lost entries";
  for (const HeaderCode& code : codes) {
    const ResultCodeInfo* info = ResultCodeTable::find(code.value);
    ASSERT_NE(info, nullptr) << code.name << " " << code.value;
    EXPECT_EQ(info->name, code.name) << code.value;
    EXPECT_GT(std::string(info->meaning).size(), 5u) << code.name;
    EXPECT_EQ(std::string(info->meaning).find('\n'), std::string::npos) << code.name;
  }
  EXPECT_EQ(ResultCodeTable::all().size(), codes.size());
}

TEST(ResultCodeTableTest, DocumentedCodesAreAllKnown) {
  const int documented[] = {-14000, -14001, -14002, -14003, -14100, -14101, -14102, -14103, -14105, -14106, -14107,
                            -14109, -14110, -14111, -14112, -14113, -14114, -14115, -14116, -14117, -14118, -14119,
                            -14120, -14121, -14200, -14201, -14202, -14203, -100,   -101,   -10008};
  for (int code : documented) EXPECT_NE(ResultCodeTable::find(code), nullptr) << code;
}

TEST(ResultCodeTableTest, UnassignedCodesAndSuccessAreNotInTheTable) {
  for (int code : {0, -14104, -14108, -1, -14204}) EXPECT_EQ(ResultCodeTable::find(code), nullptr) << code;
  EXPECT_EQ(ResultCodeTable::nameOf(-14104), "UNKNOWN_RESULT_CODE");
  EXPECT_EQ(ResultCodeTable::meaningOf(-14104), "unknown result code");
}

TEST(ResultCodeTableTest, NamesAndValuesAreUnique) {
  std::set<int> values;
  std::set<std::string> names;
  for (const ResultCodeInfo& info : ResultCodeTable::all()) {
    EXPECT_TRUE(values.insert(info.code).second) << info.code;
    EXPECT_TRUE(names.insert(info.name).second) << info.name;
  }
}

TEST(ResultCodeTableTest, PluginExportsEveryPluginCodeWithTheTablesValue) {
  void* plugin = ::dlopen(CUSTOMSCAN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << ::dlerror();
  for (const ResultCodeInfo& info : ResultCodeTable::all()) {
    if (std::string(info.name).rfind("CUSTOM_SCAN_", 0) != 0) continue;
    const int* exported = static_cast<const int*>(::dlsym(plugin, info.name));
    ASSERT_NE(exported, nullptr) << info.name;
    EXPECT_EQ(*exported, info.code) << info.name;
  }
  ::dlclose(plugin);
}

TEST(ResultCodeTableTest, DescribeGivesNumberNameAndMeaning) {
  EXPECT_EQ(ResultCodeTable::describe(-10008),
            "-10008 PLUGIN_ERROR_UNKNOWN_EXPRESSION: " + ResultCodeTable::meaningOf(-10008));
}

// ------------------------------------------------------------ evaluations

TEST(EvaluationTest, ScalarSuccessHasNoErrorMembers) {
  Evaluation e;
  e.operand = "RunCommand";
  e.scalar = "5.10";
  EXPECT_EQ(JsonText::dump(e.toJson()), R"({"operand":"RunCommand","code":0,"result":"5.10"})");
  EXPECT_EQ(e.toPlainText(), "5.10\n");
}

TEST(EvaluationTest, VectorFailureCarriesErrorAndMessage) {
  Evaluation e;
  e.operand = "RunCommandEx";
  e.isVector = true;
  e.code = -14202;
  EXPECT_EQ(JsonText::dump(e.toJson()),
            R"({"operand":"RunCommandEx","code":-14202,"result":[],"error":"CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED","message":")" +
                ResultCodeTable::meaningOf(-14202) + "\"}");
  EXPECT_EQ(e.toPlainText(), "");
}

TEST(EvaluationTest, VectorPlainTextIsOneElementPerLine) {
  Evaluation e;
  e.isVector = true;
  for (const wchar_t* item : {L"a", L"", L"b"}) e.vector.addString(item);
  EXPECT_EQ(e.toPlainText(), "a\n\nb\n");
}

// writeJson streams the result but writes exactly what toJson's text is.
TEST(EvaluationTest, StreamedJsonIsTheJsonOfTheWholeEvaluation) {
  std::vector<Evaluation> cases(5);
  cases[0].operand = "RunCommand";
  cases[0].scalar = "plain text";
  cases[1].operand = "Run\"Command\"result\":\"\"";
  cases[1].scalar = std::string("quote \" backslash \\ tab \t bad \xFF byte \xC3\xA9 \x7F");
  cases[1].code = -14202;
  cases[2].operand = "RunCommandEx";
  cases[2].isVector = true;
  for (const wchar_t* item : {L"a", L"", L"\"q\"", L"\u20ac", L"\x01ctl", L"\xff"}) cases[2].vector.addString(item);
  cases[3].operand = "CustomScanList";
  cases[3].isVector = true;
  cases[3].code = -14100;
  cases[4].operand = "RunCommandEx";
  cases[4].isVector = true;
  for (int i = 0; i < 1000; ++i) cases[4].vector.addString(std::to_wstring(i).c_str());
  for (const Evaluation& e : cases) {
    std::ostringstream streamed;
    e.writeJson(streamed);
    EXPECT_EQ(streamed.str(), JsonText::dump(e.toJson())) << e.operand;
  }
}

TEST(JsonTextTest, InvalidUtf8BecomesReplacementCharacter) {
  // A byte that is not UTF-8 travels through the host's wide text as U+DC00 + byte.
  std::wstring wide = L"a";
  wide += static_cast<wchar_t>(0xDCFF);
  wide += L"b";
  std::string narrow = JsonText::narrow(wide);
  EXPECT_EQ(narrow, std::string("a\xFF" "b"));
  nlohmann::ordered_json value = narrow;
  EXPECT_EQ(JsonText::dump(value), "\"a\xEF\xBF\xBD" "b\"");
}

TEST(JsonTextTest, ValidUtf8IsKeptAsIs) {
  nlohmann::ordered_json value = std::string("\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(JsonText::dump(value), "\"\xC3\xA9t\xC3\xA9\"");
}

// ------------------------------------------------------------ arguments

TEST(NameValueTest, SplitsAtTheFirstEqualsSign) {
  NameValue nv = NameValue::parse("path=scan.sh a=b", "property");
  EXPECT_EQ(nv.name, "path");
  EXPECT_EQ(nv.value, "scan.sh a=b");
  EXPECT_EQ(NameValue::parse("trim=", "property").value, "");
}

TEST(NameValueTest, RefusesTextWithoutNameOrEqualsSign) {
  EXPECT_THROW(NameValue::parse("path", "property"), UsageError);
  EXPECT_THROW(NameValue::parse("=x", "property"), UsageError);
}

TEST(BatchRequestTest, AcceptsOperandWithAndWithoutProperties) {
  BatchRequest request;
  std::string message;
  ASSERT_TRUE(BatchRequest::parse(R"({"operand": "RunCommand", "properties": {"path": "a.sh", "trim": "false"}})",
                                  request, message))
      << message;
  EXPECT_EQ(request.operand, "RunCommand");
  ASSERT_EQ(request.properties.size(), 2u);
  EXPECT_EQ(request.properties[0].name, "path");
  EXPECT_EQ(request.properties[1].value, "false");
  ASSERT_TRUE(BatchRequest::parse(R"({"operand": "CustomScanList"})", request, message)) << message;
  EXPECT_TRUE(request.properties.empty());
}

TEST(BatchRequestTest, RefusesWhatIsNotARequest) {
  const struct {
    const char* line;
    const char* expected;
  } cases[] = {
      {"not json", "parse error"},
      {"[1, 2]", "a request is a JSON object"},
      {R"("RunCommand")", "a request is a JSON object"},
      {R"({"properties": {}})", "\"operand\" is missing"},
      {R"({"operand": 5})", "\"operand\" is not a string"},
      {R"({"operand": "RunCommand", "properties": ["path"]})", "\"properties\" is not an object"},
      {R"({"operand": "RunCommand", "properties": {"path": 1}})", "property \"path\" is not a string"},
      {R"({"operand": "RunCommand", "propertes": {}})", "unexpected member \"propertes\""},
      {"{\"operand\": \"Run\xFF\"}", "parse error"},
  };
  for (const auto& c : cases) {
    BatchRequest request;
    std::string message;
    EXPECT_FALSE(BatchRequest::parse(c.line, request, message)) << c.line;
    EXPECT_NE(message.find(c.expected), std::string::npos) << c.line << " gave: " << message;
    EXPECT_EQ(message.find("[json.exception"), std::string::npos) << message;
  }
}

TEST(BatchRequestTest, BlankLinesAreBlank) {
  EXPECT_TRUE(BatchRequest::isBlank(""));
  EXPECT_TRUE(BatchRequest::isBlank(" \t \r"));
  EXPECT_FALSE(BatchRequest::isBlank(" {}"));
}

// ------------------------------------------------------------ trace lines

TEST(StderrTraceSinkTest, RecordIsLevelLabelAndTextOnOneLine) {
  TraceRecord record;
  record.level = 1;
  record.label = "RunCommand::getScalarResult()";
  record.text = L"Properties not validated properly, error number = -14203";
  EXPECT_EQ(StderrTraceSink::formatRecord(record),
            "1 RunCommand::getScalarResult(): Properties not validated properly, error number = -14203");
}

TEST(StderrTraceSinkTest, LineBreaksInsideTheTextAreEscaped) {
  TraceRecord record;
  record.level = 3;
  record.label = "Command::run(String&, MemoryBuffer&)";
  record.text = L"\nPreparing\r\tx\n";
  EXPECT_EQ(StderrTraceSink::formatRecord(record), "3 Command::run(String&, MemoryBuffer&): \\nPreparing\\r\tx\\n");
}

// ------------------------------------------------------------ tables

TEST(TableFormatterTest, TextColumnsAreAlignedUnderARule) {
  std::string text = TableFormatter::text({"key", "Device", "Size"}, {{"sda", "sda", "100"}, {"nvme0n1", "nvme0n1", ""}});
  EXPECT_EQ(text,
            "key      Device   Size\n"
            "-------  -------  ----\n"
            "sda      sda      100\n"
            "nvme0n1  nvme0n1\n");
}

TEST(TableFormatterTest, TextWidthCountsCharactersNotBytes) {
  std::string text = TableFormatter::text({"k", "v"}, {{"\xC3\xA9t\xC3\xA9", "x"}});
  EXPECT_EQ(text, "k    v\n---  -\n\xC3\xA9t\xC3\xA9  x\n");
}

TEST(TableFormatterTest, TextOfNoRowsIsTheHeaderAndRule) {
  EXPECT_EQ(TableFormatter::text({"key", "A"}, {}), "key  A\n---  -\n");
}

TEST(TableFormatterTest, CsvQuotesOnlyWhereRfc4180Needs) {
  const struct {
    const char* field;
    const char* expected;
  } cases[] = {
      {"plain", "plain"},
      {"", ""},
      {"a,b", "\"a,b\""},
      {"say \"hi\"", "\"say \"\"hi\"\"\""},
      {"two\nlines", "\"two\nlines\""},
      {"cr\r", "\"cr\r\""},
      {" padded ", "\" padded \""},
  };
  for (const auto& c : cases) EXPECT_EQ(TableFormatter::csvField(c.field), c.expected) << c.field;
}

TEST(TableFormatterTest, CsvRecordsEndWithCrLf) {
  EXPECT_EQ(TableFormatter::csv({"key", "Options"}, {{"/", "rw,relatime"}}), "key,Options\r\n/,\"rw,relatime\"\r\n");
}

// ------------------------------------------------------------ plug-in location

namespace {
std::string ownDirectory() {
  char buffer[4096];
  ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  std::string exe(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
  return exe.substr(0, exe.rfind('/'));
}

// Sets or unsets an environment variable while it lives.
class EnvironmentScope {
 public:
  EnvironmentScope(const char* name, const char* value) : m_Name(name) {
    const char* old = std::getenv(name);
    m_Had = old != nullptr;
    if (m_Had) m_Old = old;
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~EnvironmentScope() {
    if (m_Had) {
      ::setenv(m_Name.c_str(), m_Old.c_str(), 1);
    } else {
      ::unsetenv(m_Name.c_str());
    }
  }

 private:
  std::string m_Name;
  std::string m_Old;
  bool m_Had = false;
};
}  // namespace

TEST(PluginLibraryTest, FirstCandidateIsBesideTheTool) {
  std::vector<std::string> candidates = PluginLibrary::candidatePaths();
  ASSERT_FALSE(candidates.empty());
  EXPECT_EQ(candidates.front(), ownDirectory() + "/libCustomScan.so");
  EXPECT_NE(std::find(candidates.begin(), candidates.end(), ownDirectory() + "/../lib/customscan/libCustomScan.so"),
            candidates.end());
}

TEST(PluginLibraryTest, EnvironmentVariableWinsOverTheSearch) {
  EnvironmentScope plugin("CUSTOMSCAN_PLUGIN", "/somewhere/libCustomScan.so");
  EXPECT_EQ(PluginLibrary::defaultPath(), "/somewhere/libCustomScan.so");
}

TEST(PluginLibraryTest, NoPluginFoundNamesThePlacesSearched) {
  EnvironmentScope plugin("CUSTOMSCAN_PLUGIN", nullptr);
  // This test program's directory holds no plug-in.
  try {
    PluginLibrary::defaultPath();
    FAIL() << "a plug-in was found beside " << ownDirectory();
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find(ownDirectory() + "/libCustomScan.so"), std::string::npos) << e.what();
  }
}

TEST(PluginLibraryTest, LoadingAMissingFileIsAUsageErrorWithTheReason) {
  try {
    PluginLibrary library("/nonexistent/libCustomScan.so");
    FAIL();
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("No such file or directory"), std::string::npos) << e.what();
  }
}

TEST(PluginLibraryTest, BuiltPluginLoadsAndCreatesItsObject) {
  PluginLibrary library(CUSTOMSCAN_PLUGIN_PATH);
  PluginSDK::Plugin* plugin = library.createPlugin();
  ASSERT_NE(plugin, nullptr);
  EXPECT_STREQ(plugin->getName(), L"CustomScan");
  library.destroyPlugin(plugin);
}
