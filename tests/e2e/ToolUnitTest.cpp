// Unit tests of the customscan tool's own pieces.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "BatchRequest.h"
#include "DescriptorOutputBuffer.h"
#include "DoctorCommand.h"
#include "Evaluation.h"
#include "InputText.h"
#include "JsonText.h"
#include "NameValue.h"
#include "PluginLibrary.h"
#include "ResultCodeTable.h"
#include "StderrTraceSink.h"
#include "TableFormatter.h"
#include "ToolOptions.h"
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
  e.scalar = L"5.10";
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
  e.vector = {L"a", L"", L"b"};
  EXPECT_EQ(e.toPlainText(), "a\n\nb\n");
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
      {R"({"operand": "RunCommand\u0000junk"})", "the operand \"RunCommand\\u0000junk\" holds a NUL"},
      {R"({"operand": "\u0000"})", "holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"pa\u0000th": "x"}})",
       "the property name \"pa\\u0000th\" holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"path": "ok\u0000 ../../x"}})",
       "the value of property \"path\" holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"path": "\u0000"}})", "holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"": "x"}})", "a property has an empty name"},
      {R"({"operand": "RunCommand", "pro\u0000perties": {}})", "unexpected member \"pro\\u0000perties\""},
  };
  for (const auto& c : cases) {
    BatchRequest request;
    std::string message;
    EXPECT_FALSE(BatchRequest::parse(c.line, request, message)) << c.line;
    EXPECT_NE(message.find(c.expected), std::string::npos) << c.line << " gave: " << message;
    EXPECT_EQ(message.find("[json.exception"), std::string::npos) << message;
  }
}

TEST(BatchRequestTest, ParseErrorNamesTheLineOfTheInput) {
  BatchRequest request;
  std::string message;
  EXPECT_FALSE(BatchRequest::parse(R"({"operand": x})", request, message, 8));
  EXPECT_NE(message.find("at line 8, column 13"), std::string::npos) << message;
  EXPECT_EQ(message.find("line 1,"), std::string::npos) << message;
  EXPECT_FALSE(BatchRequest::parse("{", request, message, 123456));
  EXPECT_NE(message.find("line 123456, column 2"), std::string::npos) << message;
}

