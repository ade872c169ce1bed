#include "base/ScannerSafety.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "base/ProcessExtras.h"
#include "common/CommandGate.h"

namespace {

using Kind = ScannerFindingKind;

std::string describe(const std::vector<ScannerFinding>& findings) {
  std::ostringstream out;
  for (const ScannerFinding& f : findings) {
    out << "  " << f.path << " [" << scannerFindingKindName(f.kind) << "] " << f.problem
        << "\n    why: " << f.risk << "\n    fix: " << f.fix << "\n";
  }
  return findings.empty() ? "  (none)\n" : out.str();
}

const ScannerFinding* findingOf(const std::vector<ScannerFinding>& findings,
                                const std::string& path, Kind kind) {
  for (const ScannerFinding& f : findings) {
    if (f.path == path && f.kind == kind) return &f;
  }
  return nullptr;
}

std::size_t countOf(const std::vector<ScannerFinding>& findings, Kind kind) {
  std::size_t n = 0;
  for (const ScannerFinding& f : findings) n += f.kind == kind ? 1 : 0;
  return n;
}

std::string realPathOf(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? std::string(real.get()) : path;
}

// Runs bash -c command (fix commands may use bash's $'...') without a
// shell in between; returns the exit status, the standard output in output.
int runBash(const std::string& command, std::string* output = nullptr) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return -1;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(fds[1], 1);
    const int devNull = ::open("/dev/null", O_WRONLY);
    if (devNull >= 0) ::dup2(devNull, 2);
    ::execlp("bash", "bash", "-c", command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(fds[1]);
  std::string out;
  char buffer[4096];
  ssize_t n = 0;
  while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
    out.append(buffer, static_cast<std::size_t>(n));
  ::close(fds[0]);
  int status = 0;
  if (pid < 0 || ::waitpid(pid, &status, 0) != pid) return -1;
  if (output != nullptr) *output = out;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string bashOutput(const std::string& command) {
  std::string out;
  runBash(command, &out);
  return out;
}

void setMode(const std::string& path, mode_t mode) {
  ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

void makeDir(const std::string& path, mode_t mode = 0755) {
  ASSERT_EQ(::mkdir(path.c_str(), mode), 0) << path;
  setMode(path, mode);
}

void makeLink(const std::string& target, const std::string& path) {
  ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0) << path;
}

// root/ (0755) holds the scanner directory root/scan (0755) and whatever a
// test puts beside it. Findings about the directories above root belong to
// the machine the test runs on, so the checks look only at paths below root.
class ScannerSafetyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Root = realPathOf(m_Temp.path());
    setMode(m_Root, 0755);
    m_Dir = m_Root + "/scan";
    makeDir(m_Dir);
  }

  const std::string& root() const { return m_Root; }
  const std::string& dir() const { return m_Dir; }
  std::string inDir(const std::string& name) const { return m_Dir + "/" + name; }
  std::string inRoot(const std::string& name) const { return m_Root + "/" + name; }

  std::vector<ScannerFinding> belowRoot(const std::vector<ScannerFinding>& all) const {
    std::vector<ScannerFinding> kept;
    for (const ScannerFinding& f : all) {
      if (f.path.compare(0, m_Root.size() + 1, m_Root + "/") == 0 || f.path == m_Root) {
        kept.push_back(f);
      }
    }
    return kept;
  }
  std::vector<ScannerFinding> audit() const { return belowRoot(auditScannerDirectory(m_Dir)); }
  std::vector<ScannerFinding> auditOf(const std::string& directory) const {
    return belowRoot(auditScannerDirectory(directory));
  }

  static bool runningAsRoot() { return ::geteuid() == 0; }
  static uid_t nobody() {
    const struct passwd* entry = ::getpwnam("nobody");
    return entry != nullptr ? entry->pw_uid : 65534;
  }

 private:
  cstest::TempDir m_Temp;
  std::string m_Root;
  std::string m_Dir;
};

#define EXPECT_FINDING(findings, path, kind)                                              \
  EXPECT_NE(findingOf(findings, path, kind), nullptr)                                     \
      << "expected " << scannerFindingKindName(kind) << " for " << (path) << ", found:\n" \
      << describe(findings)

#define EXPECT_NO_FINDINGS(findings) \
  EXPECT_TRUE((findings).empty()) << "expected no findings, found:\n" << describe(findings)

// ------------------------------------------------------------ a clean directory

TEST_F(ScannerSafetyTest, CleanDirectoryHasNoFindings) {
  cstest::writeScript(inDir("kernel.sh"), "uname -r");
  cstest::writeFile(inDir("README.md"), "# scanners\n", 0644);
  cstest::writeFile(inDir("data.txt"), "not a program\n", 0600);
  makeDir(inDir("sub"));
  cstest::writeScript(inDir("sub/deep.sh"), "echo deep");
  cstest::installTestChild(inDir("child"));
  makeLink("kernel.sh", inDir("alias.sh"));
  makeLink("sub", inDir("sub-alias"));
  cstest::writeFile(inDir("with blank.sh"), "#!/bin/sh\necho reachable when quoted\n", 0755);
  EXPECT_NO_FINDINGS(audit());
}

TEST_F(ScannerSafetyTest, EmptyDirectoryHasNoFindings) { EXPECT_NO_FINDINGS(audit()); }

// ------------------------------------------------------------ writable

