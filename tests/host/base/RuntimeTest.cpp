#include "base/Runtime.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "base/HostFaults.h"

namespace {

// The outcome of one child run to its end.
struct Outcome {
  bool started = false;
  std::string output;
  int status = -2;
};

std::string quotePath(const std::string& path) { return "\"" + path + "\""; }

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) out.push_back(line);
  return out;
}

// Reads a process's stream to its end, checking that every value is a byte.
std::string readAll(Process& process) {
  ProcessInputStream* stream = process.getInputStream();
  if (stream == nullptr) return std::string();
  std::string out;
  for (;;) {
    int c = stream->read();
    if (c < 0) break;
    EXPECT_LE(c, 255);
    out.push_back(static_cast<char>(c));
  }
  return out;
}

class RuntimeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    child = dir.file("cs_testchild");
    cstest::installTestChild(child);
    blankChild = dir.file("dir with blanks/cs test child");
    cstest::installTestChild(blankChild);
  }
  void TearDown() override {
    HostFaults::reset();
    EXPECT_FALSE(cstest::hasZombieChildren());
  }

  static Process* exec(const std::string& commandLine, const std::vector<std::string>& env) {
    std::vector<String> values;
    values.reserve(env.size());
    for (const auto& e : env) values.emplace_back(e.c_str());
    std::vector<const String*> pointers;
    pointers.reserve(values.size());
    for (const auto& v : values) pointers.push_back(&v);
    return Runtime::getRuntime()->exec(String(commandLine.c_str()), pointers.data(),
                                       static_cast<int>(pointers.size()));
  }

  static Outcome run(const std::string& commandLine, const std::vector<std::string>& env = {}) {
    Outcome outcome;
    std::unique_ptr<Process> process(exec(commandLine, env));
    if (!process) return outcome;
    outcome.started = true;
    outcome.output = readAll(*process);
    outcome.status = process->waitFor();
    return outcome;
  }

  // The child with the given steps, its program name quoted.
  std::string childWith(const std::string& steps) const { return quotePath(child) + " " + steps; }

  cstest::TempDir dir;
  std::string child;
  std::string blankChild;
};

TEST_F(RuntimeTest, GetRuntimeIsOneObject) {
  EXPECT_NE(Runtime::getRuntime(), nullptr);
  EXPECT_EQ(Runtime::getRuntime(), Runtime::getRuntime());
}

// ------------------------------------------------------------ command-line splitting

struct SplitCase {
  const char* line;
  std::vector<std::string> words;
};

