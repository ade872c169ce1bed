#include "common/Command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "CustomScanConstants.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"

extern char** environ;

using CustomScanPlugin::Command;
using CustomScanPlugin::MemoryBuffer;

namespace {

constexpr char kLabel[] = "Command::run(String&, MemoryBuffer&)";
constexpr char kSource[] = "../../../../src/plugins/CustomScanPlugin/common/Command";

class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override { m_Child = m_Sandbox.installChild("child"); }
  void TearDown() override {
    HostFaults::reset();
    m_Hygiene.verify();
  }

  // The child program with the given steps, as a command line.
  std::string child(const std::string& steps) const {
    return steps.empty() ? m_Child : m_Child + " " + steps;
  }

  static std::string text(const MemoryBuffer& b) {
    return b.getData() == nullptr ? std::string()
                                  : std::string(reinterpret_cast<const char*>(b.getData()));
  }
  static bool zeroFrom(const MemoryBuffer& b, std::uint32_t from) {
    for (std::uint32_t k = from; k < b.getSize(); ++k) {
      if (b.getData()[k] != 0) return false;
    }
    return true;
  }
  // The records of one level, as (level, text) pairs of the given level.
  std::vector<std::string> errors() const { return m_Trace.texts(Trace::Error); }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
  cstest::TraceCapture m_Trace;
  std::string m_Child;
};

TEST_F(CommandTest, ChildWithoutOutputLeavesOneKilobyteOfZeros) {
  MemoryBuffer b(0, 1024);
  EXPECT_EQ(Command::run(String(child("").c_str()), b), 0);
  EXPECT_EQ(b.getSize(), 1024u);
  EXPECT_TRUE(zeroFrom(b, 0));
  EXPECT_TRUE(errors().empty());
}

TEST_F(CommandTest, ChildWithoutOutputLeavesTheOperandsBufferAllZero) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("").c_str()), b), 0);
  EXPECT_EQ(b.getSize(), 4096u);
  EXPECT_TRUE(zeroFrom(b, 0));
}

TEST_F(CommandTest, ExactlyOneKilobyteOfOutputGrowsOnceMoreForTheTerminator) {
  MemoryBuffer b(0, 1024);
  EXPECT_EQ(Command::run(String(child("write 1024").c_str()), b), 0);
  EXPECT_EQ(b.getSize(), 2048u);  // 1025 rounded up to the step
  EXPECT_EQ(text(b), std::string(1024, 'x'));
  EXPECT_TRUE(zeroFrom(b, 1024));
}

TEST_F(CommandTest, OneKilobyteOfOutputFitsTheOperandsBuffer) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("write 1024").c_str()), b), 0);
  EXPECT_EQ(b.getSize(), 4096u);
  EXPECT_EQ(text(b), std::string(1024, 'x'));
}

TEST_F(CommandTest, OutputAcrossManyStepsIsKeptWhole) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("write 10000").c_str()), b), 0);
  EXPECT_EQ(b.getSize(), 12288u);
  EXPECT_EQ(text(b), std::string(10000, 'x'));
  EXPECT_TRUE(zeroFrom(b, 10000));
}

TEST_F(CommandTest, RunZeroesTheBufferBeforeUse) {
  MemoryBuffer b(1024, 4096);
  std::memset(b.getData(), '#', b.getSize());
  EXPECT_EQ(Command::run(String(child("print ab").c_str()), b), 0);
  EXPECT_EQ(text(b), "ab");
  EXPECT_TRUE(zeroFrom(b, 2));
}

TEST_F(CommandTest, CarriageReturnsAreDropped) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("print a\\r\\nb").c_str()), b), 0);
  EXPECT_EQ(text(b), "a\nb");
}

TEST_F(CommandTest, ZeroBytesAreDropped) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("print a\\0\\0b\\0").c_str()), b), 0);
  EXPECT_EQ(text(b), "ab");
  EXPECT_TRUE(zeroFrom(b, 2));
}

