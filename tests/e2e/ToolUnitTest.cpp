// Unit tests of the customscan tool's own pieces.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "BatchRequest.h"
#include "CustomScanPlugin.h"
#include "DescriptorOutputBuffer.h"
#include "DoctorCommand.h"
#include "Evaluation.h"
#include "InputText.h"
#include "JsonText.h"
#include "MifClassIndex.h"
#include "MifHints.h"
#include "MifRoute.h"
#include "NameValue.h"
#include "PluginLibrary.h"
#include "ResultCodeTable.h"
#include "StderrTraceSink.h"
#include "TableFormatter.h"
#include "ToolOptions.h"
#include "UsageError.h"
#include "VisibleText.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"

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
  const int documented[] = {-14000, -14001, -14002, -14003, -14100, -14101, -14102, -14103,
                            -14105, -14106, -14107, -14109, -14110, -14111, -14112, -14113,
                            -14114, -14115, -14116, -14117, -14118, -14119, -14120, -14121,
                            -14200, -14201, -14202, -14203, -100,   -101,   -10008};
  for (int code : documented) EXPECT_NE(ResultCodeTable::find(code), nullptr) << code;
}

TEST(ResultCodeTableTest, UnassignedCodesAndSuccessAreNotInTheTable) {
  for (int code : {0, -14104, -14108, -1, -14204})
    EXPECT_EQ(ResultCodeTable::find(code), nullptr) << code;
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
  EXPECT_EQ(
      JsonText::dump(e.toJson()),
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
  for (const wchar_t* item : {L"a", L"", L"\"q\"", L"\u20ac", L"\x01ctl", L"\xff"})
    cases[2].vector.addString(item);
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
  EXPECT_EQ(narrow, std::string("a\xFF"
                                "b"));
  nlohmann::ordered_json value = narrow;
  EXPECT_EQ(JsonText::dump(value),
            "\"a\xEF\xBF\xBD"
            "b\"");
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
  ASSERT_TRUE(BatchRequest::parse(
      R"({"operand": "RunCommand", "properties": {"path": "a.sh", "trim": "false"}})", request,
      message))
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
      {R"({"operand": "RunCommand", "properties": {"path": 1}})",
       "property \"path\" is not a string"},
      {R"({"operand": "RunCommand", "propertes": {}})", "unexpected member \"propertes\""},
      {"{\"operand\": \"Run\xFF\"}", "parse error"},
      {R"({"operand": "RunCommand\u0000junk"})",
       "the operand \"RunCommand\\u0000junk\" holds a NUL"},
      {R"({"operand": "\u0000"})", "holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"pa\u0000th": "x"}})",
       "the property name \"pa\\u0000th\" holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"path": "ok\u0000 ../../x"}})",
       "the value of property \"path\" holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"path": "\u0000"}})", "holds a NUL"},
      {R"({"operand": "RunCommand", "properties": {"": "x"}})", "a property has an empty name"},
      {R"({"operand": "RunCommand", "pro\u0000perties": {}})",
       "unexpected member \"pro\\u0000perties\""},
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
  EXPECT_FALSE(
      BatchRequest::parse(std::string("{\"operand\": \"Run\0Command\"}", 26), request, message));
  EXPECT_NE(message.find("NUL byte (column 17)"), std::string::npos) << message;
  // The JSON parser alone would stop at the NUL and take the request before it.
  EXPECT_FALSE(BatchRequest::parse(std::string("{\"operand\": \"RunCommand\"}\0junk", 30), request,
                                   message));
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
  EXPECT_EQ(
      StderrTraceSink::formatRecord(record),
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
  EXPECT_EQ(formattedText(L"caf\xe9 \x20ac \x1F600 ~"),
            "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ~");
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
  EXPECT_EQ(formattedText(text),
            std::string(StderrTraceSink::kHeadCharacters, 'x') + "... [1 more characters]");
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
  EXPECT_EQ(StderrTraceSink::formatRecord(record),
            "2 Odd\\x1b[0mLabel" + std::string(600, 'z') + ": t");
  EXPECT_EQ(StderrTraceSink::formatScope("S\nT", true), "4 S\\nT: enter");
  EXPECT_EQ(StderrTraceSink::formatScope("Scope", false), "4 Scope: leave");
}

// ------------------------------------------------------------ tables

TEST(TableFormatterTest, TextColumnsAreAlignedUnderARule) {
  std::string text = TableFormatter::text({"key", "Device", "Size"},
                                          {{"sda", "sda", "100"}, {"nvme0n1", "nvme0n1", ""}});
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
  EXPECT_EQ(TableFormatter::csv({"key", "Options"}, {{"/", "rw,relatime"}}),
            "key,Options\r\n/,\"rw,relatime\"\r\n");
}

// ------------------------------------------------------------ mif: routes, hints, classes

namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every regular file of a directory below the source tree, sorted.
std::vector<std::string> filesIn(const std::string& directory) {
  std::vector<std::string> files;
  DIR* dir = ::opendir((std::string(CUSTOMSCAN_SOURCE_DIR) + "/" + directory).c_str());
  if (dir == nullptr) return files;
  while (const dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] != '.') {
      files.push_back(std::string(CUSTOMSCAN_SOURCE_DIR) + "/" + directory + "/" + entry->d_name);
    }
  }
  ::closedir(dir);
  std::sort(files.begin(), files.end());
  return files;
}