TEST_F(RuntimeTest, SplitCommandLineTable) {
  const SplitCase cases[] = {
      {"a", {"a"}},
      {"a b c", {"a", "b", "c"}},
      {"a   b", {"a", "b"}},
      {"   a b   ", {"a", "b"}},
      {"", {}},
      {"    ", {}},
      {"\"\"", {""}},
      {"a \"\" b", {"a", "", "b"}},
      {"a \"\"", {"a", ""}},
      {"\"\" \"\"", {"", ""}},
      {"x \"\"\"\"", {"x", ""}},
      {"\"a b\" c", {"a b", "c"}},
      {"\"a  b\"", {"a  b"}},
      {"a\"b c\"d", {"ab cd"}},
      {"a\"\"b", {"ab"}},
      {"x \"a\"\"b\"", {"x", "ab"}},
      {"\"/opt/my scan/x.sh\"  -a", {"/opt/my scan/x.sh", "-a"}},
      // An unclosed quote runs to the end of the line.
      {"a \"unclosed  b", {"a", "unclosed  b"}},
      // Only the blank separates: tabs, backslashes and single quotes are text.
      {"a\tb", {"a\tb"}},
      {"a\\ b", {"a\\", "b"}},
      {"'a b'", {"'a", "b'"}},
      {"\xc3\xa9 \xc3\xbc", {"\xc3\xa9", "\xc3\xbc"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(hostSplitCommandLine(String(c.line)), c.words) << "line [" << c.line << "]";
  }
}

// The splitting rules written the plain way, one word built up at a time,
// for the random comparison below.
std::vector<std::string> referenceSplit(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      inWord = true;
    } else if (c == ' ' && !quoted) {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

TEST_F(RuntimeTest, SplitCommandLineMatchesWordByWordSplittingOnRandomLines) {
  // Blanks, quotes, tabs, a zero character and text, one piece beyond ASCII.
  // (null stands for the zero character, which a literal cannot carry.)
  const wchar_t* pieces[] = {L" ", L" ", L"\"", L"\"", L"a", L"bc", L"\t", L"\u00e9", nullptr};
  const std::wstring zero(1, L'\0');
  std::mt19937 random(20261122);
  for (int round = 0; round < 20000; ++round) {
    std::wstring line;
    const int count = static_cast<int>(random() % 14);
    for (int k = 0; k < count; ++k) {
      const wchar_t* piece = pieces[random() % (sizeof pieces / sizeof pieces[0])];
      line.append(piece != nullptr ? std::wstring(piece) : zero);
    }
    const String text = fromWideString(line);
    ASSERT_EQ(hostSplitCommandLine(text), referenceSplit(text.toNarrow()))
        << "line " << testing::PrintToString(line);
  }
}

TEST_F(RuntimeTest, SplitCommandLineRestoresEscapedBytes) {
  String line(L"prog ");
  line.concat(static_cast<wchar_t>(0xDCFF));
  std::vector<std::string> expected = {"prog", "\xff"};
  EXPECT_EQ(hostSplitCommandLine(line), expected);
}

// ------------------------------------------------------------ argument vectors of real children

struct ArgumentCase {
  const char* tail;  // after "<child> args"
  std::vector<std::string> arguments;
};

TEST_F(RuntimeTest, ChildReceivesExactArgumentVector) {
  const ArgumentCase cases[] = {
      {"", {}},
      {" a b", {"a", "b"}},
      {"    a     b    ", {"a", "b"}},
      {" \"\"", {""}},
      {" a \"\" b \"\"", {"a", "", "b", ""}},
      {" \"two words\" x", {"two words", "x"}},
      {" \"  padded  \"", {"  padded  "}},
      {" a\"b c\"d", {"ab cd"}},
      {" --opt=\"x y\"", {"--opt=x y"}},
      {" a\tb", {"a\tb"}},
      {" $HOME `id` ;|&<>*?", {"$HOME", "`id`", ";|&<>*?"}},
      {" \\\\n \\", {"\\\\n", "\\"}},
      {" \xc3\xa9t\xc3\xa9 caf\xe9", {"\xc3\xa9t\xc3\xa9", "caf\xe9"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("tail [") + c.tail + "]");
    Outcome o = run(childWith("args") + c.tail);
    ASSERT_TRUE(o.started);
    EXPECT_EQ(o.status, 0);
    std::vector<std::string> expected = {"[args]"};
    for (const auto& a : c.arguments) expected.push_back("[" + a + "]");
    EXPECT_EQ(lines(o.output), expected);
  }
}

TEST_F(RuntimeTest, LeadingBlanksBeforeProgramAreSkipped) {
  Outcome o = run("   " + child + " args x   ");
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "[args]\n[x]\n");
}

TEST_F(RuntimeTest, QuotedProgramNameWithBlanksRuns) {
  Outcome o = run(quotePath(blankChild) + " args a \"b c\"");
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.output, "[args]\n[a]\n[b c]\n");
}

TEST_F(RuntimeTest, ProgramNameQuotedInPartsRuns) {
  // The quotes only group; where they sit inside the word does not matter.
  std::string::size_type space = blankChild.find(' ');
  std::string line = blankChild.substr(0, space) + "\"" + blankChild.substr(space) + "\" print ok";
  Outcome o = run(line);
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "ok");
}

TEST_F(RuntimeTest, UnquotedProgramNameWithBlanksIsNotFound) {
  EXPECT_FALSE(run(blankChild + " exit 0").started);
}

// ------------------------------------------------------------ programs that cannot run

TEST_F(RuntimeTest, EmptyCommandLinesGiveNoProcess) {
  for (const char* line : {"", "   ", "\"\"", "\"\" args", "  \"\"  x"}) {
    EXPECT_FALSE(run(line).started) << "line [" << line << "]";
  }
}

TEST_F(RuntimeTest, MissingProgramGivesNoProcess) {
  EXPECT_FALSE(run(dir.file("missing") + " args").started);
}

TEST_F(RuntimeTest, NonExecutableProgramGivesNoProcess) {
  cstest::writeFile(dir.file("plain"), "#!/bin/sh\ntouch " + dir.file("ran") + "\n", 0644);
  EXPECT_FALSE(run(dir.file("plain")).started);
  EXPECT_FALSE(cstest::fileExists(dir.file("ran")));
}

TEST_F(RuntimeTest, DirectoryGivesNoProcess) { EXPECT_FALSE(run(dir.path()).started); }

TEST_F(RuntimeTest, ScriptWithoutInterpreterLineIsNotHandedToAShell) {
  cstest::writeFile(dir.file("noshebang"), "touch " + dir.file("ran") + "\n", 0755);
  EXPECT_FALSE(run(dir.file("noshebang")).started);
  EXPECT_FALSE(cstest::fileExists(dir.file("ran")));
}

TEST_F(RuntimeTest, ProgramIsNotSearchedOnPath) {
  // "true" exists on every PATH, but a bare name is taken as a relative path.
  EXPECT_FALSE(run("true").started);
  EXPECT_FALSE(run("sh -c true").started);
}

TEST_F(RuntimeTest, ShellMetacharactersAreNotInterpreted) {
  std::string ran = dir.file("ran");
  Outcome o = run(childWith("args ; /bin/touch " + ran + " && /bin/touch " + ran +
                            " $(/bin/touch " + ran + ")"));
  ASSERT_TRUE(o.started);
  EXPECT_EQ(lines(o.output),
            (std::vector<std::string>{"[args]", "[;]", "[/bin/touch]", "[" + ran + "]", "[&&]",
                                      "[/bin/touch]", "[" + ran + "]", "[$(/bin/touch]",
                                      "[" + ran + ")]"}));
  EXPECT_FALSE(cstest::fileExists(ran));
}

TEST_F(RuntimeTest, ScriptWithInterpreterLineRuns) {
  cstest::writeScript(dir.file("script.sh"), "echo \"from script $1\"");
  Outcome o = run(dir.file("script.sh") + " one");
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "from script one\n");
  EXPECT_EQ(o.status, 0);
}