TEST_F(CommandTest, BytesAboveOneHundredTwentySevenAreKept) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("bytes 256").c_str()), b), 0);
  std::string expected;
  for (int c = 1; c < 256; ++c) {
    if (c != 13) expected.push_back(static_cast<char>(c));
  }
  EXPECT_EQ(text(b), expected);
}

// The size a buffer of the given step ends with after a capture that kept
// `kept` bytes: resize(1024) first, resize(n + 1024) whenever a byte to keep
// finds the buffer full, resize(n + 1) when the terminator does.
std::uint32_t sizeAfterCapture(std::uint32_t kept, std::uint32_t step) {
  auto roundUp = [step](std::uint32_t n) { return n % step == 0 ? n : (n / step + 1) * step; };
  std::uint32_t size = roundUp(1024);
  for (std::uint32_t n = 0; n < kept; ++n) {
    if (n == size) size = roundUp(n + 1024);
  }
  if (kept == size) size = roundUp(kept + 1);
  return size;
}

// Everything but the zero bytes and carriage returns.
std::string keptBytes(const std::string& output) {
  std::string kept;
  for (char c : output) {
    if (c != 0 && c != '\r') kept.push_back(c);
  }
  return kept;
}

std::string everyByteValue(std::size_t length) {
  std::string text;
  for (std::size_t k = 0; k < length; ++k) text.push_back(static_cast<char>(k % 256));
  return text;
}

// Bytes are taken in runs bounded by the room left in the buffer and by the
// stream's blocks; zero bytes and carriage returns fall everywhere in this
// output (every 256 bytes), so some fall on those edges for every step.
TEST_F(CommandTest, DroppedBytesOnRunEdgesLeaveTheSameOutputForEveryStep) {
  const std::string expected = keptBytes(everyByteValue(300000));
  for (std::uint32_t step : {4096u, 1u, 7u, 1024u, 1000u, 65536u}) {
    SCOPED_TRACE("step " + std::to_string(step));
    MemoryBuffer b(1024, step);
    ASSERT_EQ(Command::run(String(child("bytes 300000").c_str()), b), 0);
    EXPECT_EQ(b.getSize(), sizeAfterCapture(static_cast<std::uint32_t>(expected.size()), step));
    ASSERT_GT(b.getSize(), expected.size());
    EXPECT_TRUE(std::string(reinterpret_cast<const char*>(b.getData()), expected.size()) ==
                expected);
    EXPECT_TRUE(zeroFrom(b, static_cast<std::uint32_t>(expected.size())));
  }
}

struct EdgeCase {
  const char* name;
  std::string printed;  // the child's print argument (escapes decoded by the child)
  std::string output;   // the bytes it writes
};

// A full buffer grows only for a byte it keeps: a dropped byte arriving at
// the edge changes nothing. (With a step of 1 the buffer holds exactly 1024
// bytes, and a growth for a dropped byte would leave 2048 instead of 1025.)
TEST_F(CommandTest, DroppedBytesAtTheEdgeOfAFullBufferDoNotGrowIt) {
  for (std::uint32_t step : {4096u, 1u}) {
    const std::size_t full = step == 1 ? 1024 : 4096;
    const std::string almost(full - 1, 'x');
    const std::string whole(full, 'x');
    const std::vector<EdgeCase> cases = {
        {"carriage return as the last byte that fits", almost + "\\r" + "y", almost + "\ry"},
        {"zero byte as the last byte that fits", almost + "\\0" + "y",
         almost + std::string(1, '\0') + "y"},
        {"carriage return and zero after a full buffer", whole + "\\r\\0",
         whole + "\r" + std::string(1, '\0')},
        {"one byte past a full buffer", whole + "y", whole + "y"},
        {"full buffer framed by carriage returns", "\\r" + almost + "\\r", "\r" + almost + "\r"},
        {"byte 255 as the last byte that fits", almost + "\\xff", almost + "\xff"},
    };
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + ", step " + std::to_string(step));
      MemoryBuffer b(1024, step);
      ASSERT_EQ(Command::run(String(child("print " + c.printed).c_str()), b), 0);
      const std::string kept = keptBytes(c.output);
      EXPECT_EQ(b.getSize(), sizeAfterCapture(static_cast<std::uint32_t>(kept.size()), step));
      EXPECT_EQ(text(b), kept);
      EXPECT_TRUE(zeroFrom(b, static_cast<std::uint32_t>(kept.size())));
    }
  }
}