TEST(BatchRequestTest, RawNulByteAnywhereInTheLineIsRefused) {
  BatchRequest request;
  std::string message;
  EXPECT_FALSE(BatchRequest::parse(std::string("{\"operand\": \"Run\0Command\"}", 26), request, message));
  EXPECT_NE(message.find("NUL byte (column 17)"), std::string::npos) << message;
  // The JSON parser alone would stop at the NUL and take the request before it.
  EXPECT_FALSE(BatchRequest::parse(std::string("{\"operand\": \"RunCommand\"}\0junk", 30), request, message));
  EXPECT_NE(message.find("NUL byte (column 26)"), std::string::npos) << message;
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

TEST(StderrTraceSinkTest, LineBreaksTabsAndBackslashesAreEscaped) {
  TraceRecord record;
  record.level = 3;
  record.label = "Command::run(String&, MemoryBuffer&)";
  record.text = L"\nPreparing\r\tx\\y\n";
  EXPECT_EQ(StderrTraceSink::formatRecord(record),
            "3 Command::run(String&, MemoryBuffer&): \\nPreparing\\r\\tx\\\\y\\n");
}

std::string formattedText(const std::wstring& text) {
  std::string line;
  StderrTraceSink::appendEscaped(line, text, StderrTraceSink::kHeadCharacters);
  return line;
}

TEST(StderrTraceSinkTest, EscapeAndEveryOtherC0ControlAndDeleteAreHexBytes) {
  const struct {
    wchar_t c;
    const char* shown;
  } cases[] = {{0x00, "\\x00"}, {0x01, "\\x01"}, {0x07, "\\x07"}, {0x08, "\\x08"}, {0x0B, "\\x0b"},
               {0x0C, "\\x0c"}, {0x1B, "\\x1b"}, {0x1F, "\\x1f"}, {0x7F, "\\x7f"}};
  for (const auto& c : cases) {
    EXPECT_EQ(formattedText(std::wstring(L"a") + c.c + L"b"), std::string("a") + c.shown + "b")
        << static_cast<int>(c.c);
  }
}

TEST(StderrTraceSinkTest, C1ControlsAreCodePointEscapes) {
  EXPECT_EQ(formattedText(L"\x80\x9b\x9f"), "\\u{80}\\u{9b}\\u{9f}");
  // The first character after them is printable again.
  EXPECT_EQ(formattedText(L"\xa0\xe9"), "\xC2\xA0\xC3\xA9");
}

TEST(StderrTraceSinkTest, BytesThatWereNotUtf8AreHexBytes) {
  std::wstring text;
  text += static_cast<wchar_t>(0xDC9B);
  text += static_cast<wchar_t>(0xDCFF);
  text += static_cast<wchar_t>(0xDC80);
  EXPECT_EQ(formattedText(text), "\\x9b\\xff\\x80");
}

TEST(StderrTraceSinkTest, ValuesUtf8CannotCarryAreCodePointEscapes) {
  std::wstring text;
  text += static_cast<wchar_t>(0xD800);
  text += static_cast<wchar_t>(0xDC7F);
  text += static_cast<wchar_t>(0x110000);
  text += static_cast<wchar_t>(-1);
  EXPECT_EQ(formattedText(text), "\\u{d800}\\u{dc7f}\\u{110000}\\u{ffffffff}");
}

TEST(StderrTraceSinkTest, PrintableTextIsUtf8AsItWas) {
  EXPECT_EQ(formattedText(L"caf\xe9 \x20ac \x1F600 ~"), "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ~");
}

TEST(StderrTraceSinkTest, NoCodePointLeavesARawControlByte) {
  // Every code point, in blocks: the lines hold no C0 byte, no DEL and no
  // UTF-8 form of a C1 control (C2 80 to C2 9F), and no byte 80 to 9F that
  // does not continue a sequence.
  for (std::uint32_t first = 0; first < 0x110000; first += 0x10000) {
    std::wstring text;
    for (std::uint32_t c = first; c < first + 0x10000; ++c) text += static_cast<wchar_t>(c);
    std::string line;
    StderrTraceSink::appendEscaped(line, text, std::wstring::npos);
    for (std::size_t i = 0; i < line.size(); ++i) {
      const unsigned char byte = static_cast<unsigned char>(line[i]);
      ASSERT_FALSE(byte < 0x20 || byte == 0x7F) << "block " << first << " offset " << i;
      if (byte == 0xC2 && i + 1 < line.size()) {
        const unsigned char next = static_cast<unsigned char>(line[i + 1]);
        ASSERT_FALSE(next >= 0x80 && next <= 0x9F) << "block " << first << " offset " << i;
      }
      if (byte >= 0x80 && byte <= 0xBF) {
        ASSERT_GT(i, 0u);
        ASSERT_GE(static_cast<unsigned char>(line[i - 1]), 0x80u) << "a lone continuation byte";
      }
    }
  }
}

TEST(StderrTraceSinkTest, TextOfTheHeadLengthIsWrittenWhole) {
  const std::wstring text(StderrTraceSink::kHeadCharacters, L'x');
  EXPECT_EQ(formattedText(text), std::string(StderrTraceSink::kHeadCharacters, 'x'));
}

TEST(StderrTraceSinkTest, LongTextShowsItsHeadAndTheCountLeftOut) {
  const std::wstring text(StderrTraceSink::kHeadCharacters + 1, L'x');
  EXPECT_EQ(formattedText(text), std::string(StderrTraceSink::kHeadCharacters, 'x') + "... [1 more characters]");
  EXPECT_EQ(formattedText(std::wstring(100000, L'y')),
            std::string(StderrTraceSink::kHeadCharacters, 'y') + "... [99488 more characters]");
}

TEST(StderrTraceSinkTest, HeadIsCountedInCharactersBeforeEscaping) {
  std::wstring text(StderrTraceSink::kHeadCharacters + 10, static_cast<wchar_t>(0x1B));
  std::string line = formattedText(text);
  std::string expected;
  for (std::size_t i = 0; i < StderrTraceSink::kHeadCharacters; ++i) expected += "\\x1b";
  EXPECT_EQ(line, expected + "... [10 more characters]");
}

TEST(StderrTraceSinkTest, LabelIsEscapedAndNeverCut) {
  TraceRecord record;
  record.level = 2;
  record.label = std::string("Odd\x1b[0mLabel") + std::string(600, 'z');
  record.text = L"t";
  EXPECT_EQ(StderrTraceSink::formatRecord(record), "2 Odd\\x1b[0mLabel" + std::string(600, 'z') + ": t");
  EXPECT_EQ(StderrTraceSink::formatScope("S\nT", true), "4 S\\nT: enter");
  EXPECT_EQ(StderrTraceSink::formatScope("Scope", false), "4 Scope: leave");
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

// ------------------------------------------------------------ standard output

namespace {

// Reads what is in a pipe's read end without waiting.
std::string drainPipe(int fd) {
  std::string text;
  char block[4096];
  for (;;) {
    ssize_t n = ::read(fd, block, sizeof block);
    if (n <= 0) break;
    text.append(block, static_cast<std::size_t>(n));
  }
  return text;
}

}  // namespace

TEST(DescriptorOutputBufferTest, WritesEverythingInOrderAtFlush) {
  int fds[2];
  ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
  {
    DescriptorOutputBuffer buffer(fds[1], 16);
    std::ostream out(&buffer);
    out << "short" << '\n';
    out << std::string(40, 'x') << "\n";  // more than the buffer holds
    out << 'y';
    out.flush();
    EXPECT_TRUE(out.good());
    EXPECT_FALSE(buffer.failed());
  }
  EXPECT_EQ(drainPipe(fds[0]), "short\n" + std::string(40, 'x') + "\ny");
  ::close(fds[0]);
  ::close(fds[1]);
}

TEST(DescriptorOutputBufferTest, FullDeviceFailsTheStreamAndKeepsTheReason) {
  int fd = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_NE(fd, -1);
  DescriptorOutputBuffer buffer(fd);
  std::ostream out(&buffer);
  out << "answer\n";
  EXPECT_FALSE(buffer.failed()) << "nothing is written before the flush";
  out.flush();
  EXPECT_TRUE(out.bad());
  EXPECT_TRUE(buffer.failed());
  EXPECT_EQ(buffer.error(), ENOSPC);
  ::close(fd);
}

TEST(DescriptorOutputBufferTest, ClosedDescriptorFailsWithBadDescriptor) {
  int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);  // open, but not for writing
  ASSERT_NE(fd, -1);
  DescriptorOutputBuffer buffer(fd);
  std::ostream out(&buffer);
  out << std::string(200000, 'z');  // larger than the buffer: written at once
  EXPECT_TRUE(out.bad());
  EXPECT_EQ(buffer.error(), EBADF);
  ::close(fd);
}

TEST(DescriptorOutputBufferTest, FirstFailureIsKeptAndNothingIsWrittenAfterIt) {
  int fds[2];
  ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
  ::close(fds[0]);
  std::signal(SIGPIPE, SIG_IGN);
  DescriptorOutputBuffer buffer(fds[1]);
  std::ostream out(&buffer);
  out << "lost" << std::flush;
  EXPECT_EQ(buffer.error(), EPIPE);
  out.clear();
  out << "more" << std::flush;
  EXPECT_TRUE(out.bad());
  EXPECT_EQ(buffer.error(), EPIPE);
  ::close(fds[1]);
}

// ------------------------------------------------------------ input text

namespace {

class InputTextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/cs-input-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    m_Dir = pattern;
  }
  void TearDown() override {
    std::remove((m_Dir + "/text").c_str());
    ::rmdir(m_Dir.c_str());
  }
  std::string write(const std::string& content) {
    std::ofstream(m_Dir + "/text", std::ios::binary) << content;
    return m_Dir + "/text";
  }
  std::vector<std::string> lines(const std::string& content, std::size_t maxLength = 1024) {
    InputText input(write(content));
    std::vector<std::string> out;
    std::string line;
    bool tooLong = false;
    while (input.readLine(line, maxLength, tooLong)) out.push_back(tooLong ? "<too long>" : line);
    return out;
  }

  std::string m_Dir;
};

}  // namespace

