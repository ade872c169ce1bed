// Children that misbehave, run through the process runner: the caller gets
// the child's output or a code, never a crash or a hang of its own making,
// and afterwards holds no zombie and no extra descriptor.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "ProcessHygiene.h"
#include "TestSupport.h"
#include "common/Command.h"
#include "common/MemoryBuffer.h"

using CustomScanPlugin::Command;
using CustomScanPlugin::MemoryBuffer;

namespace {

struct RunOutcome {
  TErrorCode code = 0;
  std::string output;  // the bytes before the terminating zero
  std::uint32_t bufferSize = 0;
  std::vector<std::string> errors;
};

class HostileChildTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Child = m_Dir.file("child");
    cstest::installTestChild(m_Child);
    // Children that die from SIGSEGV or SIGABRT leave no core file behind.
    struct rlimit none {
      0, 0
    };
    ::getrlimit(RLIMIT_CORE, &m_CoreLimit);
    ::setrlimit(RLIMIT_CORE, &none);
  }
  void TearDown() override {
    ::setrlimit(RLIMIT_CORE, &m_CoreLimit);
    m_Hygiene.verify();
  }

  RunOutcome run(const std::string& line) {
    cstest::TraceCapture trace(Trace::Error);
    MemoryBuffer buffer(1024, 4096);
    RunOutcome outcome;
    outcome.code = Command::run(String(line.c_str()), buffer);
    outcome.bufferSize = buffer.getSize();
    if (buffer.getData() != nullptr) {
      const char* bytes = reinterpret_cast<const char*>(buffer.getData());
      outcome.output.assign(bytes, std::find(bytes, bytes + buffer.getSize(), '\0'));
    }
    outcome.errors = trace.texts(Trace::Error);
    return outcome;
  }
  RunOutcome runChild(const std::string& steps) { return run(m_Child + " " + steps); }

  cstest::TempDir m_Dir;
  std::string m_Child;
  struct rlimit m_CoreLimit {};
  cstest::ProcessHygiene m_Hygiene;
};

std::string lastError(const RunOutcome& outcome) {
  return outcome.errors.empty() ? std::string() : outcome.errors.back();
}

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(HostileChildTest, ChildKilledBySignalFailsWithStatusOf128PlusSignal) {
  struct Case {
    int signal;
    const char* status;
  } cases[] = {{SIGKILL, "137"}, {SIGSEGV, "139"}, {SIGABRT, "134"}, {SIGTERM, "143"}};
  for (const Case& c : cases) {
    RunOutcome outcome = runChild("print partial signal " + std::to_string(c.signal));
    EXPECT_EQ(outcome.code, CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED) << "signal " << c.signal;
    EXPECT_TRUE(endsWith(lastError(outcome), std::string(" terminated with error ") + c.status))
        << "signal " << c.signal << ": " << lastError(outcome);
    // What was written before the signal stays in the buffer.
    EXPECT_EQ(outcome.output, "partial") << "signal " << c.signal;
  }
}

TEST_F(HostileChildTest, ChildExitingWith126Or127ItselfFailsWithThatStatus) {
  for (const char* status : {"126", "127", "255", "1"}) {
    RunOutcome outcome = runChild(std::string("print x exit ") + status);
    EXPECT_EQ(outcome.code, CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED) << status;
    EXPECT_TRUE(endsWith(lastError(outcome), std::string(" terminated with error ") + status))
        << lastError(outcome);
  }
}

TEST_F(HostileChildTest, ChildThatClosesOutputAndKeepsRunningIsWaitedFor) {
  RunOutcome outcome = runChild("print before closeout sleep 300 touch " + m_Dir.file("finished"));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "before");
  // The runner returned only after the child had ended.
  EXPECT_TRUE(cstest::fileExists(m_Dir.file("finished")));
}

TEST_F(HostileChildTest, GrandchildHoldingThePipeIsReadToTheEnd) {
  // The output ends only when the last holder of the pipe closes it: the
  // design reads to the end of the stream, without a time limit.
  cstest::writeScript(m_Dir.file("parent.sh"),
                      "(sleep 1; echo late from grandchild) &\n"
                      "echo early from child\n");
  RunOutcome outcome = run(m_Dir.file("parent.sh"));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "early from child\nlate from grandchild\n");
}

TEST_F(HostileChildTest, TrickledOutputArrivesWhole) {
  std::string steps;
  std::string expected;
  for (int i = 0; i < 25; ++i) {
    steps += "print " + std::to_string(i) + "\\n sleep 20 ";
    expected += std::to_string(i) + "\n";
  }
  RunOutcome outcome = runChild(steps);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, expected);
}

