#include "base/ProcessDiagnostics.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "base/HostFaults.h"
#include "base/Runtime.h"
#include "config/HostSettings.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Reads a process's stream to its end.
std::string readAll(Process& process) {
  ProcessInputStream* stream = process.getInputStream();
  std::string out;
  if (stream == nullptr) return out;
  for (int c = stream->read(); c >= 0; c = stream->read()) out.push_back(static_cast<char>(c));
  return out;
}

// Reads one line (without its line feed) from a process's stream.
std::string readLine(Process& process) {
  std::string out;
  for (int c = process.getInputStream()->read(); c >= 0 && c != '\n';
       c = process.getInputStream()->read()) {
    out.push_back(static_cast<char>(c));
  }
  return out;
}

// Whether the process has ended (gone, or a zombie waiting for its parent).
bool processEnded(int pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  if (!stat) return true;
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  std::size_t close = text.rfind(')');
  return close != std::string::npos && close + 2 < text.size() && text[close + 2] == 'Z';
}

// Waits up to ten seconds for the process to end.
bool processEndsSoon(int pid) {
  for (int i = 0; i < 1000; ++i) {
    if (processEnded(pid)) return true;
    ::usleep(10000);
  }
  return false;
}

class ProcessDiagnosticsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    child = dir.file("cs_testchild");
    cstest::installTestChild(child);
    ProcessDiagnostics::clear();
  }
  void TearDown() override {
    HostFaults::reset();
    HostSettings::setProcessTimeout(0);
    HostSettings::setCaptureStandardError(false);
    HostSettings::setKeepStandardOutput(0);
    HostSettings::setRequireSafeScanners(false);
    ProcessDiagnostics::clear();
    EXPECT_FALSE(cstest::hasZombieChildren());
  }

  static Process* exec(const std::string& commandLine) {
    return Runtime::getRuntime()->exec(String(commandLine.c_str()), nullptr, 0);
  }

  // Starts the command line, which must fail; returns the reason.
  static std::string failureOf(const std::string& commandLine) {
    std::unique_ptr<Process> process(exec(commandLine));
    EXPECT_EQ(process, nullptr) << commandLine;
    return ProcessDiagnostics::lastCreationFailure();
  }

  struct Run {
    std::string output;
    int status = -2;
    std::shared_ptr<const ProcessReport> report;
  };
  Run run(const std::string& steps) {
    Run result;
    std::unique_ptr<Process> process(exec(child + " " + steps));
    if (!process) {
      ADD_FAILURE() << "not started: " << steps;
      return result;
    }
    result.output = readAll(*process);
    result.status = process->waitFor();
    result.report = ProcessDiagnostics::last();
    return result;
  }

  std::string script(const std::string& name, const std::string& content, unsigned mode = 0755) {
    std::string path = dir.file(name);
    cstest::writeFile(path, content, mode);
    return path;
  }

  cstest::TempDir dir;
  std::string child;
};

// ---------------------------------------------------------------- creation

TEST_F(ProcessDiagnosticsTest, MissingProgramSaysNoSuchFile) {
  std::string missing = dir.file("missing.sh");
  EXPECT_EQ(failureOf(missing), "no such file: " + missing);
  auto report = ProcessDiagnostics::last();
  ASSERT_NE(report, nullptr);
  EXPECT_FALSE(report->created);
  EXPECT_EQ(report->creationError, ENOENT);
  EXPECT_EQ(report->program, missing);
  EXPECT_EQ(report->commandLine, missing);
}

TEST_F(ProcessDiagnosticsTest, MissingProgramBelowAFileSaysAPartIsNotADirectory) {
  std::string file = script("plain", "x");
  EXPECT_EQ(failureOf(file + "/scan.sh"),
            "no such file: a part of the path of " + file + "/scan.sh is not a directory");
}

TEST_F(ProcessDiagnosticsTest, DanglingSymbolicLinkSaysWhereItLeads) {
  std::string link = dir.file("link.sh");
  ASSERT_EQ(::symlink("/no/such/target.sh", link.c_str()), 0);
  EXPECT_EQ(failureOf(link), "no such file: " + link +
                                 " is a symbolic link to /no/such/target.sh, which does not exist");
}