TEST_F(RuntimeTest, RelativeProgramPathIsTakenFromWorkingDirectory) {
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  Outcome withSlash = run("./cs_testchild print a");
  Outcome bare = run("cs_testchild print b");
  ASSERT_EQ(::chdir(cwd), 0);
  EXPECT_TRUE(withSlash.started);
  EXPECT_EQ(withSlash.output, "a");
  EXPECT_TRUE(bare.started);
  EXPECT_EQ(bare.output, "b");
}

// ------------------------------------------------------------ environment

TEST_F(RuntimeTest, EnvironmentArrayIsTheChildsWholeEnvironment) {
  ASSERT_EQ(::setenv("CS_HOST_ONLY", "1", 1), 0);
  std::vector<std::string> env = {"A=1",          "B=two words",  "EMPTY=", "PATH=/nowhere",
                                  "UTF=\xc3\xa9", "RAW=\xff\xfe", "A=again"};
  Outcome o = run(childWith("env"), env);
  ::unsetenv("CS_HOST_ONLY");
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(lines(o.output), env);
}

// Entries whose narrow text is longer than their wide text (two to four
// bytes a character) among many plain ones, so that the narrow environment
// outgrows any estimate made from the wide lengths.
TEST_F(RuntimeTest, ManyEntriesOfMixedTextReachTheChildInOrder) {
  std::vector<std::string> env;
  for (int k = 0; k < 200; ++k) {
    std::string value = k % 3 == 0 ? std::string(40, 'v') : std::string();
    for (int r = 0; r < k % 5; ++r)
      value += "\xe2\x82\xac\xf0\x9f\x98\x80\xc3\xa9";  // 3 + 4 + 2 bytes
    if (k % 7 == 0) value += "\xff";                    // not UTF-8
    env.push_back("CS_MIXED_" + std::to_string(k) + "=" + value);
  }
  Outcome o = run(childWith("env"), env);
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(lines(o.output), env);
}

// A String may hold a zero character; the child's entry ends there, as the
// String's narrow text read as a C string would.
TEST_F(RuntimeTest, EnvironmentEntryEndsAtAZeroCharacter) {
  String cut = fromWideString(std::wstring(L"CUT=a\0b", 7));
  String next("NEXT=1");
  const String* env[] = {&cut, &next};
  std::unique_ptr<Process> p(Runtime::getRuntime()->exec(String(childWith("env").c_str()), env, 2));
  ASSERT_TRUE(p);
  EXPECT_EQ(readAll(*p), "CUT=a\nNEXT=1\n");
  EXPECT_EQ(p->waitFor(), 0);
}