TEST_F(CommandTest, OutputThenNonZeroExitFailsAndKeepsTheOutput) {
  MemoryBuffer b(1024, 4096);
  std::string line = child("print partial exit 3");
  EXPECT_EQ(Command::run(String(line.c_str()), b), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(text(b), "partial");
  EXPECT_EQ(errors(), std::vector<std::string>{"Command " + line + " terminated with error 3"});
}

TEST_F(CommandTest, DeathBySignalReportsOneHundredTwentyEightPlusTheSignal) {
  const struct {
    int signal;
    int status;
  } rows[] = {{9, 137}, {15, 143}, {2, 130}};
  for (const auto& row : rows) {
    m_Trace.clear();
    MemoryBuffer b(1024, 4096);
    std::string line = child("print before signal " + std::to_string(row.signal));
    EXPECT_EQ(Command::run(String(line.c_str()), b), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED)
        << row.signal;
    EXPECT_EQ(text(b), "before");
    EXPECT_EQ(errors(), std::vector<std::string>{"Command " + line + " terminated with error " +
                                                 std::to_string(row.status)});
  }
}

TEST_F(CommandTest, ChildReadingStandardInputGetsEndOfFileAtOnce) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("stdin").c_str()), b), 0);
  EXPECT_EQ(text(b), "stdin:0\n");
}

// The step only sets how often the storage moves; with the operands' 4096 an
// allocator whose realloc always copies (as under the address sanitizer) makes
// 50 MB quadratic, so this capture uses a step of 1 MiB. The operand tests
// capture several megabytes through the 4096 step.
TEST_F(CommandTest, FiftyMegabytesOfOutputAreCapturedWhole) {
  const std::uint32_t total = 50u * 1024 * 1024;
  const std::uint32_t step = 1024 * 1024;
  MemoryBuffer b(1024, step);
  EXPECT_EQ(Command::run(String(child("write " + std::to_string(total)).c_str()), b), 0);
  ASSERT_GT(b.getSize(), total);
  EXPECT_EQ(b.getSize(), total + step);  // full at 50 MiB: one more step for the terminator
  EXPECT_EQ(std::strlen(reinterpret_cast<const char*>(b.getData())), total);
  std::uint32_t wrong = 0;
  for (std::uint32_t k = 0; k < total; ++k) wrong += b.getData()[k] != 'x';
  EXPECT_EQ(wrong, 0u);
  EXPECT_TRUE(zeroFrom(b, total));
}

TEST_F(CommandTest, EnvironmentIsPassedThroughExactly) {
  // A value that is not valid UTF-8 must survive the trip through wide text.
  ASSERT_EQ(::setenv("CS_ENV_PROBE", "caf\xc3\xa9 \xff\xfe=x", 1), 0);
  std::string expected;
  for (char** e = environ; *e != nullptr; ++e) {
    for (const char* p = *e; *p != 0; ++p) {
      if (*p != '\r') expected.push_back(*p);
    }
    expected.push_back('\n');
  }
  MemoryBuffer b(1024, 4096);
  TErrorCode code = Command::run(String(child("env").c_str()), b);
  ::unsetenv("CS_ENV_PROBE");
  EXPECT_EQ(code, 0);
  EXPECT_EQ(text(b), expected);
  EXPECT_NE(text(b).find("CS_ENV_PROBE=caf\xc3\xa9 \xff\xfe=x\n"), std::string::npos);
}

