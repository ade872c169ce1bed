#include "common/CommandGate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/File.h"
#include "base/Runtime.h"
#include "common/Command.h"
#include "config/ZelCfg.h"
#include "operands/RunCommand.h"
#include "operands/RunCommandEx.h"

using CustomScanPlugin::Command;
using CustomScanPlugin::CommandGate;
using CustomScanPlugin::MemoryBuffer;

namespace {

constexpr char kLabel[] = "RunCommand::getCommand(const String&,String&)";
constexpr char kSource[] = "../../../../src/plugins/CustomScanPlugin/operands/RunCommand";
const int kFormat = CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT;
const int kOutside = CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH;
const int kMissing = CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST;

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::string::size_type at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string repeat(const std::string& piece, int times) {
  std::string out;
  for (int k = 0; k < times; ++k) out += piece;
  return out;
}

class CommandGateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Sandbox.installChild("child");
    m_Sandbox.installChild("my scan");
    m_Sandbox.installChild("sub/child");
  }
  void TearDown() override { m_Hygiene.verify(); }

  // {D} stands for the scanner directory, {R} for the sandbox root.
  std::string expand(const std::string& text) const {
    return replaceAll(replaceAll(text, "{D}", m_Sandbox.dir()), "{R}", m_Sandbox.root());
  }

  TErrorCode resolve(const std::string& command, String& resolved, const std::string& directory) {
    return CommandGate::resolve(String(directory.c_str()), kLabel, kSource, String(command.c_str()),
                                resolved);
  }
  TErrorCode resolve(const std::string& command, String& resolved) {
    return resolve(command, resolved, m_Sandbox.dir());
  }

  static std::string run(const String& line, TErrorCode* code) {
    MemoryBuffer b(1024, 4096);
    *code = Command::run(line, b);
    return std::string(reinterpret_cast<const char*>(b.getData()));
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
  cstest::TraceCapture m_Trace;
};

// ------------------------------------------------------------- command lines

struct LineRow {
  const char* what;
  std::string input;
  int code;
  // On success: the resolved line and the argument lines the child prints
  // (its "args" step). On failure: the one error record.
  std::string resolvedOrError;
  std::string childOutput;
};