TEST_F(RuntimeTest, EmptyEnvironmentArrayGivesEmptyEnvironment) {
  Outcome o = run(childWith("env"));
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "");
}

TEST_F(RuntimeTest, NullEnvironmentArrayGivesEmptyEnvironment) {
  std::unique_ptr<Process> p(
      Runtime::getRuntime()->exec(String(childWith("env").c_str()), nullptr, 3));
  ASSERT_TRUE(p);
  EXPECT_EQ(readAll(*p), "");
  EXPECT_EQ(p->waitFor(), 0);
}

TEST_F(RuntimeTest, NullEntriesOfEnvironmentArrayAreSkipped) {
  String a("A=1");
  String b("B=2");
  const String* env[] = {&a, nullptr, &b};
  std::unique_ptr<Process> p(Runtime::getRuntime()->exec(String(childWith("env").c_str()), env, 3));
  ASSERT_TRUE(p);
  EXPECT_EQ(readAll(*p), "A=1\nB=2\n");
  EXPECT_EQ(p->waitFor(), 0);
}

TEST_F(RuntimeTest, NegativeCountGivesEmptyEnvironment) {
  String a("A=1");
  const String* env[] = {&a};
  std::unique_ptr<Process> p(
      Runtime::getRuntime()->exec(String(childWith("env").c_str()), env, -1));
  ASSERT_TRUE(p);
  EXPECT_EQ(readAll(*p), "");
  EXPECT_EQ(p->waitFor(), 0);
}

// ------------------------------------------------------------ exit status

TEST_F(RuntimeTest, ExitStatusIsReturned) {
  for (int status : {0, 1, 3, 42, 127, 255}) {
    Outcome o = run(childWith("exit " + std::to_string(status)));
    ASSERT_TRUE(o.started);
    EXPECT_EQ(o.status, status);
  }
}

TEST_F(RuntimeTest, OutputBeforeFailingExitIsDelivered) {
  Outcome o = run(childWith("print partial exit 3"));
  EXPECT_EQ(o.output, "partial");
  EXPECT_EQ(o.status, 3);
}

TEST_F(RuntimeTest, DeathBySignalGives128PlusSignal) {
  for (int sig : {SIGHUP, SIGKILL, SIGTERM, SIGUSR1}) {
    Outcome o = run(childWith("print before signal " + std::to_string(sig)));
    ASSERT_TRUE(o.started);
    EXPECT_EQ(o.output, "before");
    EXPECT_EQ(o.status, 128 + sig) << "signal " << sig;
  }
}

TEST_F(RuntimeTest, WaitForTwiceGivesSameStatus) {
  std::unique_ptr<Process> p(exec(childWith("exit 7"), {}));
  ASSERT_TRUE(p);
  readAll(*p);
  EXPECT_EQ(p->waitFor(), 7);
  EXPECT_EQ(p->waitFor(), 7);
}