TEST_F(ProcessDiagnosticsTest, ScriptWithoutExecutePermissionSaysHowToFixIt) {
  std::string path = script("noexec.sh", "#!/bin/sh\necho hi\n", 0644);
  EXPECT_EQ(failureOf(path),
            "permission denied: " + path + " is not executable (chmod +x " + path + ")");
  EXPECT_EQ(ProcessDiagnostics::last()->creationError, EACCES);
}

TEST_F(ProcessDiagnosticsTest, ScriptWithoutHashBangLineSaysSo) {
  std::string path = script("nohashbang.sh", "echo hi\n");
  EXPECT_EQ(failureOf(path), "exec format error: " + path +
                                 " has no #! line (a script must begin with one, e.g. #!/bin/sh)");
  EXPECT_EQ(ProcessDiagnostics::last()->creationError, ENOEXEC);
}

TEST_F(ProcessDiagnosticsTest, HashBangLineEndingInCarriageReturnNamesTheCarriageReturn) {
  std::string path = script("crlf.sh", "#!/bin/sh\r\necho hi\r\n");
  std::string reason = failureOf(path);
  EXPECT_EQ(reason.rfind(
                "bad interpreter \"/bin/sh\\r\" in the #! line of " + path + ": no such file", 0),
            0u)
      << reason;
  EXPECT_TRUE(contains(reason, "CRLF line ends")) << reason;
  EXPECT_TRUE(contains(reason, "sed -i 's/\\r$//' " + path)) << reason;
  EXPECT_EQ(ProcessDiagnostics::last()->creationError, ENOENT);
}

TEST_F(ProcessDiagnosticsTest, HashBangLineNamingAMissingInterpreterNamesIt) {
  std::string path = script("python.sh", "#!/no/such/pyhton3 -u\nprint(1)\n");
  EXPECT_EQ(failureOf(path),
            "bad interpreter \"/no/such/pyhton3\" in the #! line of " + path + ": no such file");
}

TEST_F(ProcessDiagnosticsTest, InterpreterThatCannotBeExecutedIsNamed) {
  std::string interpreter = script("interp", "not a program", 0644);
  std::string path = script("uses.sh", "#!" + interpreter + "\n");
  EXPECT_EQ(failureOf(path), "permission denied: the interpreter " + interpreter +
                                 " in the #! line of " + path + " cannot be executed");
}

TEST_F(ProcessDiagnosticsTest, EmptyFileSaysItIsEmpty) {
  std::string path = script("empty.sh", "");
  EXPECT_EQ(failureOf(path), "exec format error: " + path +
                                 " is empty (a script must begin with a #! line, e.g. #!/bin/sh)");
}

TEST_F(ProcessDiagnosticsTest, ByteOrderMarkBeforeHashBangIsNamed) {
  std::string path = script("bom.sh", "\xef\xbb\xbf#!/bin/sh\necho hi\n");
  EXPECT_EQ(failureOf(path), "exec format error: " + path +
                                 " begins with a byte order mark before its #! line (save it as "
                                 "UTF-8 without one)");
}

TEST_F(ProcessDiagnosticsTest, HashBangLineWithoutInterpreterSaysSo) {
  std::string path = script("bare.sh", "#!   \necho hi\n");
  EXPECT_EQ(failureOf(path), "exec format error: the #! line of " + path + " names no interpreter");
}

TEST_F(ProcessDiagnosticsTest, DirectorySaysItIsADirectory) {
  EXPECT_EQ(failureOf(dir.path()), "permission denied: " + dir.path() + " is a directory");
}

TEST_F(ProcessDiagnosticsTest, EmptyCommandLineSaysItNamesNoProgram) {
  for (const char* line : {"", "   ", "\"\""}) {
    EXPECT_EQ(failureOf(line), "the command line names no program") << "[" << line << "]";
    EXPECT_EQ(ProcessDiagnostics::last()->creationError, 0);
  }
}

TEST_F(ProcessDiagnosticsTest, InjectedFailureSaysSo) {
  HostFaults::instance().failProcessCreationAt = 1;
  EXPECT_EQ(failureOf(child), "the host's fault injection failed this creation");
}

TEST_F(ProcessDiagnosticsTest, ControlBytesInAPathAreShownEscaped) {
  std::string missing = dir.file("a\tb\x01");
  EXPECT_EQ(failureOf("\"" + missing + "\""), "no such file: " + dir.path() + "/a\\tb\\x01");
}