TEST_F(ScannerSafetyTest, FileWritableByOthersIsReportedWithItsModeAndFix) {
  cstest::writeScript(inDir("scan.sh"), "true");
  setMode(inDir("scan.sh"), 0757);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan.sh"), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "writable by others (mode 0757)");
  EXPECT_EQ(f->fix, "chmod go-w -- " + inDir("scan.sh"));
  EXPECT_NE(f->risk.find("root"), std::string::npos) << f->risk;
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, FileWritableByItsGroupIsReported) {
  cstest::writeScript(inDir("scan.sh"), "true");
  setMode(inDir("scan.sh"), 0775);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan.sh"), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "writable by its group (mode 0775)");
}

TEST_F(ScannerSafetyTest, DataFileWritableByOthersIsReportedToo) {
  // Whoever can write it can also make it a program.
  cstest::writeFile(inDir("README.md"), "text\n", 0666);
  EXPECT_FINDING(audit(), inDir("README.md"), Kind::Writable);
}

TEST_F(ScannerSafetyTest, ScannerDirectoryWritableByOthersIsReportedEvenWhenSticky) {
  setMode(dir(), 01777);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, dir(), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "writable by group and others, sticky (mode 1777)");
  EXPECT_NE(f->risk.find("add, replace or rename scanners"), std::string::npos) << f->risk;
}

TEST_F(ScannerSafetyTest, SubdirectoryWritableByItsGroupIsReported) {
  makeDir(inDir("sub"), 0775);
  cstest::writeScript(inDir("sub/x.sh"), "true");
  EXPECT_FINDING(audit(), inDir("sub"), Kind::Writable);
}

TEST_F(ScannerSafetyTest, DirectoryOnThePathWritableByOthersIsReported) {
  makeDir(inRoot("open"), 0777);
  makeDir(inRoot("open/scan"));
  const auto findings = auditOf(inRoot("open/scan"));
  const ScannerFinding* f = findingOf(findings, inRoot("open"), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("rename or replace"), std::string::npos) << f->risk;
  EXPECT_EQ(f->fix, "chmod go-w -- " + inRoot("open"));
}

TEST_F(ScannerSafetyTest, LinkOnThePathLeadsTheCheckToTheWritableDirectoryBehindIt) {
  // root/safe/scan is a link into a directory that anyone may write.
  makeDir(inRoot("open"), 0777);
  makeDir(inRoot("open/real"));
  makeDir(inRoot("safe"));
  makeLink("../open/real", inRoot("safe/scan"));
  const auto findings = auditOf(inRoot("safe/scan"));
  EXPECT_FINDING(findings, inRoot("open"), Kind::Writable);
}

TEST_F(ScannerSafetyTest, StickyDirectoryOnThePathIsAcceptedForAnEntryOfATrustedOwner) {
  makeDir(inRoot("tmp"), 01777);
  makeDir(inRoot("tmp/mine"));
  makeDir(inRoot("tmp/mine/scan"));
  EXPECT_NO_FINDINGS(auditOf(inRoot("tmp/mine/scan")));
}

TEST_F(ScannerSafetyTest, StickyParentOfTheScannerDirectoryIsReportedForTheSiblingsItAllows) {
  makeDir(inRoot("tmp"), 01777);
  makeDir(inRoot("tmp/scan"));
  const auto findings = auditOf(inRoot("tmp/scan"));
  const ScannerFinding* f = findingOf(findings, inRoot("tmp"), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("'scan2'"), std::string::npos) << f->risk;
  // Not "chmod go-w" on a shared sticky directory: the scanner directory moves.
  EXPECT_EQ(f->fix.rfind("install -d -m 0755 -- " + inRoot("tmp/scan.d"), 0), 0U) << f->fix;
}

TEST_F(ScannerSafetyTest, WritableParentOfTheScannerDirectoryNamesBothRisks) {
  setMode(root(), 0777);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, root(), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("rename or replace the scanner directory"), std::string::npos) << f->risk;
  EXPECT_NE(f->risk.find("'scan2'"), std::string::npos) << f->risk;
  EXPECT_EQ(countOf(findings, Kind::Writable), 1U) << describe(findings);
}

// ------------------------------------------------------------ owner

class ScannerSafetyOwnerTest : public ScannerSafetyTest {
 protected:
  void SetUp() override {
    ScannerSafetyTest::SetUp();
    if (!runningAsRoot()) {
      GTEST_SKIP() << "cannot change ownership: the test does not run as root";
    }
  }
  void giveToNobody(const std::string& path) const {
    ASSERT_EQ(::lchown(path.c_str(), nobody(), static_cast<gid_t>(-1)), 0) << path;
  }
};

TEST_F(ScannerSafetyOwnerTest, FileOwnedByAnotherUserIsReported) {
  cstest::writeScript(inDir("scan.sh"), "true");
  giveToNobody(inDir("scan.sh"));
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan.sh"), Kind::ForeignOwner);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->problem.find("(uid " + std::to_string(nobody()) + "), not by root"),
            std::string::npos)
      << f->problem;
  EXPECT_EQ(f->fix, "chown root -- " + inDir("scan.sh"));
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyOwnerTest, DirectoryOnThePathOwnedByAnotherUserIsReported) {
  makeDir(inRoot("theirs"));
  makeDir(inRoot("theirs/scan"));
  giveToNobody(inRoot("theirs"));
  EXPECT_FINDING(auditOf(inRoot("theirs/scan")), inRoot("theirs"), Kind::ForeignOwner);
}