TEST_F(CommandTest, EnvironmentChangesBetweenRunsReachTheNextChild) {
  // The environment array is kept between runs; every change still counts.
  MemoryBuffer b(1024, 4096);
  ASSERT_EQ(Command::run(String(child("env").c_str()), b), 0);
  EXPECT_EQ(text(b).find("CS_ENV_NEXT="), std::string::npos);

  ASSERT_EQ(::setenv("CS_ENV_NEXT", "1", 1), 0);
  ASSERT_EQ(Command::run(String(child("env").c_str()), b), 0);
  EXPECT_NE(text(b).find("\nCS_ENV_NEXT=1\n"), std::string::npos);

  // A buffer given to putenv, changed in place.
  static char entry[] = "CS_ENV_NEXT=one";
  ASSERT_EQ(::putenv(entry), 0);
  ASSERT_EQ(Command::run(String(child("env").c_str()), b), 0);
  EXPECT_NE(text(b).find("\nCS_ENV_NEXT=one\n"), std::string::npos);
  // Overwrites the value's three letters; the terminator stays.
  std::copy_n("two", 3, entry + std::strlen("CS_ENV_NEXT="));
  ASSERT_EQ(Command::run(String(child("env").c_str()), b), 0);
  EXPECT_NE(text(b).find("\nCS_ENV_NEXT=two\n"), std::string::npos);
  EXPECT_EQ(text(b).find("CS_ENV_NEXT=one"), std::string::npos);

  ASSERT_EQ(::unsetenv("CS_ENV_NEXT"), 0);
  ASSERT_EQ(Command::run(String(child("env").c_str()), b), 0);
  EXPECT_EQ(text(b).find("CS_ENV_NEXT="), std::string::npos);
}

TEST_F(CommandTest, ArgumentsAreSplitByTheHostAtBlanksOutsideQuotes) {
  std::string spaced = m_Sandbox.installChild("my scan");
  MemoryBuffer b(1024, 4096);
  std::string line = "\"" + spaced + "\"  args \"a  b\" c";
  EXPECT_EQ(Command::run(String(line.c_str()), b), 0);
  EXPECT_EQ(text(b), "[args]\n[a  b]\n[c]\n");
}

TEST_F(CommandTest, TraceRecordsTheEnvironmentAndTheStart) {
  std::string line = child("");
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(line.c_str()), b), 0);
  std::vector<std::string> expected;
  expected.push_back("\nPreparing process environment for command " + line + "\n");
  for (char** e = environ; *e != nullptr; ++e) expected.push_back("\t" + std::string(*e) + "\n");
  expected.push_back("");
  expected.push_back("Starting command " + line);
  EXPECT_EQ(m_Trace.texts(Trace::Detail), expected);
  EXPECT_EQ(m_Trace.texts(), expected);  // nothing at any other level
  for (const auto& r : m_Trace.records()) {
    EXPECT_EQ(r.label, kLabel);
    EXPECT_EQ(r.file, kSource);
    EXPECT_EQ(r.component, 5);
  }
}

TEST_F(CommandTest, RunOpensItsTraceScope) {
  cstest::TraceCapture scopes(Trace::Scope);
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("").c_str()), b), 0);
  ASSERT_FALSE(scopes.scopes().empty());
  EXPECT_EQ(scopes.scopes().front().label, kLabel);
  EXPECT_TRUE(scopes.scopes().front().entering);
  EXPECT_EQ(scopes.scopes().back().label, kLabel);
  EXPECT_FALSE(scopes.scopes().back().entering);
}