TEST_F(ProcessDiagnosticsTest, OtherErrorsGiveTheSystemText) {
  EXPECT_EQ(ProcessDiagnostics::explainCreationFailure("/x/scan", E2BIG),
            "argument list too long: /x/scan");
  EXPECT_EQ(ProcessDiagnostics::explainCreationFailure("/x/scan", ETXTBSY),
            "text file busy: /x/scan is open for writing");
  EXPECT_EQ(ProcessDiagnostics::explainCreationFailure("/x/scan", ENOMEM),
            "cannot allocate memory: /x/scan");
}

TEST_F(ProcessDiagnosticsTest, FailureIsTracedUnderTheRunnersOwnComponent) {
  cstest::TraceCapture trace(Trace::Error);
  std::string missing = dir.file("missing");
  failureOf(missing);
  EXPECT_TRUE(trace.texts().empty());
  EXPECT_EQ(trace.runnerTexts(Trace::Error),
            std::vector<std::string>{"Unable to start " + missing + ": no such file: " + missing});
}

TEST_F(ProcessDiagnosticsTest, SuccessfulCreationLeavesNoFailure) {
  failureOf(dir.file("missing"));
  ASSERT_FALSE(ProcessDiagnostics::lastCreationFailure().empty());
  Run result = run("exit 0");
  EXPECT_EQ(ProcessDiagnostics::lastCreationFailure(), "");
  ASSERT_NE(result.report, nullptr);
  EXPECT_TRUE(result.report->created);
  EXPECT_EQ(result.report->creationError, 0);
}

TEST_F(ProcessDiagnosticsTest, ClearForgetsTheLastReport) {
  failureOf(dir.file("missing"));
  ProcessDiagnostics::clear();
  EXPECT_EQ(ProcessDiagnostics::last(), nullptr);
  EXPECT_EQ(ProcessDiagnostics::lastCreationFailure(), "");
}

TEST_F(ProcessDiagnosticsTest, EachThreadSeesItsOwnCreations) {
  failureOf(dir.file("missing-here"));
  std::string other;
  std::thread([&] {
    EXPECT_EQ(ProcessDiagnostics::last(), nullptr);
    failureOf(dir.file("missing-there"));
    other = ProcessDiagnostics::lastCreationFailure();
  }).join();
  EXPECT_EQ(other, "no such file: " + dir.file("missing-there"));
  EXPECT_EQ(ProcessDiagnostics::lastCreationFailure(), "no such file: " + dir.file("missing-here"));
}

TEST_F(ProcessDiagnosticsTest, SignalNames) {
  EXPECT_EQ(ProcessDiagnostics::signalName(SIGTERM), "SIGTERM");
  EXPECT_EQ(ProcessDiagnostics::signalName(SIGKILL), "SIGKILL");
  EXPECT_EQ(ProcessDiagnostics::signalName(SIGSEGV), "SIGSEGV");
  EXPECT_EQ(ProcessDiagnostics::signalName(1000), "signal 1000");
}

// ---------------------------------------------------------------- the end

TEST_F(ProcessDiagnosticsTest, ExitStatusIsReported) {
  Run result = run("exit 3");
  EXPECT_EQ(result.status, 3);
  ASSERT_NE(result.report, nullptr);
  EXPECT_TRUE(result.report->ended);
  EXPECT_EQ(result.report->exitStatus, 3);
  EXPECT_EQ(result.report->signal, 0);
  EXPECT_FALSE(result.report->timedOut);
  EXPECT_FALSE(result.report->standardErrorCaptured);
  EXPECT_FALSE(result.report->outputKept);
}

TEST_F(ProcessDiagnosticsTest, SignalIsReported) {
  Run result = run("signal 9");
  EXPECT_EQ(result.status, 137);
  EXPECT_EQ(result.report->exitStatus, -1);
  EXPECT_EQ(result.report->signal, 9);
}

TEST_F(ProcessDiagnosticsTest, RunningChildsReportIsCompletedWhenItIsWaitedFor) {
  std::unique_ptr<Process> process(exec(child + " exit 4"));
  ASSERT_NE(process, nullptr);
  auto report = ProcessDiagnostics::last();
  EXPECT_TRUE(report->created);
  EXPECT_FALSE(report->ended);
  process.reset();  // deleted unwaited: reaped then
  EXPECT_TRUE(report->ended);
  EXPECT_EQ(report->exitStatus, 4);
}