TEST_F(ScannerSafetyOwnerTest, ScannerDirectoryOwnedByAnotherUserIsReported) {
  giveToNobody(dir());
  EXPECT_FINDING(audit(), dir(), Kind::ForeignOwner);
}

TEST_F(ScannerSafetyOwnerTest, EntryOfAnotherUserInAStickyDirectoryIsReported) {
  makeDir(inRoot("tmp"), 01777);
  makeDir(inRoot("tmp/theirs"));
  makeDir(inRoot("tmp/theirs/scan"));
  giveToNobody(inRoot("tmp/theirs"));
  const auto findings = auditOf(inRoot("tmp/theirs/scan"));
  EXPECT_FINDING(findings, inRoot("tmp/theirs"), Kind::ForeignOwner);
  EXPECT_EQ(findingOf(findings, inRoot("tmp"), Kind::Writable), nullptr) << describe(findings);
}

TEST_F(ScannerSafetyOwnerTest, LinkOfAnotherUserInAStickyDirectoryIsReported) {
  makeDir(inRoot("tmp"), 01777);
  makeDir(inRoot("real"));
  makeLink("../real", inRoot("tmp/scan-link"));
  giveToNobody(inRoot("tmp/scan-link"));
  const std::vector<ScannerFinding> findings =
      belowRoot(checkProgramSafety(inRoot("tmp/scan-link")));
  const ScannerFinding* f = findingOf(findings, inRoot("tmp/scan-link"), Kind::ForeignOwner);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->fix, "chown -h root -- " + inRoot("tmp/scan-link"));
}

TEST_F(ScannerSafetyOwnerTest, InterpreterOwnedByAnotherUserIsReported) {
  cstest::writeFile(inRoot("interp"), "#!/bin/sh\nexec /bin/sh \"$@\"\n", 0755);
  giveToNobody(inRoot("interp"));
  cstest::writeFile(inDir("scan"), "#!" + inRoot("interp") + "\necho hi\n", 0755);
  EXPECT_FINDING(audit(), inRoot("interp"), Kind::ForeignOwner);
}

// ------------------------------------------------------------ links

TEST_F(ScannerSafetyTest, LinkToAFileOutsideIsReportedWithWhereItLeads) {
  makeDir(inRoot("outside"));
  cstest::writeScript(inRoot("outside/tool"), "true");
  makeLink("../outside/tool", inDir("tool"));
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("tool"), Kind::LinkLeavesDirectory);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->target, inRoot("outside/tool"));
  EXPECT_EQ(f->problem, "symbolic link to '../outside/tool', which leads to '" +
                            inRoot("outside/tool") + "', outside the scanner directory");
  EXPECT_EQ(f->fix, "cp --remove-destination -- " + inRoot("outside/tool") + " " + inDir("tool"));
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, LinkToAFileOthersCanWriteShowsBothFindings) {
  cstest::writeScript(inRoot("open-tool"), "true");
  setMode(inRoot("open-tool"), 0777);
  makeLink(inRoot("open-tool"), inDir("tool"));
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir("tool"), Kind::LinkLeavesDirectory);
  EXPECT_FINDING(findings, inRoot("open-tool"), Kind::Writable);
}

TEST_F(ScannerSafetyTest, LinkToADirectoryOutsideIsReportedAndNotWalked) {
  makeDir(inRoot("elsewhere"));
  cstest::writeFile(inRoot("elsewhere/bad"), "no interpreter line", 0777);
  makeLink("/", inDir("up"));
  makeLink(inRoot("elsewhere"), inDir("else"));
  const auto findings = audit();
  const ScannerFinding* up = findingOf(findings, inDir("up"), Kind::LinkLeavesDirectory);
  ASSERT_NE(up, nullptr) << describe(findings);
  EXPECT_EQ(up->target, "/");
  EXPECT_EQ(up->fix, "rm -- " + inDir("up"));
  EXPECT_NE(up->risk.find("'up/PROGRAM'"), std::string::npos) << up->risk;
  EXPECT_FINDING(findings, inDir("else"), Kind::LinkLeavesDirectory);
  EXPECT_EQ(findings.size(), 2U) << describe(findings);
}

TEST_F(ScannerSafetyTest, LinkIntoASiblingThatSharesThePrefixLeavesTheDirectory) {
  makeDir(inRoot("scanners-old"));
  cstest::writeScript(inRoot("scanners-old/x.sh"), "true");
  makeLink("../scanners-old/x.sh", inDir("x.sh"));
  EXPECT_FINDING(audit(), inDir("x.sh"), Kind::LinkLeavesDirectory);
}

TEST_F(ScannerSafetyTest, BrokenLinkIsReported) {
  makeLink("/nonexistent/cs-doctor-target", inDir("gone"));
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("gone"), Kind::BrokenLink);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "symbolic link to '/nonexistent/cs-doctor-target', which does not exist");
  EXPECT_EQ(f->target, "/nonexistent/cs-doctor-target");
  EXPECT_EQ(f->fix, "rm -- " + inDir("gone"));
}

TEST_F(ScannerSafetyTest, LinkLoopIsReportedAsBroken) {
  makeLink("b", inDir("a"));
  makeLink("a", inDir("b"));
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir("a"), Kind::BrokenLink);
  EXPECT_FINDING(findings, inDir("b"), Kind::BrokenLink);
  EXPECT_NE(findingOf(findings, inDir("a"), Kind::BrokenLink)->problem.find("cannot be resolved"),
            std::string::npos);
}