// "kind@line" of each hint, in order.
std::vector<std::string> hintSites(const std::string& text, MifRoute::Kind route) {
  std::vector<std::string> sites;
  for (const MifHint& hint : MifHints::find(text, route)) {
    sites.push_back(hint.kind + "@" + std::to_string(hint.line));
  }
  return sites;
}

std::string messageOf(const std::string& text, MifRoute::Kind route, const std::string& kind) {
  for (const MifHint& hint : MifHints::find(text, route)) {
    if (hint.kind == kind) return hint.message;
  }
  return "";
}

const char kGroupHead[] =
    "start component\n"
    "  start group\n"
    "    class = \"D\"\n"
    "    key = 1\n"
    "    start attribute\n"
    "      id = 1\n"
    "      name = \"N\"\n"
    "      value = \"\"\n"
    "    end attribute\n"
    "  end group\n"
    "  start table\n"
    "    class = \"D\"\n";  // lines 1 to 12; a row added here is line 13
const char kGroupTail[] =
    "  end table\n"
    "end component\n";

std::string withRows(const std::string& rows) { return kGroupHead + rows + kGroupTail; }

using CustomScanPlugin::MifElement;
using CustomScanPlugin::MifParser;
using CustomScanPlugin::MifTable;

std::unique_ptr<MifElement> parsedTree(const std::string& text) {
  MifParser parser;
  MifElement* top = nullptr;
  parser.parseNarrow(text.c_str(), top);
  return std::unique_ptr<MifElement>(top);
}

// A built table, or its code, as one comparable text.
std::string tableDump(const MifElement* top, const std::string& className) {
  MifTable* built = nullptr;
  const int code = MifTable::getMifTable(top, String(className.c_str()), built);
  std::unique_ptr<MifTable> table(built);
  if (code != 0) return "code " + std::to_string(code);
  std::string dump;
  std::vector<String> keys;
  table->getKeys(keys);
  for (const String& key : keys) {
    std::vector<String> row;
    table->getRow(key, row);
    dump += key.toNarrow() + ":";
    for (const String& value : row) dump += " [" + value.toNarrow() + "]";
    dump += "\n";
  }
  return dump;
}

