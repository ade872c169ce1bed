// The host process's own conditions while a child runs: signals arriving all
// the time, almost no free descriptors, SIGCHLD ignored. Each yields the
// child's output or a failure code; never a crash, a leak or a false success.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
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

volatile sig_atomic_t g_Interrupts = 0;
void countInterrupt(int) { g_Interrupts = g_Interrupts + 1; }

class HostConditionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Child = m_Dir.file("child");
    cstest::installTestChild(m_Child);
  }
  void TearDown() override { m_Hygiene.verify(); }

  TErrorCode run(const std::string& steps, std::string& output) {
    MemoryBuffer buffer(1024, 4096);
    TErrorCode code = Command::run(String((m_Child + " " + steps).c_str()), buffer);
    const char* bytes = reinterpret_cast<const char*>(buffer.getData());
    output.assign(bytes, std::find(bytes, bytes + buffer.getSize(), '\0'));
    return code;
  }

  cstest::TempDir m_Dir;
  std::string m_Child;
  cstest::ProcessHygiene m_Hygiene;
};

// A timer that sends SIGALRM to this thread every millisecond, through a
// handler installed without SA_RESTART, so that every blocking read and wait
// of the runner is interrupted again and again.
class MillisecondInterrupts {
 public:
  MillisecondInterrupts() {
    struct sigaction action {};
    action.sa_handler = countInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    ::sigaction(SIGALRM, &action, &m_Old);
    struct sigevent event {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGALRM;
    event._sigev_un._tid = static_cast<pid_t>(::syscall(SYS_gettid));
    m_Armed = ::timer_create(CLOCK_MONOTONIC, &event, &m_Timer) == 0;
    struct itimerspec every {};
    every.it_interval.tv_nsec = 1000000;
    every.it_value.tv_nsec = 1000000;
    if (m_Armed) m_Armed = ::timer_settime(m_Timer, 0, &every, nullptr) == 0;
  }
  ~MillisecondInterrupts() {
    if (m_Armed) ::timer_delete(m_Timer);
    ::sigaction(SIGALRM, &m_Old, nullptr);
  }
  bool armed() const { return m_Armed; }

 private:
  timer_t m_Timer{};
  bool m_Armed = false;
  struct sigaction m_Old {};
};

TEST_F(HostConditionTest, SignalEveryMillisecondInterruptsNothingThatMatters) {
  std::string steps;
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    steps += "print line" + std::to_string(i) + "\\n sleep 10 ";
    expected += "line" + std::to_string(i) + "\n";
  }
  steps += "write 300000";
  expected += std::string(300000, 'x');
  g_Interrupts = 0;
  std::string output;
  TErrorCode code;
  {
    MillisecondInterrupts interrupts;
    ASSERT_TRUE(interrupts.armed());
    code = run(steps, output);
  }
  EXPECT_EQ(code, 0);
  EXPECT_EQ(output, expected);
  // The interrupts did happen while the runner was blocked.
  EXPECT_GT(g_Interrupts, 10);
}

TEST_F(HostConditionTest, SignalEveryMillisecondDuringAFailingChildStillReportsItsStatus) {
  MillisecondInterrupts interrupts;
  ASSERT_TRUE(interrupts.armed());
  std::string output;
  EXPECT_EQ(run("sleep 100 exit 3", output), CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
}

TEST_F(HostConditionTest, DescriptorLimitNearlyReachedGivesACodeOrTheOutput) {
  struct rlimit old {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  std::vector<int> open = cstest::openDescriptors();
  const int highest = *std::max_element(open.begin(), open.end());
  // Descriptors are numbered from the lowest free one: with every hole below
  // the highest open descriptor filled, a limit of highest + 1 + spare leaves
  // exactly `spare` of them free.
  std::vector<int> fillers;
  for (;;) {
    int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    if (fd > highest) {
      ::close(fd);
      break;
    }
    fillers.push_back(fd);
  }
  open = cstest::openDescriptors();
  // One run with descriptors to spare first: it proves the setup, and it lets
  // the sanitizers' runtime check each dynamic type once while it still can
  // (its check needs a descriptor of its own).
  std::string warm;
  ASSERT_EQ(run("print ok", warm), 0);
  for (int spare = 0; spare <= 8; ++spare) {
    struct rlimit tight = old;
    tight.rlim_cur = static_cast<rlim_t>(highest + 1 + spare);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::string output;
    TErrorCode code = run("print ok", output);
    ::setrlimit(RLIMIT_NOFILE, &old);
    if (code == 0) {
      EXPECT_EQ(output, "ok") << "spare " << spare;
    } else {
      EXPECT_EQ(code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS) << "spare " << spare;
    }
    // With no free descriptor at all no pipe can be made.
    if (spare == 0) {
      EXPECT_EQ(code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS);
    }
    if (spare == 8) {
      EXPECT_EQ(code, 0);
    }
    EXPECT_EQ(cstest::openDescriptors(), open) << "spare " << spare;
  }
  for (int fd : fillers) ::close(fd);
}

TEST_F(HostConditionTest, IgnoredSigchldMakesTheStatusUnknownAndTheRunFail) {
  // With SIGCHLD ignored the kernel reaps children itself, so no exit status
  // can be had; a run whose success cannot be proven must not report one.
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction old {};
  ASSERT_EQ(::sigaction(SIGCHLD, &ignore, &old), 0);
  cstest::TraceCapture trace(Trace::Error);
  std::string output;
  TErrorCode good = run("print fine exit 0", output);
  std::string goodOutput = output;
  TErrorCode bad = run("exit 3", output);
  ::sigaction(SIGCHLD, &old, nullptr);

  EXPECT_EQ(good, CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  EXPECT_EQ(goodOutput, "fine");
  EXPECT_EQ(bad, CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED);
  std::vector<std::string> errors = trace.texts(Trace::Error);
  ASSERT_FALSE(errors.empty());
  EXPECT_NE(errors.front().find(" terminated with error -1"), std::string::npos) << errors.front();
}

}  // namespace