TEST_F(ScannerSafetyTest, LinkToTheDirectoryItselfIsNotWalkedTwice) {
  makeLink(".", inDir("self"));
  makeLink("..", inDir("parent"));
  cstest::writeScript(inDir("x.sh"), "true");
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir("parent"), Kind::LinkLeavesDirectory);
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

// ------------------------------------------------------------ programs and scripts

TEST_F(ScannerSafetyTest, ScriptWithoutExecutePermissionIsReported) {
  cstest::writeFile(inDir("scan.sh"), "#!/bin/sh\necho hi\n", 0644);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan.sh"), Kind::NotExecutable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "no one may execute it (mode 0644)");
  EXPECT_EQ(f->fix, "chmod a+x -- " + inDir("scan.sh"));
  EXPECT_NE(f->risk.find("CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS"), std::string::npos);
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, BinaryWithoutExecutePermissionIsReported) {
  cstest::installTestChild(inDir("child"));
  setMode(inDir("child"), 0644);
  EXPECT_FINDING(audit(), inDir("child"), Kind::NotExecutable);
}

TEST_F(ScannerSafetyTest, FileWithoutExecutePermissionThatLooksLikeDataIsNotReported) {
  cstest::writeFile(inDir("README.md"), "# notes\n", 0644);
  cstest::writeFile(inDir("config"), "key=value\n", 0600);
  cstest::writeFile(inDir("empty"), "", 0644);
  EXPECT_NO_FINDINGS(audit());
}

TEST_F(ScannerSafetyTest, ScriptSuffixWithoutPermissionOrInterpreterLineGivesBothFindings) {
  cstest::writeFile(inDir("scan.sh"), "echo forgot the first line\n", 0644);
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir("scan.sh"), Kind::NotExecutable);
  EXPECT_FINDING(findings, inDir("scan.sh"), Kind::NoInterpreterLine);
}

TEST_F(ScannerSafetyTest, ExecutableWithoutInterpreterLineIsReported) {
  cstest::writeFile(inDir("scan"), "echo hi\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan"), Kind::NoInterpreterLine);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem,
            "it is neither a binary program nor a script whose first line starts with #!");
  EXPECT_EQ(f->fix, "sed -i '1i #!/bin/sh' -- " + inDir("scan"));
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, EmptyExecutableIsReported) {
  cstest::writeFile(inDir("scan"), "", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("scan"), Kind::NoInterpreterLine);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "it is empty");
}

TEST_F(ScannerSafetyTest, InterpreterLineEndingInCarriageReturnIsReportedOnce) {
  cstest::writeFile(inDir("dos.sh"), "#!/bin/sh\r\necho hi\r\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("dos.sh"), Kind::InterpreterLineEndsInCr);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->fix, "sed -i 's/\\r$//' -- " + inDir("dos.sh"));
  EXPECT_NE(f->risk.find("CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS"), std::string::npos)
      << f->risk;
  // The interpreter is /bin/sh once the CR is gone: no second finding.
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, InterpreterLineWithAnArgumentEndingInCarriageReturnIsReported) {
  // The process starts; env then looks for "sh\r" and fails.
  cstest::writeFile(inDir("env.sh"), "#!/usr/bin/env sh\r\necho hi\r\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("env.sh"), Kind::InterpreterLineEndsInCr);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED"), std::string::npos)
      << f->risk;
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, MissingInterpreterIsReportedWithItsName) {
  cstest::writeFile(inDir("py.sh"), "#!/nonexistent/bin/python3 -u\nprint(1)\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("py.sh"), Kind::MissingInterpreter);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem,
            "its #! line names the interpreter '/nonexistent/bin/python3', which does not exist");
  EXPECT_EQ(f->target, "/nonexistent/bin/python3");
  EXPECT_NE(f->fix.find("command -v python3"), std::string::npos) << f->fix;
}