// ---------------------------------------------------------------- standard error

TEST_F(ProcessDiagnosticsTest, CapturedStandardErrorIsKeptApartFromTheOutput) {
  HostSettings::setCaptureStandardError(true);
  Run result = run("print out\\n stderr err1\\nerr2\\n exit 3");
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.status, 3);
  EXPECT_TRUE(result.report->standardErrorCaptured);
  EXPECT_EQ(result.report->standardErrorTail, "err1\nerr2");
  EXPECT_EQ(result.report->standardErrorBytes, 10u);
}

TEST_F(ProcessDiagnosticsTest, CapturedTailIsTheLastTwentyLines) {
  HostSettings::setCaptureStandardError(true);
  std::string steps;
  for (int i = 1; i <= 100; ++i) steps += " stderr line" + std::to_string(i) + "\\n";
  Run result = run(steps);
  std::string expected;
  for (int i = 81; i <= 100; ++i)
    expected += (i > 81 ? "\n" : "") + std::string("line") + std::to_string(i);
  EXPECT_EQ(result.report->standardErrorTail, expected);
}

TEST_F(ProcessDiagnosticsTest, CapturedTailIsAtMostFourKibibytes) {
  HostSettings::setCaptureStandardError(true);
  Run result = run("errwrite 1048576 stderr \\nlast");
  EXPECT_EQ(result.report->standardErrorTail, "last");
  EXPECT_EQ(result.report->standardErrorBytes, 1048576u + 5u);
  Run single = run("errwrite 100000");
  EXPECT_EQ(single.report->standardErrorTail,
            std::string(ProcessDiagnostics::kStandardErrorTailBytes, 'e'));
}

TEST_F(ProcessDiagnosticsTest, ChildWritingMuchToBothStreamsIsNeverBlocked) {
  HostSettings::setCaptureStandardError(true);
  Run result = run("errwrite 4194304 write 4194304 errwrite 4194304");
  EXPECT_EQ(result.output.size(), 4194304u);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.report->standardErrorBytes, 8388608u);
}

TEST_F(ProcessDiagnosticsTest, StandardErrorWrittenAfterTheOutputClosesIsKept) {
  HostSettings::setCaptureStandardError(true);
  Run result = run("closeout sleep 50 stderr late");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.report->standardErrorTail, "late");
}

TEST_F(ProcessDiagnosticsTest, WaitingWithoutReadingStillKeepsStandardError) {
  HostSettings::setCaptureStandardError(true);
  std::unique_ptr<Process> process(exec(child + " errwrite 300000 stderr \\nend"));
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(process->waitFor(), 0);
  EXPECT_EQ(ProcessDiagnostics::last()->standardErrorTail, "end");
}

TEST_F(ProcessDiagnosticsTest, DescendantHoldingStandardErrorDoesNotHoldTheWait) {
  HostSettings::setCaptureStandardError(true);
  std::unique_ptr<Process> process(exec(child + " fork ids sleep 30000"));
  ASSERT_NE(process, nullptr);
  const int descendant = std::stoi(readLine(*process).substr(4));  // "pid:N"
  EXPECT_EQ(process->waitFor(), 0);
  EXPECT_FALSE(processEnded(descendant));
  ::kill(descendant, SIGKILL);
}

TEST_F(ProcessDiagnosticsTest, StandardErrorIsNotCapturedByDefault) {
  Run result = run("exit 0");
  EXPECT_FALSE(result.report->standardErrorCaptured);
  EXPECT_EQ(result.report->standardErrorTail, "");
}

TEST_F(ProcessDiagnosticsTest, CapturedChildStillGetsOnlyDescriptorsZeroToTwo) {
  HostSettings::setCaptureStandardError(true);
  Run result = run("fds");
  EXPECT_EQ(result.output, "fd:0\nfd:1\nfd:2\n");
}

// ---------------------------------------------------------------- time limit

TEST_F(ProcessDiagnosticsTest, NoTimeLimitByDefault) {
  EXPECT_EQ(HostSettings::getProcessTimeout(), 0);
}