// A random MIF text of groups and tables of the classes A, B and C, some
// nested in other scopes, in any order, of every group type.
std::string randomMif(std::mt19937& random) {
  const auto pick = [&random](int n) {
    return static_cast<int>(random() % static_cast<unsigned>(n));
  };
  const char* classes[] = {"A", "B", "C"};
  std::string text;
  std::function<void(int)> items = [&](int depth) {
    const int count = 1 + pick(4);
    for (int i = 0; i < count; ++i) {
      const int what = pick(depth < 2 ? 3 : 2);
      if (what == 0) {
        text += "start group\n";
        for (int c = pick(3); c > 0; --c)
          text += std::string("class = \"") + classes[pick(3)] + "\"\n";
        const int type = pick(4);
        if (type & 1) text += "id = 1\n";
        if (type & 2) text += pick(2) == 0 ? "key = 1\n" : "key = 2,1\n";
        for (int a = 1, n = pick(3); a <= n; ++a) {
          text += "start attribute\nid = " + std::to_string(a) + "\nname = \"F" +
                  std::to_string(a) + "\"\nvalue = \"d" + std::to_string(pick(2)) +
                  "\"\nend attribute\n";
        }
        if (depth < 2 && pick(3) == 0) items(depth + 1);
        text += "end group\n";
      } else if (what == 1) {
        text += std::string("start table\nclass = \"") + classes[pick(3)] + "\"\n";
        for (int r = pick(4); r > 0; --r) {
          text += "{k" + std::to_string(pick(3));
          for (int v = pick(3); v > 0; --v) text += pick(2) == 0 ? ", " : ", v";
          text += "}\n";
        }
        text += "end table\n";
      } else {
        text += "start outer\n";
        items(depth + 1);
        text += "end outer\n";
      }
    }
  };
  text += "start component\n";
  items(0);
  text += "end component\n";
  return text;
}

}  // namespace

TEST(MifRouteTest, StdoutRouteDropsEveryZeroByteAndCarriageReturn) {
  EXPECT_EQ(MifRoute::agentBytes(std::string("a\r\nb\0c\r", 7), MifRoute::Stdout), "a\nbc");
}

TEST(MifRouteTest, FileRouteKeepsCarriageReturnsAndEndsAtTheFirstZeroByte) {
  EXPECT_EQ(MifRoute::agentBytes(std::string("a\r\nb\0c", 6), MifRoute::File), "a\r\nb");
  EXPECT_EQ(MifRoute::agentBytes("a\r\n", MifRoute::File), "a\r\n");
}

TEST(MifRouteTest, RouteNamesRoundTripAndOthersAreUsageErrors) {
  EXPECT_EQ(MifRoute::parse("stdout"), MifRoute::Stdout);
  EXPECT_EQ(MifRoute::parse("file"), MifRoute::File);
  EXPECT_STREQ(MifRoute::name(MifRoute::File), "file");
  EXPECT_THROW(MifRoute::parse("pipe"), UsageError);
}

TEST(VisibleTextTest, ControlCharactersAreEscaped) {
  EXPECT_EQ(VisibleText::of("a\rb\tc\nd\x1B[0m\x7F"), "a\\rb\\tc\\nd\\x1B[0m\\x7F");
}

TEST(VisibleTextTest, InvisibleCharactersAreShownAsCodePoints) {
  EXPECT_EQ(VisibleText::of("\xEF\xBB\xBFstart\xC2\xA0x\xE2\x80\x8B"),
            "\\u{FEFF}start\\u{00A0}x\\u{200B}");
}

TEST(VisibleTextTest, BytesThatAreNotUtf8AreShownAsHex) {
  EXPECT_EQ(VisibleText::of("caf\xE9 \xC3"), "caf\\xE9 \\xC3");
  EXPECT_EQ(VisibleText::of("\xED\xA0\x80"), "\\xED\\xA0\\x80");  // a surrogate
}

TEST(VisibleTextTest, PrintableTextIsKeptAsItIs) {
  const std::string text = "caf\xC3\xA9 \"c:\\dir\" {a, b} \xF0\x9F\x98\x80";
  EXPECT_EQ(VisibleText::of(text), text);
  EXPECT_TRUE(VisibleText::isVisible(text));
  EXPECT_FALSE(VisibleText::isVisible("a\r"));
}