TEST_F(CommandTest, ProcessCreationFailureIsReportedWithItsCode) {
  HostFaults::instance().failProcessCreationAt = 1;
  std::string line = child("touch " + m_Sandbox.markerPath());
  MemoryBuffer b(1024, 4096);
  std::memset(b.getData(), '#', b.getSize());
  EXPECT_EQ(Command::run(String(line.c_str()), b),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
  EXPECT_EQ(errors(), std::vector<std::string>{"Unable to create the process for command " + line});
  EXPECT_TRUE(zeroFrom(b, 0));
  EXPECT_FALSE(cstest::fileExists(m_Sandbox.markerPath()));
}

TEST_F(CommandTest, ProgramThatCannotBeStartedIsAProcessCreationFailure) {
  const std::string rows[] = {m_Sandbox.inDir("missing"), "", m_Sandbox.dir()};
  for (const auto& line : rows) {
    m_Trace.clear();
    MemoryBuffer b(1024, 4096);
    EXPECT_EQ(Command::run(String(line.c_str()), b),
              CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS)
        << line;
    EXPECT_EQ(errors(),
              std::vector<std::string>{"Unable to create the process for command " + line});
  }
}

TEST_F(CommandTest, MissingOutputStreamIsReportedAndTheChildStillWaitedFor) {
  HostFaults::instance().noOutputStream = true;
  std::string line = child("touch " + m_Sandbox.root() + "/waited");
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(line.c_str()), b),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_EQ(errors(),
            std::vector<std::string>{"Unable to get the child output stream for command " + line});
  EXPECT_TRUE(
      cstest::fileExists(m_Sandbox.root() + "/waited"));  // it ran to its end before run returned
  EXPECT_TRUE(zeroFrom(b, 0));
}

TEST_F(CommandTest, MissingOutputStreamThenFailingExitReportsTheExitStatus) {
  HostFaults::instance().noOutputStream = true;
  std::string line = child("exit 4");
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(line.c_str()), b), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(errors(),
            (std::vector<std::string>{"Unable to get the child output stream for command " + line,
                                      "Command " + line + " terminated with error 4"}));
}

// Output that cannot be stored whole is not
// silently cut; the child is still read to its end so that it never blocks.
TEST_F(CommandTest, OutputThatCannotBeStoredIsAnOutputFailureAndTheChildIsDrained) {
  MemoryBuffer b(1024, 4096);
  // The first host allocation in run sizes the buffer; the second grows it.
  HostFaults::instance().failAllocationAt = 2;
  std::string line = child("write 100000");
  EXPECT_EQ(Command::run(String(line.c_str()), b),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_EQ(errors(),
            std::vector<std::string>{"Unable to store the child output for command " + line});
}

TEST_F(CommandTest, OutputThatCannotBeStoredFromTheStartIsAnOutputFailure) {
  MemoryBuffer b(0, 4096);
  HostFaults::instance().failAllocationAt = 1;
  std::string line = child("print abc");
  EXPECT_EQ(Command::run(String(line.c_str()), b),
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT);
  EXPECT_EQ(b.getData(), nullptr);
}

// There is no time limit: run returns only when the child has closed its
// output and ended. This child ends by itself after a short sleep.
TEST_F(CommandTest, RunWaitsForAChildThatKeepsItsOutputOpen) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(Command::run(String(child("print before sleep 300 print after").c_str()), b), 0);
  EXPECT_EQ(text(b), "beforeafter");
}

TEST_F(CommandTest, ChildThatClosesItsOutputEarlyIsStillWaitedFor) {
  MemoryBuffer b(1024, 4096);
  std::string line = child("print x closeout sleep 200 exit 5");
  EXPECT_EQ(Command::run(String(line.c_str()), b), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(text(b), "x");
}

TEST_F(CommandTest, ManyRunsLeaveNoChildAndNoDescriptorBehind) {
  for (int k = 0; k < 50; ++k) {
    MemoryBuffer b(1024, 4096);
    EXPECT_EQ(Command::run(String(child("print " + std::to_string(k)).c_str()), b), 0);
    EXPECT_EQ(text(b), std::to_string(k));
  }
}

}  // namespace