TEST_F(ScannerSafetyTest, InterpreterGivenByARelativePathIsReported) {
  cstest::writeFile(inDir("rel.sh"), "#! sh\necho hi\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("rel.sh"), Kind::MissingInterpreter);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "its #! line names the interpreter 'sh' by a relative path");
}

TEST_F(ScannerSafetyTest, InterpreterLineNamingNothingIsReported) {
  cstest::writeFile(inDir("none.sh"), "#!\necho hi\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("none.sh"), Kind::MissingInterpreter);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "its #! line names no interpreter");
}

TEST_F(ScannerSafetyTest, InterpreterThatCannotBeExecutedIsReported) {
  cstest::writeFile(inRoot("not-a-program"), "text\n", 0644);
  cstest::writeFile(inDir("x.sh"), "#!" + inRoot("not-a-program") + "\n", 0755);
  makeDir(inRoot("a-directory"));
  cstest::writeFile(inDir("y.sh"), "#!" + inRoot("a-directory") + "\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir("x.sh"), Kind::MissingInterpreter);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->problem.find("which cannot be executed"), std::string::npos) << f->problem;
  EXPECT_FINDING(findings, inDir("y.sh"), Kind::MissingInterpreter);
}

TEST_F(ScannerSafetyTest, InterpreterOthersCanWriteIsReportedOnceForAllItsScripts) {
  cstest::writeFile(inRoot("interp"), "#!/bin/sh\nexec /bin/sh \"$@\"\n", 0757);
  cstest::writeFile(inDir("a"), "#!" + inRoot("interp") + "\necho a\n", 0755);
  cstest::writeFile(inDir("b"), "#!" + inRoot("interp") + " -x\necho b\n", 0755);
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inRoot("interp"), Kind::Writable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("every script naming it"), std::string::npos) << f->risk;
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

// A small file system mounted noexec for the test's life (root only).
class NoexecMount {
 public:
  explicit NoexecMount(const std::string& path) : m_Path(path) {
    m_Mounted = ::mount("cs-doctor", path.c_str(), "tmpfs", MS_NOEXEC | MS_NOSUID | MS_NODEV,
                        "size=1m,mode=0755") == 0;
  }
  NoexecMount(const NoexecMount&) = delete;
  NoexecMount& operator=(const NoexecMount&) = delete;
  ~NoexecMount() {
    if (m_Mounted) ::umount2(m_Path.c_str(), MNT_DETACH);
  }
  bool mounted() const { return m_Mounted; }

 private:
  std::string m_Path;
  bool m_Mounted = false;
};

TEST_F(ScannerSafetyTest, ExecutableOnANoexecMountIsReportedWithTheMountPoint) {
  makeDir(inRoot("mnt"));
  const NoexecMount mount(inRoot("mnt"));
  if (!mount.mounted()) {
    GTEST_SKIP() << "cannot mount a noexec file system here: " << std::strerror(errno);
  }
  makeDir(inRoot("mnt/scan"));
  cstest::writeFile(inRoot("mnt/scan/scan.sh"), "#!/bin/sh\necho hi\n", 0755);
  const auto findings = auditOf(inRoot("mnt/scan"));
  const ScannerFinding* f = findingOf(findings, inRoot("mnt/scan/scan.sh"), Kind::NotExecutable);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "it lies on a file system mounted noexec ('" + inRoot("mnt") + "')");
  EXPECT_EQ(f->fix, "mount -o remount,exec -- " + inRoot("mnt"));
  EXPECT_EQ(findings.size(), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, ExecutableTheCheckCannotReadIsReportedAsUninspectable) {
  if (runningAsRoot()) GTEST_SKIP() << "root reads every file: cannot make one unreadable";
  cstest::installTestChild(inDir("child"));
  setMode(inDir("child"), 0311);
  EXPECT_FINDING(audit(), inDir("child"), Kind::Uninspectable);
}

// ------------------------------------------------------------ names

struct NameCase {
  const char* name;
  bool reachable;
};

const NameCase kNames[] = {
    {"plain.sh", true},         {"with blank.sh", true},  // reachable when the command quotes it
    {"tab\tinside", true},      {"new\nline", true},         {"sub dir/x", true},
    {"sub /x", true},           {"\xff\xfe-not-utf8", true}, {"quote\"inside", false},
    {"\"leading-quote", false}, {"trailing-quote\"", false}, {" leading-blank", false},
    {"trailing-blank ", false}, {"trailing-tab\t", false},   {"\tleading-tab", false},
    {"trailing-cr\r", false},   {"dir\"quote/x", false},     {" dir/x", false},
    {"sub/x ", false},
};

TEST(ScannerNameTest, ReachableNamesAsTheCommandGateSeesThem) {
  for (const NameCase& c : kNames) {
    EXPECT_EQ(scannerNameIsReachable(c.name), c.reachable) << "[" << c.name << "]";
  }
  EXPECT_FALSE(scannerNameIsReachable(""));
}

// The gate itself, given the name plain and quoted, with and without
// parameters: a reachable name resolves to the file in one of the forms, an
// unreachable one in none.
TEST_F(ScannerSafetyTest, ReachabilityAgreesWithTheCommandGate) {
  for (const NameCase& c : kNames) {
    const std::string path = inDir(c.name);
    cstest::writeFile(path, "#!/bin/sh\necho hi\n", 0755);
    const std::string name = c.name;
    const std::string forms[] = {name, "\"" + name + "\"", name + " -a", "\"" + name + "\" -a"};
    bool resolvedToIt = false;
    for (const std::string& command : forms) {
      String resolved;
      const TErrorCode rc =
          CustomScanPlugin::CommandGate::resolve(String(dir().data(), dir().size()), "test", "test",
                                                 String(command.data(), command.size()), resolved);
      if (rc != 0) continue;
      const std::vector<std::string> words = hostSplitCommandLine(resolved);
      if (!words.empty() && words[0] == path) resolvedToIt = true;
    }
    EXPECT_EQ(resolvedToIt, c.reachable) << "[" << c.name << "]";
    const auto findings = audit();
    EXPECT_EQ(findingOf(findings, path, Kind::UnreachableName) == nullptr, c.reachable)
        << "[" << c.name << "]\n"
        << describe(findings);
    ::unlink(path.c_str());
  }
}

TEST_F(ScannerSafetyTest, UnreachableNameIsReportedWithARename) {
  cstest::writeScript(inDir("my\"scan.sh"), "true");
  cstest::writeScript(inDir("trail.sh "), "true");
  const auto findings = audit();
  const ScannerFinding* quote = findingOf(findings, inDir("my\"scan.sh"), Kind::UnreachableName);
  ASSERT_NE(quote, nullptr) << describe(findings);
  EXPECT_EQ(quote->fix, "mv -- '" + inDir("my\"scan.sh") + "' " + inDir("myscan.sh"));
  const ScannerFinding* blank = findingOf(findings, inDir("trail.sh "), Kind::UnreachableName);
  ASSERT_NE(blank, nullptr) << describe(findings);
  EXPECT_EQ(blank->fix, "mv -- '" + inDir("trail.sh ") + "' " + inDir("trail.sh"));
}

TEST_F(ScannerSafetyTest, UnreachableDirectoryNameRenamesTheDirectory) {
  makeDir(inDir(" sub"));
  cstest::writeScript(inDir(" sub/x.sh"), "true");
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inDir(" sub/x.sh"), Kind::UnreachableName);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->fix, "mv -- '" + inDir(" sub") + "' " + inDir("sub"));
}

TEST_F(ScannerSafetyTest, UnreachableNameOfADataFileIsNotReported) {
  cstest::writeFile(inDir("notes \"draft\".txt"), "text\n", 0644);
  EXPECT_NO_FINDINGS(audit());
}

// ------------------------------------------------------------ siblings

TEST_F(ScannerSafetyTest, SiblingsThatShareThePrefixAreReported) {
  makeDir(inRoot("scan2"));
  cstest::writeScript(inRoot("scan.sh"), "true");
  makeDir(inRoot("other"));
  makeDir(inRoot("sca"));
  const auto findings = audit();
  const ScannerFinding* d = findingOf(findings, inRoot("scan2"), Kind::SiblingPrefix);
  ASSERT_NE(d, nullptr) << describe(findings);
  EXPECT_NE(d->risk.find("'../scan2/PROGRAM'"), std::string::npos) << d->risk;
  EXPECT_EQ(d->fix, "install -d -m 0755 -- " + inRoot("scan.d") + " && mv -- " + dir() + " " +
                        inRoot("scan.d/") + "  # then configure the scanner directory " +
                        inRoot("scan.d/scan"));
  const ScannerFinding* f = findingOf(findings, inRoot("scan.sh"), Kind::SiblingPrefix);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_NE(f->risk.find("'../scan.sh' runs it"), std::string::npos) << f->risk;
  EXPECT_EQ(countOf(findings, Kind::SiblingPrefix), 2U) << describe(findings);
}

TEST_F(ScannerSafetyTest, SiblingReportedIsOneTheCommandGateLetsRun) {
  makeDir(inRoot("scan2"));
  cstest::writeScript(inRoot("scan2/prog"), "true");
  String resolved;
  const std::string command = "../scan2/prog";
  EXPECT_EQ(CustomScanPlugin::CommandGate::resolve(String(dir().data(), dir().size()), "test",
                                                   "test", String(command.c_str()), resolved),
            0);
  EXPECT_FINDING(audit(), inRoot("scan2"), Kind::SiblingPrefix);
}

TEST_F(ScannerSafetyTest, TrailingSeparatorLeavesNoPrefixForSiblings) {
  makeDir(inRoot("scan2"));
  EXPECT_EQ(countOf(auditOf(dir() + "/"), Kind::SiblingPrefix), 0U);
}

TEST_F(ScannerSafetyTest, FixForSiblingsMovesTheDirectoryIntoAParentOfItsOwn) {
  makeDir(inRoot("scan2"));
  cstest::writeScript(inDir("x.sh"), "true");
  const auto findings = audit();
  const ScannerFinding* f = findingOf(findings, inRoot("scan2"), Kind::SiblingPrefix);
  ASSERT_NE(f, nullptr) << describe(findings);
  ASSERT_EQ(runBash(f->fix), 0) << f->fix;
  EXPECT_NO_FINDINGS(auditOf(inRoot("scan.d/scan")));
}

// ------------------------------------------------------------ the setting

TEST_F(ScannerSafetyTest, UnsetDirectoryIsReported) {
  const auto findings = auditScannerDirectory("");
  ASSERT_EQ(findings.size(), 1U) << describe(findings);
  EXPECT_EQ(findings[0].kind, Kind::DirectorySetting);
}

TEST_F(ScannerSafetyTest, DirectoryWithADoubleQuoteIsReported) {
  makeDir(inRoot("q\"s"));
  makeDir(inRoot("q\"s/scan"));
  const std::string configured = inRoot("q\"s/scan");
  const auto findings = auditOf(configured);
  const ScannerFinding* f = findingOf(findings, configured, Kind::DirectorySetting);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->fix,
            "mv -- '" + inRoot("q\"s") + "' " + inRoot("qs") + "  # and configure the new path");
}