TEST_F(RuntimeTest, WaitForReapsTheChild) {
  std::unique_ptr<Process> p(exec(childWith("exit 0"), {}));
  ASSERT_TRUE(p);
  EXPECT_GT(hostProcessId(*p), 0);
  EXPECT_NE(hostProcessId(*p), static_cast<int>(::getpid()));
  EXPECT_EQ(p->waitFor(), 0);
  errno = 0;
  EXPECT_EQ(::waitpid(hostProcessId(*p), nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(RuntimeTest, WaitForWithoutReadingSmallOutputReturns) {
  std::unique_ptr<Process> p(exec(childWith("print unread exit 4"), {}));
  ASSERT_TRUE(p);
  EXPECT_EQ(p->waitFor(), 4);
  // What the child wrote is still there to read.
  EXPECT_EQ(readAll(*p), "unread");
}

TEST_F(RuntimeTest, WaitForWithSigchldIgnoredNeverReturnsZero) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction previous {};
  ASSERT_EQ(::sigaction(SIGCHLD, &ignore, &previous), 0);
  std::unique_ptr<Process> p(exec(childWith("print x exit 0"), {}));
  int status = -2;
  std::string output;
  if (p) {
    output = readAll(*p);
    status = p->waitFor();
    p.reset();
  }
  ::sigaction(SIGCHLD, &previous, nullptr);
  EXPECT_EQ(output, "x");
  EXPECT_NE(status, 0);
  EXPECT_EQ(status, -1);
}

// ------------------------------------------------------------ EINTR

void onAlarm(int) {}

// Arms a repeating SIGALRM whose handler interrupts system calls.
class AlarmScope {
 public:
  AlarmScope() {
    struct sigaction action {};
    action.sa_handler = onAlarm;
    action.sa_flags = 0;  // no SA_RESTART: blocking calls fail with EINTR
    ::sigaction(SIGALRM, &action, &m_Previous);
    itimerval timer{};
    timer.it_interval.tv_usec = 5000;
    timer.it_value.tv_usec = 5000;
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~AlarmScope() {
    itimerval off{};
    ::setitimer(ITIMER_REAL, &off, nullptr);
    ::sigaction(SIGALRM, &m_Previous, nullptr);
  }

 private:
  struct sigaction m_Previous {};
};

TEST_F(RuntimeTest, ReadsAndWaitsRetryWhenInterrupted) {
  Outcome o;
  {
    AlarmScope alarms;
    o = run(childWith("sleep 60 print a sleep 60 print b sleep 60 exit 5"));
  }
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "ab");
  EXPECT_EQ(o.status, 5);
}

// ------------------------------------------------------------ standard streams and descriptors

TEST_F(RuntimeTest, StandardInputIsDevNull) {
  // The host's own standard input holds data; the child must not see it.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  ASSERT_EQ(::write(fds[1], "hello", 5), 5);
  ::close(fds[1]);
  int savedStdin = ::dup(0);
  ASSERT_GE(savedStdin, 0);
  ::dup2(fds[0], 0);
  ::close(fds[0]);
  Outcome o = run(childWith("stdin"));
  ::dup2(savedStdin, 0);
  ::close(savedStdin);
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "stdin:0\n");
}

TEST_F(RuntimeTest, OnlyDescriptorsZeroToTwoReachTheChild) {
  // An inheritable descriptor of the host (no close-on-exec), low and high.
  int fd = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(fd, 3);
  ASSERT_EQ(::dup2(fd, 57), 57);
  std::unique_ptr<Process> other(exec(childWith("sleep 200"), {}));  // a second pipe is open
  Outcome o = run(childWith("fds"));
  other.reset();
  ::close(57);
  ::close(fd);
  ASSERT_TRUE(o.started);
  EXPECT_EQ(lines(o.output), (std::vector<std::string>{"fd:0", "fd:1", "fd:2"}));
}

TEST_F(RuntimeTest, ChildSetUpHoldsWhicheverDescriptorsThePipeGets) {
  // The pipe lands on the lowest free numbers: free, then above a few taken
  // ones, then free again, and from another thread. Every child must get its
  // own output on 1, /dev/null on 0 and nothing above 2.
  const std::vector<std::string> expected = {"stdin:0", "fd:0", "fd:1", "fd:2"};
  auto check = [&](const char* when) {
    Outcome o = run(childWith("stdin fds"));
    ASSERT_TRUE(o.started) << when;
    EXPECT_EQ(lines(o.output), expected) << when;
  };
  check("first");
  std::vector<int> taken;
  taken.reserve(5);
  for (int k = 0; k < 5; ++k) taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  check("with five more descriptors open");
  for (int fd : taken) ::close(fd);
  check("with them closed again");
  std::thread other([&] { check("from another thread"); });
  other.join();
  check("after the other thread");
}

TEST_F(RuntimeTest, HostKeepsNoDescriptorAfterProcessIsDeleted) {
  std::vector<int> before = cstest::openDescriptors();
  run(childWith("print x"));
  run(dir.file("missing"));
  {
    std::unique_ptr<Process> p(exec(childWith("write 100000"), {}));
    ASSERT_TRUE(p);
  }
  EXPECT_EQ(cstest::openDescriptors(), before);
}

TEST_F(RuntimeTest, StandardErrorIsTheHostsOwn) {
  cstest::writeScript(dir.file("both.sh"), "echo to-out; echo to-err >&2");
  std::string errFile = dir.file("stderr.txt");
  int errFd = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(errFd, 0);
  std::fflush(stderr);
  int savedStderr = ::dup(2);
  ::dup2(errFd, 2);
  ::close(errFd);
  Outcome o = run(dir.file("both.sh"));
  ::dup2(savedStderr, 2);
  ::close(savedStderr);
  EXPECT_EQ(o.output, "to-out\n");
  EXPECT_EQ(cstest::readFile(errFile), "to-err\n");
}

std::string statusField(const std::string& output, const std::string& name) {
  for (const auto& line : lines(output)) {
    if (line.compare(0, name.size(), name) == 0) {
      std::string value = line.substr(name.size());
      value.erase(0, value.find_first_not_of(" \t"));
      return value;
    }
  }
  return "missing";
}

TEST_F(RuntimeTest, ChildStartsWithEmptySignalMaskAndDefaultActions) {
  sigset_t block;
  sigemptyset(&block);
  sigaddset(&block, SIGUSR1);
  sigaddset(&block, SIGTERM);
  sigaddset(&block, SIGPIPE);
  sigset_t previousMask;
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &block, &previousMask), 0);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction previousPipe {
  }, previousUsr2{}, previousInt{};
  ::sigaction(SIGPIPE, &ignore, &previousPipe);
  ::sigaction(SIGUSR2, &ignore, &previousUsr2);
  ::sigaction(SIGINT, &ignore, &previousInt);

  Outcome o = run(childWith("sigmask"));

  ::sigaction(SIGPIPE, &previousPipe, nullptr);
  ::sigaction(SIGUSR2, &previousUsr2, nullptr);
  ::sigaction(SIGINT, &previousInt, nullptr);
  ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);

  ASSERT_TRUE(o.started);
  EXPECT_EQ(statusField(o.output, "SigBlk:"), "0000000000000000");
  // Signal n is bit n - 1. posix_spawn leaves the C library's reserved
  // signals (32 up to SIGRTMIN) ignored; no signal a program can use is.
  unsigned long long ignored = std::stoull(statusField(o.output, "SigIgn:"), nullptr, 16);
  unsigned long long reserved = 0;
  for (int sig = 32; sig < SIGRTMIN; ++sig) reserved |= 1ULL << (sig - 1);
  EXPECT_EQ(ignored & ~reserved, 0ULL) << std::hex << ignored;
}