TEST_F(ProcessDiagnosticsTest, UnusableTimeLimitsAreRefusedAndChangeNothing) {
  ASSERT_TRUE(HostSettings::setProcessTimeout(5));
  for (double value : {-1.0, -0.001, std::nan(""), std::numeric_limits<double>::infinity(),
                       HostSettings::kMaxProcessTimeoutSeconds * 2}) {
    EXPECT_FALSE(HostSettings::setProcessTimeout(value)) << value;
    EXPECT_EQ(HostSettings::getProcessTimeout(), 5);
  }
  EXPECT_TRUE(HostSettings::setProcessTimeout(0));
  EXPECT_TRUE(HostSettings::setProcessTimeout(HostSettings::kMaxProcessTimeoutSeconds));
}

TEST_F(ProcessDiagnosticsTest, HungChildIsEndedWithSigtermAtTheLimit) {
  HostSettings::setProcessTimeout(0.3);
  cstest::TraceCapture trace(Trace::Error);
  Run result = run("print before\\n sleep 60000 print after");
  EXPECT_EQ(result.output, "before\n");
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_TRUE(result.report->timedOut);
  EXPECT_FALSE(result.report->killed);
  EXPECT_EQ(result.report->signal, SIGTERM);
  EXPECT_EQ(result.report->timeoutSeconds, 0.3);
  ASSERT_EQ(trace.runnerTexts(Trace::Error).size(), 1u);
  EXPECT_TRUE(contains(trace.runnerTexts(Trace::Error)[0], "ran past the time limit of 0.3 s"));
}

TEST_F(ProcessDiagnosticsTest, ChildIgnoringSigtermIsKilledAfterTheGrace) {
  HostSettings::setProcessTimeout(0.2);
  Run result = run("ignore 15 sleep 60000");
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_TRUE(result.report->timedOut);
  EXPECT_TRUE(result.report->killed);
}

TEST_F(ProcessDiagnosticsTest, ChildWithALimitHasAProcessGroupOfItsOwn) {
  Run unlimited = run("ids");
  EXPECT_EQ(unlimited.output.substr(unlimited.output.find("pgid:")),
            "pgid:" + std::to_string(::getpgrp()) + "\n");
  HostSettings::setProcessTimeout(60);
  Run limited = run("ids");
  std::string pid = limited.output.substr(4, limited.output.find('\n') - 4);
  EXPECT_EQ(limited.output, "pid:" + pid + "\npgid:" + pid + "\n");
}

TEST_F(ProcessDiagnosticsTest, DescendantsHoldingTheOutputAreEndedWithTheGroup) {
  HostSettings::setProcessTimeout(0.3);
  std::unique_ptr<Process> process(exec(child + " fork ids sleep 60000"));
  ASSERT_NE(process, nullptr);
  std::string output = readAll(*process);  // ends only when the descendant is gone
  ASSERT_EQ(output.rfind("pid:", 0), 0u) << output;
  const int descendant = std::stoi(output.substr(4));
  EXPECT_EQ(process->waitFor(), 0);  // the child itself exited at once
  EXPECT_TRUE(ProcessDiagnostics::last()->timedOut);
  EXPECT_TRUE(processEndsSoon(descendant));
}

TEST_F(ProcessDiagnosticsTest, ChildThatClosesItsOutputAndHangsIsEndedByTheWait) {
  HostSettings::setProcessTimeout(0.3);
  Run result = run("closeout sleep 60000");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_TRUE(result.report->timedOut);
}

TEST_F(ProcessDiagnosticsTest, ChildEndingWithinTheLimitIsUntouched) {
  HostSettings::setProcessTimeout(60);
  Run result = run("print done\\n exit 2");
  EXPECT_EQ(result.output, "done\n");
  EXPECT_EQ(result.status, 2);
  EXPECT_FALSE(result.report->timedOut);
  EXPECT_EQ(result.report->timeoutSeconds, 60);
}

TEST_F(ProcessDiagnosticsTest, LargeOutputWithinTheLimitArrivesWhole) {
  HostSettings::setProcessTimeout(60);
  HostSettings::setCaptureStandardError(true);
  Run result = run("bytes 1000000 errwrite 100000");
  ASSERT_EQ(result.output.size(), 1000000u);
  for (std::size_t i = 0; i < result.output.size(); i += 9973) {
    EXPECT_EQ(static_cast<unsigned char>(result.output[i]), i % 256) << i;
  }
}