TEST_F(ScannerSafetyTest, RelativeDirectoryIsReported) {
  const auto findings = auditScannerDirectory("relative/scan");
  EXPECT_NE(findingOf(findings, "relative/scan", Kind::DirectorySetting), nullptr)
      << describe(findings);
}

TEST_F(ScannerSafetyTest, DirectoryNotInNormalFormIsReported) {
  const std::string configured = root() + "/./scan";
  const auto findings = auditOf(configured);
  const ScannerFinding* f = findingOf(findings, configured, Kind::DirectorySetting);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "the directory is not in normal form ('" + dir() + "')");
}

TEST_F(ScannerSafetyTest, RootDirectoryIsReportedAndNotWalked) {
  const auto findings = auditScannerDirectory("/");
  ASSERT_EQ(countOf(findings, Kind::DirectorySetting), 1U) << describe(findings);
  EXPECT_EQ(findings[0].problem, "the scanner directory is the root directory");
}

TEST_F(ScannerSafetyTest, LinkToTheRootDirectoryIsReportedAndNotWalked) {
  makeLink("/", inRoot("everything"));
  const auto findings = auditScannerDirectory(inRoot("everything"));
  EXPECT_NE(findingOf(findings, inRoot("everything"), Kind::DirectorySetting), nullptr)
      << describe(findings);
}