TEST_F(RuntimeTest, ChildDiesOfSigpipeEvenWhenHostIgnoresIt) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction previous {};
  ::sigaction(SIGPIPE, &ignore, &previous);
  HostFaults::instance().streamEndAfterBytes = 1;
  Outcome o = run(childWith("write 1000000"));
  ::sigaction(SIGPIPE, &previous, nullptr);
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output, "x");
  EXPECT_EQ(o.status, 128 + SIGPIPE);
}

// ------------------------------------------------------------ the output stream

TEST_F(RuntimeTest, StreamReturnsEveryByteValueThenOnlyNegatives) {
  std::unique_ptr<Process> p(exec(childWith("bytes 1000"), {}));
  ASSERT_TRUE(p);
  ProcessInputStream* stream = p->getInputStream();
  ASSERT_NE(stream, nullptr);
  for (int k = 0; k < 1000; ++k) ASSERT_EQ(stream->read(), k % 256) << "byte " << k;
  EXPECT_LT(stream->read(), 0);
  EXPECT_LT(stream->read(), 0);
  EXPECT_EQ(p->waitFor(), 0);
  EXPECT_LT(stream->read(), 0);
}

TEST_F(RuntimeTest, EmptyOutputEndsAtOnce) {
  std::unique_ptr<Process> p(exec(childWith("exit 0"), {}));
  ASSERT_TRUE(p);
  ASSERT_NE(p->getInputStream(), nullptr);
  EXPECT_EQ(p->getInputStream(), p->getInputStream());
  EXPECT_LT(p->getInputStream()->read(), 0);
  EXPECT_EQ(p->waitFor(), 0);
}

TEST_F(RuntimeTest, LargeOutputArrivesWhole) {
  Outcome o = run(childWith("write 300001"));
  ASSERT_TRUE(o.started);
  EXPECT_EQ(o.output.size(), 300001u);
  EXPECT_EQ(o.output.find_first_not_of('x'), std::string::npos);
  EXPECT_EQ(o.status, 0);
}