TEST_F(ProcessDiagnosticsTest, DeletingAnUnreadProcessWithALimitEndsIt) {
  HostSettings::setProcessTimeout(0.3);
  std::unique_ptr<Process> process(exec(child + " sleep 60000"));
  ASSERT_NE(process, nullptr);
  auto report = ProcessDiagnostics::last();
  process.reset();
  EXPECT_TRUE(report->ended);
  EXPECT_TRUE(report->timedOut);
}

TEST_F(ProcessDiagnosticsTest, SignallingActiveGroupsEndsChildrenWithALimit) {
  HostSettings::setProcessTimeout(600);
  std::unique_ptr<Process> process(exec(child + " print started\\n sleep 60000"));
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(readLine(*process), "started");
  ProcessDiagnostics::signalActiveProcessGroups(SIGTERM);
  EXPECT_EQ(readAll(*process), "");
  EXPECT_EQ(process->waitFor(), 128 + SIGTERM);
  EXPECT_FALSE(ProcessDiagnostics::last()->timedOut);
}

// ---------------------------------------------------------------- kept output

TEST_F(ProcessDiagnosticsTest, KeptOutputIsTheBytesAsRead) {
  HostSettings::setKeepStandardOutput(1 << 20);
  Run result = run("print a\\r\\nb\\0c");
  ASSERT_TRUE(result.report->outputKept);
  EXPECT_EQ(result.report->output, std::string("a\r\nb\0c", 6));
  EXPECT_TRUE(result.report->outputComplete);
}

TEST_F(ProcessDiagnosticsTest, KeptOutputStopsAtItsLimit) {
  HostSettings::setKeepStandardOutput(10);
  Run result = run("write 100");
  EXPECT_EQ(result.output.size(), 100u);
  EXPECT_EQ(result.report->output, std::string(10, 'x'));
  EXPECT_FALSE(result.report->outputComplete);
}

TEST_F(ProcessDiagnosticsTest, OutputEndedEarlyIsNotComplete) {
  HostSettings::setKeepStandardOutput(1 << 20);
  HostFaults::instance().streamEndAfterBytes = 3;
  Run result = run("print abcdef");
  EXPECT_EQ(result.report->output, "abc");
  EXPECT_FALSE(result.report->outputComplete);
}

TEST_F(ProcessDiagnosticsTest, NoOutputIsKeptByDefault) {
  Run result = run("print abc");
  EXPECT_FALSE(result.report->outputKept);
  EXPECT_EQ(result.report->output, "");
}

// ---------------------------------------------------------------- safe programs

// The guard's reason for a file or directory writable by group or others.
std::string writableRefusal(const std::string& path, const std::string& who,
                            const std::string& mode) {
  return "refused: " + path + " is writable by " + who + " (mode " + mode +
         "); fix: chmod go-w -- " + path;
}

class SafeScannerTest : public ProcessDiagnosticsTest {
 protected:
  void SetUp() override {
    ProcessDiagnosticsTest::SetUp();
    std::string reason = ProcessDiagnostics::unsafeProgramReason(child);
    if (!reason.empty()) GTEST_SKIP() << "the test directory itself is not safe: " << reason;
  }
};

TEST_F(SafeScannerTest, GuardIsOffByDefault) {
  EXPECT_FALSE(HostSettings::getRequireSafeScanners());
  ASSERT_EQ(::chmod(child.c_str(), 0777), 0);
  EXPECT_EQ(run("exit 0").status, 0);
}

TEST_F(SafeScannerTest, SafeProgramRuns) {
  HostSettings::setRequireSafeScanners(true);
  Run result = run("print ok");
  EXPECT_EQ(result.output, "ok");
  EXPECT_EQ(ProcessDiagnostics::unsafeProgramReason(child), "");
}

TEST_F(SafeScannerTest, ProgramWritableByOthersIsRefused) {
  HostSettings::setRequireSafeScanners(true);
  cstest::TraceCapture trace(Trace::Error);
  ASSERT_EQ(::chmod(child.c_str(), 0757), 0);
  EXPECT_EQ(failureOf(child), writableRefusal(child, "others", "0757"));
  EXPECT_EQ(ProcessDiagnostics::last()->creationError, 0);
  EXPECT_EQ(trace.runnerTexts(Trace::Error).size(), 1u);
}