TEST(MifHintsTest, ValidSamplesGiveNoHints) {
  for (const std::string& path : filesIn("tests/catalogue/samples")) {
    const std::string text = readFile(path);
    EXPECT_EQ(hintSites(text, MifRoute::Stdout), std::vector<std::string>()) << path;
    EXPECT_EQ(hintSites(text, MifRoute::File), std::vector<std::string>()) << path;
  }
}

TEST(MifHintsTest, EachConstructGivesItsHintOnItsLine) {
  const struct {
    const char* name;
    std::string text;
    MifRoute::Kind route;
    std::vector<std::string> sites;
  } cases[] = {
      {"byte order mark",
       "\xEF\xBB\xBFstart component\nend component\n",
       MifRoute::Stdout,
       {"bom@1"}},
      {"blank after brace", withRows("    {\"a\"} \n"), MifRoute::Stdout, {"blank-after-brace@13"}},
      {"tab after brace", withRows("    {\"a\"}\t\n"), MifRoute::Stdout, {"blank-after-brace@13"}},
      {"tab after start",
       "start\tcomponent\nend component\n",
       MifRoute::Stdout,
       {"tab-after-keyword@1"}},
      {"no-break space after end",
       "start c\nend\xC2\xA0"
       "c\n",
       MifRoute::Stdout,
       {"tab-after-keyword@2"}},
      {"tab before a quoted value",
       withRows("    {\t\"a\"}\n"),
       MifRoute::Stdout,
       {"tab-in-row@13"}},
      {"tab after a quoted value",
       withRows("    {\"a\"\t}\n"),
       MifRoute::Stdout,
       {"tab-in-row@13"}},
      {"row over two lines",
       withRows("    {\"a\",\n     \"b\"}\n"),
       MifRoute::Stdout,
       {"row-spans-lines@13"}},
      {"row without brace",
       withRows("    {\"a\" // note\n"),
       MifRoute::Stdout,
       {"row-unclosed@13"}},
      {"row quote never closed",
       withRows("    {\"a, b}\n"),
       MifRoute::Stdout,
       {"unbalanced-quote@13"}},
      {"string over two lines",
       "start c\n  text = \"one\n  two\"\n  x = 1\nend c\n",
       MifRoute::Stdout,
       {"continued-string@2"}},
      {"quote at the start only",
       "start c\n  text = \"one\nend c\n",
       MifRoute::Stdout,
       {"unbalanced-quote@2"}},
      {"quote at the end only",
       "start c\n  text = one\"\nend c\n",
       MifRoute::Stdout,
       {"unbalanced-quote@2"}},
      {"a lone quote", "start c\n  text = \"\nend c\n", MifRoute::Stdout, {"unbalanced-quote@2"}},
      {"group with id and key",
       "start c\n start group\n  class = \"A\"\n  id = 1\n  KEY = 1\n end group\nend c\n",
       MifRoute::Stdout,
       {"group-id-and-key@2"}},
      {"group with neither",
       "start group\n  class = \"A\"\nend group\n",
       MifRoute::Stdout,
       {"group-without-type@1"}},
      {"crlf through stdout", "start c\r\n  {a}\r\nend c\r\n", MifRoute::Stdout, {"cr@1"}},
      {"crlf through a file", withRows("    {\"a\"}\r\n"), MifRoute::File, {"cr@13", "cr-row@13"}},
      {"cr without lf", "start c\rend c\n", MifRoute::Stdout, {"cr-alone@1"}},
      {"zero byte through stdout",
       std::string("start c\nend\0 c\n", 14),
       MifRoute::Stdout,
       {"zero-byte@2"}},
      {"zero byte through a file",
       std::string("start c\nend c\n\0junk", 19),
       MifRoute::File,
       {"zero-byte@3"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(hintSites(c.text, c.route), c.sites) << c.name;
  }
}

TEST(MifHintsTest, WhatsAcceptedGivesNoHint) {
  const struct {
    const char* name;
    std::string text;
  } cases[] = {
      {"tab inside an unquoted value", withRows("    {a,\tb}\n")},
      {"quotes at both ends", "start c\n  text = \"one\"\nend c\n"},
      {"a quote inside", "start c\n  text = a\"b\nend c\n"},
      {"escaped quotes in a row", withRows("    {\"say \\\"hi\\\"\", c:\\\\dir}\n")},
      {"comma inside quotes", withRows("    {\"a, b\"  , c}\n")},
      {"leading tabs", "\tstart c\n\t\tx = 1\nend c\n"},
      {"a group with a key only", withRows("")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(hintSites(c.text, MifRoute::Stdout), std::vector<std::string>()) << c.name;
  }
}

TEST(MifHintsTest, HintsSayWhatTheAgentMakesOfTheLine) {
  EXPECT_NE(messageOf("\xEF\xBB\xBFstart component\nend component\n", MifRoute::Stdout, "bom")
                .find("malformed, not a start line"),
            std::string::npos);
  // A row holding "=" after which a blank stands is a variable to the agent.
  EXPECT_NE(messageOf(withRows("    {\"a=b\"} \n"), MifRoute::Stdout, "blank-after-brace")
                .find("the line is a variable"),
            std::string::npos);
  EXPECT_NE(
      messageOf("start c\n  text = \"one\n  two\"\nend c\n", MifRoute::Stdout, "continued-string")
          .find("the value of \"text\" is \"one\" and line 3 is malformed"),
      std::string::npos);
  EXPECT_NE(messageOf("start c\r\nend c\r\n", MifRoute::Stdout, "cr").find("as do 1 more lines"),
            std::string::npos);
  EXPECT_NE(messageOf(std::string("start c\nend c\n\0junk", 19), MifRoute::File, "zero-byte")
                .find("ignores the 4 byte(s) after it"),
            std::string::npos);
}

TEST(MifHintsTest, HintsOfOneKindAreCappedAndTheRestCounted) {
  std::string rows;
  for (int i = 0; i < 25; ++i) rows += "    {\"r" + std::to_string(i) + "\"} \n";
  const std::vector<MifHint> hints = MifHints::find(withRows(rows), MifRoute::Stdout);
  ASSERT_EQ(hints.size(), MifHints::kPerKind + 1);
  EXPECT_EQ(hints.back().line, 13 + static_cast<int>(MifHints::kPerKind));
  EXPECT_NE(hints.back().message.find("15 more line(s)"), std::string::npos)
      << hints.back().message;
}

TEST(MifHintsTest, EveryCorpusTextGivesBoundedHintsWithinItsLines) {
  std::vector<std::string> files = filesIn("fuzz/corpus/mif_parse");
  const std::vector<std::string> rows = filesIn("fuzz/corpus/row_values");
  files.insert(files.end(), rows.begin(), rows.end());
  ASSERT_FALSE(files.empty());
  for (const std::string& path : files) {
    const std::string text = readFile(path);
    for (MifRoute::Kind route : {MifRoute::Stdout, MifRoute::File}) {
      const int lines = static_cast<int>(std::count(text.begin(), text.end(), '\n')) + 1;
      std::map<std::string, std::size_t> perKind;
      for (const MifHint& hint : MifHints::find(text, route)) {
        EXPECT_GE(hint.line, 1) << path;
        EXPECT_LE(hint.line, lines) << path;
        EXPECT_LE(++perKind[hint.kind], MifHints::kPerKind + 1) << path;
      }
    }
  }
}

TEST(MifClassIndexTest, ClassTopBuildsTheTableTheWholeTreeBuilds) {
  std::vector<std::string> texts;
  for (const std::string& path : filesIn("fuzz/corpus/mif_parse")) texts.push_back(readFile(path));
  for (const std::string& path : filesIn("tests/catalogue/samples"))
    texts.push_back(readFile(path));
  // The table before its group; a nested group; a table inside its group;
  // a second group and a second table of a class; two classes on one group.
  texts.push_back(
      "start c\n start table\n  class = \"A\"\n  {x, 1}\n end table\n"
      " start group\n  class = \"A\"\n  key = 1\n"
      "  start attribute\n   id = 1\n   name = \"K\"\n   value = \"\"\n  end attribute\n"
      "  start attribute\n   id = 2\n   name = \"V\"\n   value = \"d\"\n  end attribute\n"
      " end group\n start table\n  class = \"A\"\n  {y, }\n end table\nend c\n");
  texts.push_back(
      "start c\n start outer\n  start group\n   class = \"B\"\n   class = \"C\"\n   key = 1\n"
      "   start attribute\n    id = 1\n    name = \"K\"\n    value = \"\"\n   end attribute\n"
      "   start table\n    class = \"B\"\n    {inner}\n   end table\n"
      "  end group\n end outer\n start group\n  class = \"B\"\n  id = 1\n"
      "  start attribute\n   name = \"K\"\n   value = \"v\"\n  end attribute\n end group\n"
      " start table\n  class = \"C\"\n  {c1}\n  {c2}\n end table\nend c\n");
  std::mt19937 random(20240611);
  for (int i = 0; i < 400; ++i) texts.push_back(randomMif(random));
  PluginSDK::CustomScanPlugin plugin;
  plugin.initializePlugin();
  std::size_t compared = 0;
  for (const std::string& text : texts) {
    const std::unique_ptr<MifElement> top = parsedTree(text);
    if (top == nullptr) continue;
    const MifClassIndex index(top.get());
    for (const std::string& className : index.classNames()) {
      const std::unique_ptr<MifElement> classTop = index.classTop(className);
      ASSERT_NE(classTop, nullptr) << className;
      EXPECT_EQ(tableDump(classTop.get(), className), tableDump(top.get(), className))
          << "class " << className << " of\n"
          << text;
      ++compared;
    }
  }
  plugin.cleanupPlugin();
  EXPECT_GE(compared, 400u);
}

TEST(MifClassIndexTest, GroupsAreListedInDocumentOrderWithTheFirstOfEachClassMarked) {
  const std::unique_ptr<MifElement> top = parsedTree(
      "start c\n start group\n  class = \"B\"\n end group\n start group\n  x = 1\n end group\n"
      " start group\n  class = \"A\"\n  class = \"B\"\n end group\nend c\n");
  ASSERT_NE(top, nullptr);
  const MifClassIndex index(top.get());
  ASSERT_EQ(index.groupClasses().size(), 3u);
  EXPECT_EQ(index.groupClasses()[0].className, "B");
  EXPECT_TRUE(index.groupClasses()[0].first);
  EXPECT_EQ(index.groupClasses()[1].className, "A");
  EXPECT_EQ(index.groupClasses()[1].line, 8);
  EXPECT_FALSE(index.groupClasses()[2].first);
  EXPECT_EQ(index.unnamedGroups(), std::vector<int>{5});
  EXPECT_EQ(index.classNames(), (std::vector<std::string>{"B", "A"}));
  EXPECT_EQ(index.classTop("Nope"), nullptr);
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
  EXPECT_NE(std::find(candidates.begin(), candidates.end(),
                      ownDirectory() + "/../lib/customscan/libCustomScan.so"),
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
    EXPECT_NE(std::string(e.what()).find(ownDirectory() + "/libCustomScan.so"), std::string::npos)
        << e.what();
  }
}

TEST(PluginLibraryTest, LoadingAMissingFileIsAUsageErrorWithTheReason) {
  try {
    PluginLibrary library("/nonexistent/libCustomScan.so");
    FAIL();
  } catch (const UsageError& e) {
    EXPECT_NE(std::string(e.what()).find("No such file or directory"), std::string::npos)
        << e.what();
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
  EXPECT_EQ(lines(std::string(200000, 'x') + "\nok\n", 1000),
            (std::vector<std::string>{"<too long>", "ok"}));
}

TEST_F(InputTextTest, LinesAcrossManyBlocksAreWhole) {
  std::string content;
  for (int i = 0; i < 50000; ++i)
    content += std::to_string(i) + std::string(static_cast<std::size_t>(i % 7), '.') + "\n";
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
    EXPECT_NE(std::string(e.what()).find("No such file or directory"), std::string::npos)
        << e.what();
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
}

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