TEST_F(ScannerSafetyTest, MissingDirectoryIsReported) {
  const auto findings = auditOf(inRoot("missing"));
  const ScannerFinding* f = findingOf(findings, inRoot("missing"), Kind::NotADirectory);
  ASSERT_NE(f, nullptr) << describe(findings);
  EXPECT_EQ(f->problem, "does not exist");
  EXPECT_EQ(f->fix, "install -d -m 0755 -- " + inRoot("missing"));
}

TEST_F(ScannerSafetyTest, FileInsteadOfADirectoryIsReported) {
  cstest::writeFile(inRoot("file"), "x", 0644);
  EXPECT_FINDING(auditOf(inRoot("file")), inRoot("file"), Kind::NotADirectory);
}

// ------------------------------------------------------------ checkProgramSafety

TEST_F(ScannerSafetyTest, SafeProgramHasNoFindings) {
  cstest::writeScript(inDir("ok.sh"), "true");
  EXPECT_NO_FINDINGS(belowRoot(checkProgramSafety(inDir("ok.sh"))));
}

TEST_F(ScannerSafetyTest, ProgramCheckReportsOnlyOwnershipAndPermissions) {
  // Not executable, no interpreter line, a quote in the name: none of these
  // is the program check's business.
  cstest::writeFile(inDir("odd\"name"), "echo hi\n", 0646);
  const auto findings = belowRoot(checkProgramSafety(inDir("odd\"name")));
  ASSERT_EQ(findings.size(), 1U) << describe(findings);
  EXPECT_EQ(findings[0].kind, Kind::Writable);
}

TEST_F(ScannerSafetyTest, ProgramCheckFollowsLinksToTheProgramAndItsDirectories) {
  makeDir(inRoot("open"), 0777);
  cstest::writeScript(inRoot("open/tool"), "true");
  setMode(inRoot("open/tool"), 0775);
  makeLink("../open/tool", inDir("tool"));
  const auto findings = belowRoot(checkProgramSafety(inDir("tool")));
  EXPECT_FINDING(findings, inRoot("open"), Kind::Writable);
  EXPECT_FINDING(findings, inRoot("open/tool"), Kind::Writable);
}

TEST_F(ScannerSafetyTest, ProgramCheckOfAMissingProgramIsUninspectable) {
  const auto findings = checkProgramSafety(inDir("missing"));
  ASSERT_EQ(findings.size(), 1U) << describe(findings);
  EXPECT_EQ(findings[0].kind, Kind::Uninspectable);
  EXPECT_EQ(findings[0].path, inDir("missing"));
  EXPECT_NE(findings[0].problem.find("No such file or directory"), std::string::npos);
}

TEST_F(ScannerSafetyTest, ProgramCheckOfALinkLoopIsUninspectable) {
  makeLink("b", inDir("a"));
  makeLink("a", inDir("b"));
  const auto findings = checkProgramSafety(inDir("a"));
  ASSERT_EQ(countOf(findings, Kind::Uninspectable), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, ProgramCheckThroughAFileOnThePathIsUninspectable) {
  cstest::writeScript(inDir("x.sh"), "true");
  const auto findings = checkProgramSafety(inDir("x.sh/y"));
  ASSERT_EQ(countOf(findings, Kind::Uninspectable), 1U) << describe(findings);
}

TEST_F(ScannerSafetyTest, ProgramCheckOfAnEmptyPathIsUninspectable) {
  const auto findings = checkProgramSafety("");
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].kind, Kind::Uninspectable);
}

TEST_F(ScannerSafetyTest, ProgramCheckFoldsParentStepsAfterLinksAsTheKernelDoes) {
  // link/.. is the parent of the link's target, not the link's directory.
  makeDir(inRoot("open"), 0777);
  makeDir(inRoot("open/inner"));
  cstest::writeScript(inRoot("open/tool"), "true");
  makeLink("../open/inner", inDir("in"));
  const auto findings = belowRoot(checkProgramSafety(inDir("in/../tool")));
  EXPECT_FINDING(findings, inRoot("open"), Kind::Writable);
}

// ------------------------------------------------------------ fixes

TEST_F(ScannerSafetyTest, EveryFixCommandRepairsWhatItReports) {
  cstest::writeScript(inDir("open.sh"), "true");
  setMode(inDir("open.sh"), 0777);
  makeDir(inDir("sub"), 0777);
  cstest::writeFile(inDir("sub/noexec.sh"), "#!/bin/sh\necho hi\n", 0644);
  cstest::writeFile(inDir("dos.sh"), "#!/bin/sh\r\necho hi\r\n", 0755);
  cstest::writeFile(inDir("plain"), "echo hi\n", 0755);
  cstest::writeFile(inDir("empty"), "", 0755);
  cstest::writeFile(inDir("py"), "#!/nonexistent/bin/sh -e\necho hi\n", 0755);
  cstest::writeScript(inDir("it's \"odd\""), "true");
  cstest::writeScript(inDir("new\nline "), "true");
  cstest::writeScript(inRoot("outside.sh"), "true");
  makeLink("../outside.sh", inDir("linked.sh"));
  makeLink("nowhere", inDir("broken"));
  const auto before = audit();
  ASSERT_GE(before.size(), 10U) << describe(before);
  for (const ScannerFinding& f : before) {
    EXPECT_EQ(runBash(f.fix), 0) << f.fix;
  }
  EXPECT_NO_FINDINGS(audit()) << "after the fixes of:\n" << describe(before);
}