TEST_F(CommandGateTest, CommandLinesResolveAndReachTheChildAsExpected) {
  const LineRow rows[] = {
      {"name alone", "child", 0, "{D}/child", ""},
      {"name then parameter", "child args", 0, "{D}/child args", "[args]\n"},
      {"quoted name with a blank, blank, parameters", "\"my scan\" args x", 0,
       "\"{D}/my scan\"  args x", "[args]\n[x]\n"},
      {"quoted name, parameter without a blank", "\"my scan\"args", 0, "\"{D}/my scan\" args",
       "[args]\n"},
      {"quoted name alone", "\"my scan\"", 0, "\"{D}/my scan\"", ""},
      {"quoted unspaced name alone", "\"child\"", 0, "\"{D}/child\"", ""},
      {"quotes inside parameters passed on", "child args \"a b\" c", 0, "{D}/child args \"a b\" c",
       "[args]\n[a b]\n[c]\n"},
      {"quoted parameter after a quoted name", "\"my scan\" args \"p  q\"", 0,
       "\"{D}/my scan\"  args \"p  q\"", "[args]\n[p  q]\n"},
      {"unclosed quote in the parameters passed on", "child args \"x y", 0, "{D}/child args \"x y",
       "[args]\n[x y]\n"},
      {"empty quoted parameter passed on", "child args \"\"", 0, "{D}/child args \"\"",
       "[args]\n[]\n"},
      {"runs of blanks kept in the parameters", "child  args   x", 0, "{D}/child  args   x",
       "[args]\n[x]\n"},
      {"leading and trailing blanks", "   child args   ", 0, "{D}/child args", "[args]\n"},
      {"trailing blank after the name", "child ", 0, "{D}/child", ""},
      {"leading and trailing tabs", "\tchild args\t", 0, "{D}/child args", "[args]\n"},
      {"blanks inside the quotes of the name", "\" child \" args", 0, "\"{D}/child\"  args",
       "[args]\n"},
      {"absolute name becomes a path below the directory", "/child args", 0, "{D}/child args",
       "[args]\n"},
      {"program in a sub-directory", "sub/child args", 0, "{D}/sub/child args", "[args]\n"},
      {"current-directory step and repeated separators", ".//sub//./child args", 0,
       "{D}/sub/child args", "[args]\n"},
      {"parent step that stays inside", "sub/../child args", 0, "{D}/child args", "[args]\n"},
      {"empty command", "", kFormat, "Empty command specified", ""},
      {"quote inside the name", "my\"scan", kFormat,
       "double quotes found in a wrong position in command [my\"scan]", ""},
      {"quote ending an unquoted name", "child\" args", kFormat,
       "double quotes found in a wrong position in command [child\" args]", ""},
      {"unclosed quote", "\"child args", kFormat,
       "no closing quote specified for the command[\"child args]", ""},
      {"lone quote", "\"", kFormat, "no closing quote specified for the command[\"]", ""},
      {"blanks only", "   ", kMissing, "the command [{D}] is not a file", ""},
      {"empty quoted name", "\"\"", kMissing, "the command [{D}] is not a file", ""},
      {"empty quoted name then parameter", "\"\" child", kMissing,
       "the command [{D}] is not a file", ""},
      {"tab is not a separator", "child\targs", kMissing,
       "the command [{D}/child\targs] does not exist", ""},
      {"absolute path of the directory itself", "{D}/child", kMissing,
       "the command [{D}{D}/child] does not exist", ""},
      {"name of a sub-directory", "sub", kMissing, "the command [{D}/sub] is not a file", ""},
      {"name of the directory itself", ".", kMissing, "the command [{D}] is not a file", ""},
      {"missing name", "nothere -x", kMissing, "the command [{D}/nothere] does not exist", ""},
      {"quoted missing name", "\"no such\" -x", kMissing,
       "the command [{D}/no such] does not exist", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    m_Trace.clear();
    const std::string input = expand(row.input);
    String resolved(L"untouched");
    ASSERT_EQ(resolve(input, resolved), row.code) << "input [" << input << "]";
    if (row.code != 0) {
      EXPECT_EQ(toWideString(resolved), L"untouched");
      EXPECT_EQ(m_Trace.texts(Trace::Error), std::vector<std::string>{expand(row.resolvedOrError)});
      continue;
    }
    EXPECT_EQ(resolved.toNarrow(), expand(row.resolvedOrError));
    EXPECT_TRUE(m_Trace.texts(Trace::Error).empty());
    // The child echoes its argument vector when "args" is among its steps.
    TErrorCode code = -1;
    EXPECT_EQ(run(resolved, &code), row.childOutput) << resolved.toNarrow();
    EXPECT_EQ(code, 0);
  }
}

TEST_F(CommandGateTest, SuccessfulResolutionTracesEveryStep) {
  String resolved;
  ASSERT_EQ(resolve("  \"my scan\"  -a ", resolved), 0);
  const std::string d = m_Sandbox.dir();
  const std::vector<std::string> expected = {
      "input command is [  \"my scan\"  -a ]",
      "input command without parameter is [my scan]",
      "the absolute path for the command is [" + d + "/my scan]",
      "the normalized path for the command is [" + d + "/my scan]",
      "the custom scanners directory is [" + d + "]",
      "valid command identified [\"" + d + "/my scan\"   -a]",
  };
  EXPECT_EQ(m_Trace.texts(), expected);
  for (const auto& r : m_Trace.records()) {
    EXPECT_EQ(r.level, Trace::Detail) << cstest::narrow(r.text);
    EXPECT_EQ(r.label, kLabel);
    EXPECT_EQ(r.file, kSource);
    EXPECT_EQ(r.component, 5);
  }
}

TEST_F(CommandGateTest, QuotedNameThenBlankThenParameterGivesTwoBlanks) {
  String resolved;
  ASSERT_EQ(resolve("\"my scan.sh\" -a", resolved), kMissing);  // not installed yet
  m_Sandbox.installChild("my scan.sh");
  ASSERT_EQ(resolve("\"my scan.sh\" -a", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), "\"" + m_Sandbox.dir() + "/my scan.sh\"  -a");
  ASSERT_EQ(resolve("\"my scan.sh\"-x", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), "\"" + m_Sandbox.dir() + "/my scan.sh\" -x");
}

TEST_F(CommandGateTest, UnquotedNameKeepsExtraBlanksBeforeItsParameters) {
  m_Sandbox.installChild("a");
  String resolved;
  ASSERT_EQ(resolve("a  b", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/a  b");
}

TEST_F(CommandGateTest, EmptyCommandIsRefusedBeforeAnyDetailRecord) {
  String resolved(L"kept");
  EXPECT_EQ(resolve("", resolved), kFormat);
  ASSERT_EQ(m_Trace.records().size(), 1u);
  EXPECT_EQ(m_Trace.records()[0].level, Trace::Error);
  EXPECT_EQ(cstest::narrow(m_Trace.records()[0].text), "Empty command specified");
  EXPECT_EQ(toWideString(resolved), L"kept");
}

TEST_F(CommandGateTest, MisplacedQuoteIsRefusedAfterTheInputRecord) {
  String resolved;
  EXPECT_EQ(resolve("my\"scan.sh", resolved), kFormat);
  EXPECT_EQ(m_Trace.texts(),
            (std::vector<std::string>{
                "input command is [my\"scan.sh]",
                "double quotes found in a wrong position in command [my\"scan.sh]"}));
  EXPECT_EQ(m_Trace.records()[1].level, Trace::Error);
}

TEST_F(CommandGateTest, UnclosedQuoteRecordHasNoBlankBeforeTheBracket) {
  String resolved;
  EXPECT_EQ(resolve(" \"open", resolved), kFormat);
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            std::vector<std::string>{"no closing quote specified for the command[ \"open]"});
}

TEST_F(CommandGateTest, NameThatIsASubDirectoryNeverGetsTheNotAFileCode) {
  String resolved;
  EXPECT_EQ(resolve("sub", resolved), CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST);
  EXPECT_NE(resolve("sub", resolved), CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_IS_NOT_A_FILE);
}

// Host behaviour as the gate sees it (left to the implementer): trim removes
// every character up to U+0020 and nothing above it; charAt out of range is 0,
// so an empty name ends as the directory itself; NormalizePath folds "." and
// ".." steps and repeated separators lexically.
TEST_F(CommandGateTest, HostTrimRemovesControlCharactersAndBlanksOnly) {
  String resolved;
  ASSERT_EQ(CommandGate::resolve(String(m_Sandbox.dir().c_str()), kLabel, kSource,
                                 String(L"\x01\x1f child \x0b\x20"), resolved),
            0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/child");
  m_Trace.clear();
  EXPECT_EQ(CommandGate::resolve(String(m_Sandbox.dir().c_str()), kLabel, kSource,
                                 String(L"\x00a0"
                                        L"child"),
                                 resolved),
            kMissing);
  EXPECT_EQ(m_Trace.texts(Trace::Error),
            std::vector<std::string>{"the command [" + m_Sandbox.dir() +
                                     "/\xc2\xa0"
                                     "child] does not exist"});
}

TEST_F(CommandGateTest, BlanksOnlyReachTheEmptyNameAndEndAsTheDirectoryItself) {
  String resolved(L"kept");
  EXPECT_EQ(resolve("    ", resolved), kMissing);
  const std::string d = m_Sandbox.dir();
  EXPECT_EQ(m_Trace.texts(), (std::vector<std::string>{
                                 "input command is [    ]", "input command without parameter is []",
                                 "the absolute path for the command is [" + d + "/]",
                                 "the normalized path for the command is [" + d + "]",
                                 "the custom scanners directory is [" + d + "]",
                                 "the command [" + d + "] is not a file"}));
  EXPECT_EQ(toWideString(resolved), L"kept");
}

TEST_F(CommandGateTest, HostNormalisationFoldsStepsLexically) {
  const struct {
    const char* in;
    const char* out;
  } rows[] = {{"/a/./b//c/", "/a/b/c"}, {"/a/b/../c", "/a/c"}, {"/../../a", "/a"},
              {"/a/..", "/"},           {"a/../../b", "../b"}, {"", "."},
              {"/a/.../b", "/a/.../b"}};
  for (const auto& row : rows) {
    EXPECT_EQ(File::NormalizePath(String(row.in)).toNarrow(), row.out) << row.in;
  }
}

// ------------------------------------------------------------- owners

TEST_F(CommandGateTest, EachOwnerTracesUnderItsOwnLabelAndSource) {
  const struct {
    std::string label;
    std::string source;
  } expected[] = {
      {"RunCommand::getCommand(const String&,String&)",
       "../../../../src/plugins/CustomScanPlugin/operands/RunCommand"},
      {"RunCommandEx::getCommand(const String&,String&)",
       "../../../../src/plugins/CustomScanPlugin/operands/RunCommandEx"},
  };
  CustomScanPlugin::RunCommand scalar;
  CustomScanPlugin::RunCommandEx vector;
  for (int k = 0; k < 2; ++k) {
    cstest::TraceCapture trace(Trace::Scope);
    String resolved;
    TErrorCode code = k == 0 ? scalar.getCommand(String(L"child -v"), resolved)
                             : vector.getCommand(String(L"child -v"), resolved);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/child -v");
    ASSERT_EQ(trace.records().size(), 6u);
    for (const auto& r : trace.records()) {
      EXPECT_EQ(r.label, expected[k].label);
      EXPECT_EQ(r.file, expected[k].source);
    }
    ASSERT_EQ(trace.scopes().size(), 2u);
    EXPECT_EQ(trace.scopes()[0].label, expected[k].label);
    EXPECT_TRUE(trace.scopes()[0].entering);
    EXPECT_FALSE(trace.scopes()[1].entering);
  }
}

TEST_F(CommandGateTest, OwnerKeepsTheDirectoryItWasMadeWith) {
  CustomScanPlugin::RunCommand made;
  cstest::TempDir other;
  cstest::ScannerDirScope changed(other.path());
  String resolved;
  EXPECT_EQ(made.getCommand(String(L"child"), resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/child");
  CustomScanPlugin::RunCommand later;
  EXPECT_EQ(later.getCommand(String(L"child"), resolved), kMissing);
}

// ------------------------------------------------------------- directory as configured

// Left to the implementer: an unset directory would be a prefix of every
// path and confine nothing, so the gate refuses every command then.
TEST_F(CommandGateTest, UnsetDirectoryRefusesEveryCommand) {
  const std::string rows[] = {m_Sandbox.canaryPath(), "/bin/sh -c true", "canary"};
  for (const auto& input : rows) {
    m_Trace.clear();
    String resolved(L"kept");
    EXPECT_EQ(resolve(input, resolved, ""), kOutside) << input;
    EXPECT_EQ(m_Trace.texts(Trace::Error),
              std::vector<std::string>{"the command [" + input +
                                       "] is not located in the custom scanner directory []"});
    EXPECT_EQ(toWideString(resolved), L"kept");
  }
  cstest::ScannerDirScope unset("");
  CustomScanPlugin::RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, String(m_Sandbox.canaryPath().c_str()));
  PluginSDK::String result;
  EXPECT_EQ(op.getScalarResult(result), kOutside);
  EXPECT_FALSE(m_Sandbox.canaryRan());
}

TEST_F(CommandGateTest, DirectoryWithATrailingSeparatorStillConfinesNamedPrograms) {
  const std::string d = m_Sandbox.dir() + "/";
  String resolved;
  ASSERT_EQ(resolve("child -x", resolved, d), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/child -x");
  // The directory itself normalises without its separator and so lies outside.
  EXPECT_EQ(resolve("   ", resolved, d), kOutside);
  EXPECT_EQ(resolve("../canary", resolved, d), kOutside);
}

TEST_F(CommandGateTest, DirectoryNotInNormalFormRefusesEverything) {
  const std::string d = m_Sandbox.root() + "/./scan";
  String resolved;
  EXPECT_EQ(resolve("child", resolved, d), kOutside);
  EXPECT_EQ(resolve("../canary", resolved, d), kOutside);
}

// A directory whose path holds a blank: an unquoted name resolves to a line
// that the host splits inside the directory path, so the program started
// would be the directory path's first word. Quoting the name keeps it whole.
// See docs/confinement.md.
TEST_F(CommandGateTest, PathWithABlankIsQuotedSoTheHostRunsTheProgramInsideTheDirectory) {
  const std::string d = m_Sandbox.root() + "/with blank";
  cstest::installTestChild(d + "/child");
  // A program named like the directory's first word, outside the directory:
  // an unquoted line would start it.
  cstest::writeScript(m_Sandbox.root() + "/with", "touch \"" + m_Sandbox.root() + "/with.ran\"");
  String resolved;
  ASSERT_EQ(resolve("child args", resolved, d), 0);
  EXPECT_EQ(resolved.toNarrow(), "\"" + d + "/child\" args");
  EXPECT_EQ(hostSplitCommandLine(resolved)[0], d + "/child");
  TErrorCode code = -1;
  EXPECT_EQ(run(resolved, &code), "[args]\n");
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(cstest::fileExists(m_Sandbox.root() + "/with.ran"));
  // A quoted name keeps its own rule: the blank after the quote stays.
  ASSERT_EQ(resolve("\"child\" args", resolved, d), 0);
  EXPECT_EQ(resolved.toNarrow(), "\"" + d + "/child\"  args");
}

TEST_F(CommandGateTest, DirectoryWithADoubleQuoteRefusesEveryCommand) {
  // Found by the command_resolution fuzz target: the host would drop the
  // quote and start "<root>/quote/child", a program outside the directory.
  const std::string d = m_Sandbox.root() + "/q\"uote";
  cstest::installTestChild(d + "/child");
  cstest::writeScript(m_Sandbox.root() + "/quote/child",
                      "touch \"" + m_Sandbox.root() + "/quote.ran\"");
  for (const std::string input : {"child", "\"child\" x", "child x"}) {
    m_Trace.clear();
    String resolved(L"kept");
    EXPECT_EQ(resolve(input, resolved, d), kOutside) << input;
    EXPECT_EQ(
        m_Trace.texts(Trace::Error),
        std::vector<std::string>{"the command [" + input +
                                 "] is not located in the custom scanner directory [" + d + "]"});
    EXPECT_EQ(toWideString(resolved), L"kept");
  }
  cstest::ScannerDirScope quoted(d);
  CustomScanPlugin::RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"child");
  PluginSDK::String result;
  EXPECT_EQ(op.getScalarResult(result), kOutside);
  EXPECT_FALSE(cstest::fileExists(m_Sandbox.root() + "/quote.ran"));
}

// ------------------------------------------------------------- confinement

TEST_F(CommandGateTest, CanaryLeavesItsMarkerWhenRun) {
  // The proof below rests on this: the canary, if run, would be seen.
  TErrorCode code = -1;
  run(String(m_Sandbox.canaryPath().c_str()), &code);
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(m_Sandbox.canaryRan());
}

struct EscapeRow {
  const char* what;
  std::string input;
  int code;
};

TEST_F(CommandGateTest, EscapeAttemptsAreRefusedAndNothingRuns) {
  std::string rootBase = m_Sandbox.root().substr(m_Sandbox.root().rfind('/') + 1);
  std::string rootRelative = m_Sandbox.root().substr(1);  // without the leading separator
  const EscapeRow rows[] = {
      {"parent step first", "../canary", kOutside},
      {"parent step first, with parameters", "../canary -x y", kOutside},
      {"current step then parent step", "./../canary", kOutside},
      {"parent step then current step", ".././canary", kOutside},
      {"repeated separators", "..//canary", kOutside},
      {"parent step after a sub-directory", "sub/../../canary", kOutside},
      {"parent steps in the middle", "sub/../sub/../../canary", kOutside},
      {"parent step last", "sub/./../.././canary", kOutside},
      {"back in and out again", "../scan/../canary", kOutside},
      {"through a sibling that does not exist", "../scan2/../canary", kOutside},
      {"climbing above the root", "../../" + rootBase + "/canary", kOutside},
      {"many parent steps up to the file-system root", repeat("../", 40) + rootRelative + "/canary",
       kOutside},
      {"leading separators", "//../canary", kOutside},
      {"quoted", "\"../canary\"", kOutside},
      {"quoted with a parameter directly after", "\"../canary\"-x", kOutside},
      {"quoted after a sub-directory, with a parameter", "\"sub/../../canary\" -x", kOutside},
      {"leading blanks", "   ../canary", kOutside},
      {"the parent directory itself", "..", kOutside},
      {"very long path", "sub/" + repeat("x/", 3000) + repeat("../", 3001) + "../canary", kOutside},
      {"absolute path: becomes a path below the directory", "{R}/canary", kMissing},
      {"absolute path with parent steps", "/../canary", kOutside},
      {"tab glued to a parent step", "..\t/canary", kMissing},
      {"program name in the parameters", "child ../canary", 0},
  };
  ASSERT_GE(sizeof rows / sizeof rows[0], 15u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string input = expand(row.input);
    for (int k = 0; k < 2; ++k) {
      m_Trace.clear();
      TErrorCode code;
      if (k == 0) {
        CustomScanPlugin::RunCommand op;
        op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, String(input.c_str()));
        PluginSDK::String result(L"stale");
        code = op.getScalarResult(result);
        if (row.code != 0) {
          EXPECT_TRUE(result.empty());
        }
      } else {
        CustomScanPlugin::RunCommandEx op;
        op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, String(input.c_str()));
        PluginSDK::StringVector result;
        code = op.getVectorResult(result);
        if (row.code != 0) {
          EXPECT_EQ(result.size(), 0u);
        }
      }
      EXPECT_EQ(code, row.code) << (k == 0 ? "RunCommand" : "RunCommandEx") << " [" << input << "]";
      if (row.code == kOutside) {
        EXPECT_EQ(m_Trace.texts(Trace::Error),
                  std::vector<std::string>{"the command [" + input +
                                           "] is not located in the custom scanner directory [" +
                                           m_Sandbox.dir() + "]"});
      }
      EXPECT_FALSE(m_Sandbox.canaryRan()) << "the canary ran for [" << input << "]";
    }
  }
}

// Kept on purpose: the prefix test demands no separator after the directory,
// so a sibling whose name begins with the directory's name passes the gate.
// See docs/confinement.md.
TEST_F(CommandGateTest, SiblingDirectoryStartingWithTheDirectoryNamePassesTheGate) {
  const std::string sibling = m_Sandbox.root() + "/scan2/prog";
  const std::string marker = m_Sandbox.root() + "/sibling-ran";
  cstest::writeScript(sibling, "touch '" + marker + "'");
  String resolved;
  ASSERT_EQ(resolve("../scan2/prog", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), sibling);

  CustomScanPlugin::RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"../scan2/prog");
  PluginSDK::String result;
  EXPECT_EQ(op.getScalarResult(result), 0);
  EXPECT_TRUE(cstest::fileExists(marker)) << "the sibling's program ran";
  // A sibling whose name does not begin with the directory's name is refused.
  EXPECT_EQ(resolve("../canary", resolved), kOutside);
}

// Kept on purpose: the normalisation is lexical, so a symbolic link inside
// the directory is trusted wherever it points. See docs/confinement.md.
TEST_F(CommandGateTest, SymbolicLinkInsideTheDirectoryIsTrusted) {
  ASSERT_EQ(::symlink(m_Sandbox.canaryPath().c_str(), m_Sandbox.inDir("link").c_str()), 0);
  ASSERT_EQ(::symlink(m_Sandbox.root().c_str(), m_Sandbox.inDir("up").c_str()), 0);
  String resolved;
  ASSERT_EQ(resolve("link", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/link");
  ASSERT_EQ(resolve("up/canary", resolved), 0);
  EXPECT_EQ(resolved.toNarrow(), m_Sandbox.dir() + "/up/canary");

  CustomScanPlugin::RunCommand op;
  op.setProperty(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"link");
  PluginSDK::String result;
  EXPECT_EQ(op.getScalarResult(result), 0);
  EXPECT_TRUE(m_Sandbox.canaryRan()) << "the program outside the directory ran through the link";
}

}  // namespace