TEST_F(SafeScannerTest, EveryWritableModeIsNamed) {
  HostSettings::setRequireSafeScanners(true);
  ASSERT_EQ(::chmod(child.c_str(), 0775), 0);
  EXPECT_EQ(failureOf(child), writableRefusal(child, "its group", "0775"));
  ASSERT_EQ(::chmod(child.c_str(), 0777), 0);
  EXPECT_EQ(failureOf(child), writableRefusal(child, "group and others", "0777"));
}

TEST_F(SafeScannerTest, DirectoryOnThePathWritableByOthersIsRefused) {
  HostSettings::setRequireSafeScanners(true);
  std::string inner = dir.file("open/deeper");
  cstest::makeDirectory(dir.file("open"));
  cstest::makeDirectory(inner);
  std::string program = inner + "/scan";
  cstest::installTestChild(program);
  ASSERT_EQ(::chmod(dir.file("open").c_str(), 0777), 0);
  EXPECT_EQ(failureOf(program), writableRefusal(dir.file("open"), "group and others", "0777"));
}

TEST_F(SafeScannerTest, StickyDirectoryOfTheCallerIsAccepted) {
  HostSettings::setRequireSafeScanners(true);
  cstest::makeDirectory(dir.file("shared"));
  ASSERT_EQ(::chmod(dir.file("shared").c_str(), 01777), 0);
  std::string program = dir.file("shared/scan");
  cstest::installTestChild(program);
  std::unique_ptr<Process> process(exec(program));
  ASSERT_NE(process, nullptr) << ProcessDiagnostics::lastCreationFailure();
  EXPECT_EQ(process->waitFor(), 0);
}

TEST_F(SafeScannerTest, SymbolicLinkIsJudgedByItsTarget) {
  HostSettings::setRequireSafeScanners(true);
  cstest::makeDirectory(dir.file("elsewhere"));
  std::string target = dir.file("elsewhere/scan");
  cstest::installTestChild(target);
  std::string link = dir.file("link");
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  std::unique_ptr<Process> process(exec(link));
  ASSERT_NE(process, nullptr) << ProcessDiagnostics::lastCreationFailure();
  EXPECT_EQ(process->waitFor(), 0);
  ASSERT_EQ(::chmod(dir.file("elsewhere").c_str(), 0757), 0);
  EXPECT_EQ(failureOf(link), writableRefusal(dir.file("elsewhere"), "others", "0757"));
}

TEST_F(SafeScannerTest, SymbolicLinkInAnUnsafeDirectoryIsRefused) {
  HostSettings::setRequireSafeScanners(true);
  cstest::makeDirectory(dir.file("open"));
  std::string link = dir.file("open/link");
  ASSERT_EQ(::symlink(child.c_str(), link.c_str()), 0);
  ASSERT_EQ(::chmod(dir.file("open").c_str(), 0757), 0);
  EXPECT_EQ(failureOf(link), writableRefusal(dir.file("open"), "others", "0757"));
}

TEST_F(SafeScannerTest, ProgramOwnedByAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "changing a file's owner needs root; not run as root";
  HostSettings::setRequireSafeScanners(true);
  ASSERT_EQ(::chown(child.c_str(), 65534, static_cast<gid_t>(-1)), 0);
  EXPECT_EQ(failureOf(child),
            "refused: " + child +
                " is owned by 'nobody' (uid 65534), not by root; fix: chown root -- " + child);
}

TEST_F(SafeScannerTest, MissingProgramIsLeftToTheSystemsReason) {
  HostSettings::setRequireSafeScanners(true);
  EXPECT_EQ(failureOf(dir.file("missing")), "no such file: " + dir.file("missing"));
}

TEST_F(SafeScannerTest, RelativeProgramIsJudgedFromTheWorkingDirectory) {
  HostSettings::setRequireSafeScanners(true);
  char* cwd = ::getcwd(nullptr, 0);
  ASSERT_NE(cwd, nullptr);
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  ASSERT_EQ(::chmod(child.c_str(), 0757), 0);
  std::string reason = failureOf("./cs_testchild");
  EXPECT_EQ(::chdir(cwd), 0);
  std::free(cwd);
  EXPECT_EQ(reason, writableRefusal(child, "others", "0757"));
}

}  // namespace