TEST_F(ScannerSafetyTest, FixedScriptsRun) {
  cstest::writeFile(inDir("dos.sh"), "#!/bin/sh\r\necho dos\n", 0755);
  cstest::writeFile(inDir("plain"), "echo plain\n", 0755);
  for (const ScannerFinding& f : audit()) ASSERT_EQ(runBash(f.fix), 0) << f.fix;
  EXPECT_EQ(bashOutput(inDir("dos.sh")), "dos\n");
  EXPECT_EQ(bashOutput(inDir("plain")), "plain\n");
}

// ------------------------------------------------------------ shell words

TEST(ScannerShellWordTest, QuotesOnlyWhatTheShellWouldChange) {
  const std::pair<std::string, std::string> cases[] = {
      {"/opt/scan/kernel.sh", "/opt/scan/kernel.sh"},
      {"a-b_c.d+e,f:g=h@i%j", "a-b_c.d+e,f:g=h@i%j"},
      {"", "''"},
      {"with blank", "'with blank'"},
      {"it's", "'it'\\''s'"},
      {"$HOME", "'$HOME'"},
      {"caf\xc3\xa9", "'caf\xc3\xa9'"},
      {"a\nb", "$'a\\x0Ab'"},
      {"bad\xff", "$'bad\\xFF'"},
      {"it's\t\\", "$'it\\'s\\x09\\\\'"},
      {"~user", "'~user'"},
  };
  for (const auto& c : cases) EXPECT_EQ(scannerShellWord(c.first), c.second) << c.first;
}

TEST(ScannerShellWordTest, BashReadsEveryWordBackAsTheBytesItHolds) {
  std::string all;
  for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
  const std::string words[] = {"plain",
                               "it's",
                               "a\nb\tc\rd",
                               "\xff\xfe",
                               "caf\xc3\xa9 \"q\"",
                               "$(touch /nonexistent)",
                               "back\\slash'",
                               all};
  for (const std::string& w : words) {
    EXPECT_EQ(bashOutput("printf %s " + scannerShellWord(w)), w) << scannerShellWord(w);
  }
}

// ------------------------------------------------------------ large and pathological

TEST_F(ScannerSafetyTest, DeepTreeIsWalkedToTheBottom) {
  std::string path = dir();
  for (int i = 0; i < 300; ++i) {
    path += "/d";
    makeDir(path);
  }
  cstest::writeFile(path + "/bottom", "echo no interpreter line\n", 0755);
  const auto findings = audit();
  EXPECT_FINDING(findings, path + "/bottom", Kind::NoInterpreterLine);
  EXPECT_EQ(findings.size(), 1U);
}

TEST_F(ScannerSafetyTest, ManyFilesAreAllChecked) {
  for (int i = 0; i < 3000; ++i)
    cstest::writeScript(inDir("s" + std::to_string(i) + ".sh"), "true");
  setMode(inDir("s2999.sh"), 0777);
  setMode(inDir("s17.sh"), 0644);
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir("s2999.sh"), Kind::Writable);
  EXPECT_FINDING(findings, inDir("s17.sh"), Kind::NotExecutable);
  EXPECT_EQ(findings.size(), 2U) << describe(findings);
}

TEST_F(ScannerSafetyTest, LongNamesAndLongInterpreterLinesAreHandled) {
  const std::string longName(255, 'n');
  cstest::writeFile(inDir(longName), "#!/bin/" + std::string(1000, 'x') + "\n", 0755);
  const auto findings = audit();
  EXPECT_FINDING(findings, inDir(longName), Kind::MissingInterpreter);
}

TEST_F(ScannerSafetyTest, PipeInTheDirectoryIsNotOpened) {
  ASSERT_EQ(::mkfifo(inDir("fifo").c_str(), 0755), 0);
  makeLink("fifo", inDir("fifo-link"));
  // A hang here would be a pipe opened for reading with no writer.
  EXPECT_NO_FINDINGS(audit());
}

TEST_F(ScannerSafetyTest, UnlistableSubdirectoryIsUninspectable) {
  if (runningAsRoot()) GTEST_SKIP() << "root lists every directory: cannot make one unlistable";
  makeDir(inDir("closed"), 0311);
  EXPECT_FINDING(audit(), inDir("closed"), Kind::Uninspectable);
  setMode(inDir("closed"), 0755);
}

TEST(ScannerFindingKindTest, EveryKindHasItsOwnName) {
  const Kind kinds[] = {Kind::Writable,
                        Kind::ForeignOwner,
                        Kind::LinkLeavesDirectory,
                        Kind::BrokenLink,
                        Kind::NotExecutable,
                        Kind::NoInterpreterLine,
                        Kind::InterpreterLineEndsInCr,
                        Kind::MissingInterpreter,
                        Kind::UnreachableName,
                        Kind::SiblingPrefix,
                        Kind::DirectorySetting,
                        Kind::NotADirectory,
                        Kind::Uninspectable};
  std::vector<std::string> names;
  for (Kind kind : kinds) {
    const std::string name = scannerFindingKindName(kind);
    EXPECT_NE(name, "unknown");
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 0) << name;
    names.push_back(name);
  }
}

}  // namespace