// Streams alive at the same time each read their own child's output, and a
// stream made after one was deleted starts clean.
TEST_F(RuntimeTest, StreamsAliveTogetherKeepTheirOwnOutput) {
  std::unique_ptr<Process> bytes(exec(childWith("bytes 200000"), {}));
  std::unique_ptr<Process> xs(exec(childWith("write 150000"), {}));
  ASSERT_TRUE(bytes);
  ASSERT_TRUE(xs);
  ProcessInputStream* a = bytes->getInputStream();
  ProcessInputStream* b = xs->getInputStream();
  std::size_t wrongA = 0, countA = 0, wrongB = 0, countB = 0;
  bool endA = false, endB = false;
  while (!endA || !endB) {
    for (int k = 0; k < 1000 && !endA; ++k) {
      const int c = a->read();
      if (c < 0) {
        endA = true;
      } else {
        wrongA += c != static_cast<int>(countA % 256);
        ++countA;
      }
    }
    for (int k = 0; k < 700 && !endB; ++k) {
      const int c = b->read();
      if (c < 0) {
        endB = true;
      } else {
        wrongB += c != 'x';
        ++countB;
      }
    }
  }
  EXPECT_EQ(countA, 200000u);
  EXPECT_EQ(wrongA, 0u);
  EXPECT_EQ(countB, 150000u);
  EXPECT_EQ(wrongB, 0u);
  EXPECT_EQ(bytes->waitFor(), 0);
  EXPECT_EQ(xs->waitFor(), 0);
  bytes.reset();
  xs.reset();

  Outcome after = run(childWith("print fresh"));
  EXPECT_EQ(after.output, "fresh");
}

TEST_F(RuntimeTest, OutputEndsWhenChildClosesItEvenIfStillRunning) {
  Outcome o = run(childWith("print a closeout sleep 50 exit 2"));
  EXPECT_EQ(o.output, "a");
  EXPECT_EQ(o.status, 2);
}

TEST_F(RuntimeTest, ZeroAndCarriageReturnBytesArePassedThrough) {
  Outcome o = run(childWith("print a\\0b\\r\\nc\\xff"));
  EXPECT_EQ(o.output, std::string("a\0b\r\nc\xff", 7));
}

// ------------------------------------------------------------ no zombie left

TEST_F(RuntimeTest, DeletingProcessWithoutWaitReapsIt) {
  int pid = 0;
  {
    std::unique_ptr<Process> p(exec(childWith("sleep 50 exit 1"), {}));
    ASSERT_TRUE(p);
    pid = hostProcessId(*p);
  }
  EXPECT_FALSE(cstest::hasZombieChildren());
  errno = 0;
  EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(RuntimeTest, DeletingProcessWithUnreadLargeOutputDoesNotHang) {
  {
    std::unique_ptr<Process> p(exec(childWith("write 5000000"), {}));
    ASSERT_TRUE(p);
    ASSERT_NE(p->getInputStream(), nullptr);
    EXPECT_GE(p->getInputStream()->read(), 0);
  }
  EXPECT_FALSE(cstest::hasZombieChildren());
}

TEST_F(RuntimeTest, DeletingWaitedProcessLeavesNothing) {
  {
    std::unique_ptr<Process> p(exec(childWith("exit 0"), {}));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->waitFor(), 0);
  }
  EXPECT_FALSE(cstest::hasZombieChildren());
}

TEST_F(RuntimeTest, FailedCreationLeavesNoZombie) {
  EXPECT_FALSE(run(dir.file("missing")).started);
  EXPECT_FALSE(run("/dev/null").started);
  EXPECT_FALSE(cstest::hasZombieChildren());
}

TEST_F(RuntimeTest, ManyChildrenInARowLeaveNothingBehind) {
  std::vector<int> before = cstest::openDescriptors();
  for (int k = 0; k < 20; ++k) {
    Outcome o = run(childWith("print " + std::to_string(k) + " exit " + std::to_string(k)));
    ASSERT_EQ(o.output, std::to_string(k));
    ASSERT_EQ(o.status, k);
  }
  EXPECT_FALSE(cstest::hasZombieChildren());
  EXPECT_EQ(cstest::openDescriptors(), before);
}

// ------------------------------------------------------------ the HostFaults seam