TEST_F(InputTextTest, LinesAreSplitAtLineFeedsOnly) {
  EXPECT_EQ(lines("a\nb\r\n\nc"), (std::vector<std::string>{"a", "b\r", "", "c"}));
  EXPECT_EQ(lines("a\n"), (std::vector<std::string>{"a"}));
  EXPECT_EQ(lines(""), (std::vector<std::string>{}));
  EXPECT_EQ(lines("\n"), (std::vector<std::string>{""}));
  EXPECT_EQ(lines(std::string("n\0l\n", 4)), (std::vector<std::string>{std::string("n\0l", 3)}));
}

TEST_F(InputTextTest, LineLongerThanTheLimitIsSkippedAndTheNextOneRead) {
  EXPECT_EQ(lines("12345\n123456\nab\n1234567", 6),
            (std::vector<std::string>{"12345", "123456", "ab", "<too long>"}));
  EXPECT_EQ(lines(std::string(200000, 'x') + "\nok\n", 1000), (std::vector<std::string>{"<too long>", "ok"}));
}

TEST_F(InputTextTest, LinesAcrossManyBlocksAreWhole) {
  std::string content;
  for (int i = 0; i < 50000; ++i) content += std::to_string(i) + std::string(static_cast<std::size_t>(i % 7), '.') + "\n";
  std::vector<std::string> got = lines(content);
  ASSERT_EQ(got.size(), 50000u);
  EXPECT_EQ(got[49999], "49999" + std::string(49999 % 7, '.'));
  EXPECT_EQ(got[12345], "12345" + std::string(12345 % 7, '.'));
}