TEST_F(HostileChildTest, LargeOutputIsStoredWholeAndTerminated) {
  // 8 MiB by default; CUSTOMSCAN_TEST_LARGE_OUTPUT_MB=1024 makes it the
  // 1 GiB run measured in docs/reliability.md.
  long megabytes = 8;
  if (const char* env = std::getenv("CUSTOMSCAN_TEST_LARGE_OUTPUT_MB")) megabytes = std::atol(env);
  const unsigned long bytes = static_cast<unsigned long>(megabytes) << 20;
  MemoryBuffer buffer(1024, 4096);
  TErrorCode code =
      Command::run(String((m_Child + " write " + std::to_string(bytes)).c_str()), buffer);
  ASSERT_EQ(code, 0);
  ASSERT_GT(buffer.getSize(), bytes);
  EXPECT_EQ(buffer.getSize() % 4096, 0u);
  const std::uint8_t* data = buffer.getData();
  EXPECT_EQ(std::count(data, data + bytes, 'x'), static_cast<long>(bytes));
  EXPECT_EQ(std::count(data + bytes, data + buffer.getSize(), 0),
            static_cast<long>(buffer.getSize() - bytes));
}

TEST_F(HostileChildTest, ZeroBytesAndCarriageReturnsAreDroppedAndHighBytesKept) {
  RunOutcome outcome = runChild("bytes 512");
  EXPECT_EQ(outcome.code, 0);
  std::string expected;
  for (int k = 0; k < 512; ++k) {
    int b = k % 256;
    if (b != 0 && b != 13) expected.push_back(static_cast<char>(b));
  }
  EXPECT_EQ(outcome.output, expected);
}

TEST_F(HostileChildTest, OnlyZeroBytesGiveAnEmptyTerminatedBuffer) {
  RunOutcome outcome = runChild("print \\0\\0\\0\\r\\0");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.bufferSize, 4096u);
}

TEST_F(HostileChildTest, ChildReadingStandardInputSeesItsEndAtOnce) {
  RunOutcome outcome = runChild("stdin");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "stdin:0\n");
}

// The host process's own state must not reach the child: it ignores SIGPIPE,
// blocks a signal, and holds a descriptor without close-on-exec.
TEST_F(HostileChildTest, ChildGetsOnlyStandardDescriptorsEmptyMaskAndDefaultSignals) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction oldPipe {};
  ASSERT_EQ(::sigaction(SIGPIPE, &ignore, &oldPipe), 0);
  sigset_t block;
  sigemptyset(&block);
  sigaddset(&block, SIGUSR1);
  sigset_t oldMask;
  ASSERT_EQ(::sigprocmask(SIG_BLOCK, &block, &oldMask), 0);
  int inheritable = ::open("/dev/null", O_RDONLY);  // no O_CLOEXEC on purpose
  ASSERT_GE(inheritable, 0);
  int high = ::fcntl(inheritable, F_DUPFD, 200);
  ASSERT_GE(high, 0);

  RunOutcome outcome = runChild("fds sigmask");

  ::close(high);
  ::close(inheritable);
  ::sigprocmask(SIG_SETMASK, &oldMask, nullptr);
  ::sigaction(SIGPIPE, &oldPipe, nullptr);

  ASSERT_EQ(outcome.code, 0);
  std::vector<std::string> fds;
  std::string blocked;
  std::string ignored;
  std::istringstream lines(outcome.output);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("fd:", 0) == 0) fds.push_back(line);
    if (line.rfind("SigBlk:", 0) == 0) blocked = line.substr(7);
    if (line.rfind("SigIgn:", 0) == 0) ignored = line.substr(7);
  }
  std::sort(fds.begin(), fds.end());
  EXPECT_EQ(fds, (std::vector<std::string>{"fd:0", "fd:1", "fd:2"})) << outcome.output;
  EXPECT_EQ(blocked, "\t0000000000000000") << outcome.output;
  // Bit n-1 stands for signal n. glibc's posix_spawn leaves its two internal
  // signals (32 and 33) ignored in the child and cannot be told otherwise;
  // every other signal, SIGPIPE first of all, is at its default action.
  ASSERT_FALSE(ignored.empty()) << outcome.output;
  const unsigned long long ignoredSet = std::stoull(ignored.substr(1), nullptr, 16);
  const unsigned long long glibcInternal = (1ULL << 31) | (1ULL << 32);
  EXPECT_EQ(ignoredSet & ~glibcInternal, 0ULL) << outcome.output;
  EXPECT_EQ(ignoredSet & (1ULL << (SIGPIPE - 1)), 0ULL) << outcome.output;
}

TEST_F(HostileChildTest, ProgramThatIsNotExecutableCannotBeStarted) {
  cstest::writeFile(m_Dir.file("plain.txt"), "echo never\n", 0644);
  RunOutcome outcome = run(m_Dir.file("plain.txt"));
  EXPECT_EQ(outcome.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
}

TEST_F(HostileChildTest, ScriptWithMissingInterpreterCannotBeStarted) {
  cstest::writeFile(m_Dir.file("orphan.sh"), "#!/no/such/interpreter\necho never\n", 0755);
  RunOutcome outcome = run(m_Dir.file("orphan.sh"));
  EXPECT_EQ(outcome.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
}

}  // namespace