TEST_F(RuntimeTest, FailProcessCreationAtOneFailsTheNextCallOnly) {
  HostFaults::instance().failProcessCreationAt = 1;
  EXPECT_FALSE(run(childWith("touch " + dir.file("first"))).started);
  EXPECT_FALSE(cstest::fileExists(dir.file("first")));
  Outcome second = run(childWith("touch " + dir.file("second")));
  EXPECT_TRUE(second.started);
  EXPECT_TRUE(cstest::fileExists(dir.file("second")));
}

TEST_F(RuntimeTest, FailProcessCreationAtThreeFailsTheThirdCall) {
  HostFaults::instance().failProcessCreationAt = 3;
  EXPECT_TRUE(run(childWith("exit 0")).started);
  EXPECT_TRUE(run(childWith("exit 0")).started);
  EXPECT_FALSE(run(childWith("exit 0")).started);
  EXPECT_TRUE(run(childWith("exit 0")).started);
}

TEST_F(RuntimeTest, NoOutputStreamStillRunsAndWaitsForTheChild) {
  HostFaults::instance().noOutputStream = true;
  std::unique_ptr<Process> p(
      exec(childWith("print lost touch " + dir.file("ran") + " exit 3"), {}));
  ASSERT_TRUE(p);
  EXPECT_EQ(p->getInputStream(), nullptr);
  EXPECT_EQ(p->waitFor(), 3);
  EXPECT_TRUE(cstest::fileExists(dir.file("ran")));
}

TEST_F(RuntimeTest, NoOutputStreamLetsAWritingChildFinishNormally) {
  HostFaults::instance().noOutputStream = true;
  std::unique_ptr<Process> p(exec(childWith("write 1000000 exit 0"), {}));
  ASSERT_TRUE(p);
  EXPECT_EQ(p->waitFor(), 0);
}

TEST_F(RuntimeTest, NoOutputStreamAppliesToProcessesCreatedWhileSet) {
  std::unique_ptr<Process> before(exec(childWith("print a"), {}));
  HostFaults::instance().noOutputStream = true;
  std::unique_ptr<Process> during(exec(childWith("print b"), {}));
  HostFaults::reset();
  ASSERT_TRUE(before);
  ASSERT_TRUE(during);
  EXPECT_EQ(readAll(*before), "a");
  EXPECT_EQ(during->getInputStream(), nullptr);
}

TEST_F(RuntimeTest, StreamEndAfterBytesEndsTheStreamEarly) {
  HostFaults::instance().streamEndAfterBytes = 5;
  std::unique_ptr<Process> p(exec(childWith("print hello-world"), {}));
  ASSERT_TRUE(p);
  EXPECT_EQ(readAll(*p), "hello");
  EXPECT_LT(p->getInputStream()->read(), 0);
  int status = p->waitFor();
  // The child may or may not have finished writing before the pipe closed.
  EXPECT_TRUE(status == 0 || status == 128 + SIGPIPE) << status;
}

TEST_F(RuntimeTest, StreamEndAfterZeroBytesGivesEmptyStream) {
  HostFaults::instance().streamEndAfterBytes = 0;
  Outcome o = run(childWith("print abc"));
  EXPECT_EQ(o.output, "");
}

TEST_F(RuntimeTest, StreamEndAfterBytesBeyondOutputChangesNothing) {
  HostFaults::instance().streamEndAfterBytes = 100;
  Outcome o = run(childWith("print abc"));
  EXPECT_EQ(o.output, "abc");
  EXPECT_EQ(o.status, 0);
}

TEST_F(RuntimeTest, StreamEndAfterBytesWithLargeOutputDoesNotHang) {
  HostFaults::instance().streamEndAfterBytes = 10;
  Outcome o = run(childWith("write 2000000 exit 0"));
  EXPECT_EQ(o.output, "xxxxxxxxxx");
  EXPECT_EQ(o.status, 128 + SIGPIPE);
}

TEST_F(RuntimeTest, ResetTurnsEveryFaultOff) {
  HostFaults::instance().failProcessCreationAt = 1;
  HostFaults::instance().noOutputStream = true;
  HostFaults::instance().streamEndAfterBytes = 0;
  HostFaults::reset();
  Outcome o = run(childWith("print ok"));
  EXPECT_TRUE(o.started);
  EXPECT_EQ(o.output, "ok");
}

}  // namespace