TEST_F(InputTextTest, ReadAllGivesWhatIsLeftAfterTheLinesRead) {
  InputText input(write("first\nsecond\nthird"));
  std::string line;
  bool tooLong = false;
  ASSERT_TRUE(input.readLine(line, 100, tooLong));
  EXPECT_EQ(input.readAll(), "second\nthird");
  EXPECT_EQ(input.readAll(), "");
}

TEST_F(InputTextTest, DirectoryOrMissingFileIsAUsageErrorWithTheReason) {
  try {
    InputText input(m_Dir);
    FAIL() << "a directory was opened";
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("it is a directory"), std::string::npos) << e.what();
  }
  try {
    InputText input(m_Dir + "/missing");
    FAIL() << "a missing file was opened";
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("No such file or directory"), std::string::npos) << e.what();
  }
}

// ------------------------------------------------------------ scanner directory

TEST_F(InputTextTest, ScannerDirectoryIsResolvedAndKeepsItsTrailingSeparator) {
  char resolved[PATH_MAX];
  ASSERT_NE(::realpath(m_Dir.c_str(), resolved), nullptr);
  ToolOptions options;
  options.scannerDir = m_Dir + "/./";
  EXPECT_EQ(options.resolvedScannerDir(), std::string(resolved) + "/");
  options.scannerDir = m_Dir + "//";
  EXPECT_EQ(options.resolvedScannerDir(), std::string(resolved) + "/");
  options.scannerDir = m_Dir + "/.";
  EXPECT_EQ(options.resolvedScannerDir(), std::string(resolved));
  options.scannerDir = "/";
  EXPECT_EQ(options.resolvedScannerDir(), "/");
  options.scannerDir = m_Dir + "/missing/";
  EXPECT_THROW(options.resolvedScannerDir(), UsageError);
// ------------------------------------------------------------ doctor

namespace {
ScannerFinding sampleFinding() {
  ScannerFinding finding;
  finding.path = "/opt/scan/tool";
  finding.kind = ScannerFindingKind::LinkLeavesDirectory;
  finding.problem = "symbolic link to '/usr/bin/id', outside the scanner directory";
  finding.risk = "the command gate follows the link";
  finding.fix = "cp --remove-destination -- /usr/bin/id /opt/scan/tool";
  finding.target = "/usr/bin/id";
  return finding;
}
}  // namespace

TEST(DoctorCommandTest, PlainFindingIsThreeLines) {
  EXPECT_EQ(DoctorCommand::toPlainText(sampleFinding()),
            "/opt/scan/tool: symbolic link to '/usr/bin/id', outside the scanner directory\n"
            "  why: the command gate follows the link\n"
            "  fix: cp --remove-destination -- /usr/bin/id /opt/scan/tool\n");
}

TEST(DoctorCommandTest, PlainFindingEscapesControlCharactersAndBytesThatAreNotUtf8) {
  ScannerFinding finding = sampleFinding();
  finding.path = "/opt/scan/a\nb\r\x7f\xff caf\xc3\xa9";
  const std::string text = DoctorCommand::toPlainText(finding);
  EXPECT_EQ(text.substr(0, text.find(": ")), "/opt/scan/a\\x0Ab\\x0D\\x7F\\xFF caf\xc3\xa9");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST(DoctorCommandTest, JsonFindingNamesItsKindAndTarget) {
  EXPECT_EQ(JsonText::dump(DoctorCommand::toJson(sampleFinding())),
            R"({"path":"/opt/scan/tool","kind":"link-outside",)"
            R"("problem":"symbolic link to '/usr/bin/id', outside the scanner directory",)"
            R"("why":"the command gate follows the link",)"
            R"("fix":"cp --remove-destination -- /usr/bin/id /opt/scan/tool",)"
            R"("target":"/usr/bin/id"})");
}

TEST(DoctorCommandTest, JsonFindingWithoutTargetLeavesItOut) {
  ScannerFinding finding = sampleFinding();
  finding.target.clear();
  EXPECT_FALSE(DoctorCommand::toJson(finding).contains("target"));
}
