"""customscan doctor: every finding about a scanner directory, each in a
directory the test builds, and silence on the shipped examples."""

import json
import os
import pwd
import shutil
import stat
import subprocess
import tempfile
import unittest

from e2e_support import (EXAMPLES, EXIT_CODE, EXIT_OK, EXIT_USAGE, SOURCE_DIR, clean_environment, run,
                         text)

SCRIPT = "#!/bin/sh\necho hi\n"


def is_root():
    return os.geteuid() == 0


def trusted(uid):
    return uid in (0, os.geteuid())


def unsafe_ancestors(path):
    """The directories above path that doctor would rightly report: owned by
    someone else, or writable by group or others without the sticky bit."""
    found = []
    current = os.path.realpath(path)
    while current != "/":
        current = os.path.dirname(current)
        st = os.stat(current)
        writable = st.st_mode & 0o022 and not st.st_mode & stat.S_ISVTX
        if not trusted(st.st_uid) or writable:
            found.append(current)
    return found


class SafeRoot:
    """A temporary directory of mode 0755 (its parent is the system's
    temporary directory) holding the scanner directory scan/ (0755)."""

    def __init__(self):
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="cs-doctor-"))
        os.chmod(self.root, 0o755)
        self.dir = os.path.join(self.root, "scan")
        os.mkdir(self.dir)
        os.chmod(self.dir, 0o755)

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def beside(self, *parts):
        return os.path.join(self.root, *parts)

    def write(self, name, content, mode=0o755):
        path = self.path(name) if not os.path.isabs(name) else name
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(content.encode("utf-8", "surrogateescape") if isinstance(content, str) else content)
        os.chmod(path, mode)
        return path

    def cleanup(self):
        for base, dirs, _ in os.walk(self.root):
            for d in dirs:
                p = os.path.join(base, d)
                if not os.path.islink(p):
                    os.chmod(p, 0o755)
        shutil.rmtree(self.root, ignore_errors=True)


def bash(command):
    return subprocess.run(["bash", "-c", command], stdout=subprocess.PIPE, stderr=subprocess.PIPE)


class DoctorTestCase(unittest.TestCase):
    def setUp(self):
        self.safe = SafeRoot()
        self.addCleanup(self.safe.cleanup)

    def doctor(self, *args, directory=None, **kwargs):
        return run(["doctor", "--scanner-dir", directory or self.safe.dir] + list(args), **kwargs)

    def findings(self, directory=None):
        """doctor --json on the directory: the findings about paths below the
        test's root (those above it belong to the machine)."""
        result = self.doctor("--json", directory=directory)
        self.assertIn(result.returncode, (EXIT_OK, EXIT_CODE), text(result.stderr))
        lines = [json.loads(line) for line in result.stdout.decode("utf-8").splitlines()]
        for finding in lines:
            for key in ("path", "kind", "problem", "why", "fix"):
                self.assertIsInstance(finding.get(key), str, finding)
                self.assertTrue(finding[key], finding)
        return [f for f in lines if f["path"].startswith(self.safe.root + "/") or f["path"] == self.safe.root]

    def kinds(self, findings):
        return sorted((f["path"], f["kind"]) for f in findings)

    def assertExit(self, result, status):
        self.assertEqual(result.returncode, status,
                         "exit status %d, expected %d\nstdout: %s\nstderr: %s" %
                         (result.returncode, status, text(result.stdout), text(result.stderr)))


class Examples(DoctorTestCase):
    def copy_examples_as_a_fresh_clone(self):
        """The examples with the modes git gives them in a clone made with
        umask 022: 0755 for an executable blob, 0644 for the others."""
        modes = {}
        listing = subprocess.run(["git", "-C", SOURCE_DIR, "ls-files", "-s", "examples/scanners"],
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        for line in listing.stdout.decode().splitlines():
            meta, path = line.split("\t", 1)
            modes[os.path.basename(path)] = 0o755 if meta.split()[0] == "100755" else 0o644
        used = {}
        for name in sorted(os.listdir(EXAMPLES)):
            source = os.path.join(EXAMPLES, name)
            # Without git (an unpacked archive, a repository of another owner),
            # the execute bit of the source tree.
            used[name] = modes.get(name, 0o755 if os.access(source, os.X_OK) else 0o644)
            shutil.copyfile(source, self.safe.path(name))
            os.chmod(self.safe.path(name), used[name])
        return used

    def test_shipped_examples_are_clean(self):
        above = unsafe_ancestors(self.safe.root)
        if above:
            self.skipTest("the temporary directory lies below %s, which doctor rightly reports" % above)
        modes = self.copy_examples_as_a_fresh_clone()
        self.assertEqual(modes["README.md"], 0o644)
        result = self.doctor()
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"")
        self.assertEqual(result.stderr, b"")
        result = self.doctor("--json")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"")

    def test_examples_in_the_source_tree_have_no_finding_of_their_own(self):
        # The source tree's modes come from whoever checked it out; only what
        # git itself records is asserted: no example is a link or lacks #!.
        result = run(["doctor", "--json", "--scanner-dir", EXAMPLES])
        self.assertIn(result.returncode, (EXIT_OK, EXIT_CODE))
        for line in result.stdout.decode("utf-8").splitlines():
            finding = json.loads(line)
            self.assertIn(finding["kind"], ("writable", "owner", "uninspectable"), finding)


class EachFinding(DoctorTestCase):
    """One problem a directory, and doctor names exactly it with its fix."""

    def assertOnly(self, path, kind, **expected):
        findings = self.findings()
        self.assertEqual(self.kinds(findings), [(path, kind)], json.dumps(findings, indent=1))
        for key, value in expected.items():
            self.assertIn(value, findings[0][key], findings[0])
        result = self.doctor()
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn(path + ": " + findings[0]["problem"] + "\n  why: ", out)
        self.assertIn("\n  fix: " + findings[0]["fix"] + "\n", out)
        self.assertIn("finding", text(result.stderr))
        return findings[0]

    def test_file_writable_by_others(self):
        path = self.safe.write("scan.sh", SCRIPT, 0o757)
        self.assertOnly(path, "writable", problem="writable by others (mode 0757)", fix="chmod go-w -- " + path)

    def test_file_writable_by_its_group(self):
        path = self.safe.write("scan.sh", SCRIPT, 0o775)
        self.assertOnly(path, "writable", problem="writable by its group (mode 0775)")

    def test_scanner_directory_writable_by_others(self):
        os.chmod(self.safe.dir, 0o777)
        self.assertOnly(self.safe.dir, "writable", why="add, replace or rename scanners")

    def test_subdirectory_writable_by_others(self):
        sub = self.safe.path("sub")
        os.mkdir(sub)
        os.chmod(sub, 0o777)
        self.assertOnly(sub, "writable")

    def test_directory_on_the_path_writable_by_others_through_a_link(self):
        # The configured directory is a link into a directory anyone may write.
        open_dir = self.safe.beside("open")
        os.mkdir(open_dir)
        os.chmod(open_dir, 0o777)
        os.mkdir(os.path.join(open_dir, "real"))
        os.chmod(os.path.join(open_dir, "real"), 0o755)
        shutil.rmtree(self.safe.dir)
        os.symlink("open/real", self.safe.dir)
        findings = self.findings()
        self.assertIn((open_dir, "writable"), self.kinds(findings))

    def test_directory_on_the_path_writable_by_others(self):
        open_dir = self.safe.beside("open")
        os.mkdir(open_dir)
        os.chmod(open_dir, 0o777)
        inner = os.path.join(open_dir, "scanners")
        os.mkdir(inner)
        os.chmod(inner, 0o755)
        findings = self.findings(directory=inner)
        self.assertEqual(self.kinds(findings), [(open_dir, "writable")], findings)

    def test_owned_by_another_user(self):
        if not is_root():
            self.skipTest("cannot change ownership: the test does not run as root")
        path = self.safe.write("scan.sh", SCRIPT)
        nobody = pwd.getpwnam("nobody").pw_uid
        os.chown(path, nobody, -1)
        self.assertOnly(path, "owner", problem="(uid %d), not by root" % nobody, fix="chown root -- " + path)

    def test_scanner_directory_owned_by_another_user(self):
        if not is_root():
            self.skipTest("cannot change ownership: the test does not run as root")
        os.chown(self.safe.dir, pwd.getpwnam("nobody").pw_uid, -1)
        self.assertOnly(self.safe.dir, "owner")

    def test_link_to_a_program_outside(self):
        outside = self.safe.write(self.safe.beside("tool"), SCRIPT)
        link = self.safe.path("tool")
        os.symlink(outside, link)
        finding = self.assertOnly(link, "link-outside", problem="outside the scanner directory",
                                  fix="cp --remove-destination -- %s %s" % (outside, link))
        self.assertEqual(finding["target"], outside)

    def test_link_to_a_directory_outside(self):
        link = self.safe.path("up")
        os.symlink("/", link)
        finding = self.assertOnly(link, "link-outside", why="'up/PROGRAM'", fix="rm -- " + link)
        self.assertEqual(finding["target"], "/")

    def test_broken_link(self):
        link = self.safe.path("gone")
        os.symlink("/nonexistent/cs-doctor", link)
        self.assertOnly(link, "broken-link", problem="which does not exist")

    def test_file_that_cannot_be_executed(self):
        path = self.safe.write("scan.sh", SCRIPT, 0o644)
        self.assertOnly(path, "not-executable", problem="mode 0644", fix="chmod a+x -- " + path,
                        why="CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS")

    def test_script_without_interpreter_line(self):
        path = self.safe.write("scan", "echo hi\n")
        self.assertOnly(path, "no-interpreter-line", fix="sed -i '1i #!/bin/sh' -- " + path)

    def test_interpreter_line_ending_in_cr(self):
        path = self.safe.write("dos.sh", "#!/bin/sh\r\necho hi\r\n")
        self.assertOnly(path, "interpreter-line-cr", problem="carriage return")

    def test_interpreter_that_does_not_exist(self):
        path = self.safe.write("py", "#!/nonexistent/python3\nprint(1)\n")
        finding = self.assertOnly(path, "missing-interpreter", problem="'/nonexistent/python3', which does not exist")
        self.assertEqual(finding["target"], "/nonexistent/python3")

    def test_name_with_a_double_quote(self):
        path = self.safe.write('my"scan.sh', SCRIPT)
        self.assertOnly(path, "unreachable-name", problem="double quote")

    def test_name_with_a_trailing_blank(self):
        path = self.safe.write("scan.sh ", SCRIPT)
        self.assertOnly(path, "unreachable-name", problem="ends with a blank")

    def test_name_with_a_blank_inside_is_reachable_when_quoted(self):
        self.safe.write("my scan.sh", SCRIPT)
        self.assertEqual(self.findings(), [])
        result = run(["eval", "--scanner-dir", self.safe.dir, "RunCommand", 'path="my scan.sh"'])
        self.assertEqual(result.returncode, EXIT_OK, text(result.stderr))
        self.assertEqual(result.stdout, b"hi\n")

    def test_sibling_that_shares_the_prefix(self):
        sibling = self.safe.beside("scan2")
        os.mkdir(sibling)
        os.chmod(sibling, 0o755)
        self.safe.write(os.path.join(sibling, "prog"), SCRIPT)
        finding = self.assertOnly(sibling, "sibling-prefix", why="'../scan2/PROGRAM'")
        self.assertIn("install -d -m 0755 -- %s.d && mv -- %s %s.d/" % (self.safe.dir, self.safe.dir, self.safe.dir),
                      finding["fix"])
        # The looseness is real: the gate runs the program beside the directory.
        result = run(["eval", "--scanner-dir", self.safe.dir, "RunCommand", "path=../scan2/prog"])
        self.assertEqual(result.stdout, b"hi\n")


class Directory(DoctorTestCase):
    def test_seeded_directory_names_every_problem_with_its_fix(self):
        d = self.safe
        seeded = {
            d.write("open.sh", SCRIPT, 0o777): "writable",
            d.write("noexec.sh", SCRIPT, 0o644): "not-executable",
            d.write("plain", "echo hi\n"): "no-interpreter-line",
            d.write("dos.sh", "#!/bin/sh\r\necho hi\r\n"): "interpreter-line-cr",
            d.write("py", "#!/nonexistent/python3\n"): "missing-interpreter",
            d.write('q"uote', SCRIPT): "unreachable-name",
        }
        os.symlink("/usr/bin/id", d.path("id"))
        seeded[d.path("id")] = "link-outside"
        os.symlink("nowhere", d.path("broken"))
        seeded[d.path("broken")] = "broken-link"
        os.mkdir(d.beside("scan-old"))
        seeded[d.beside("scan-old")] = "sibling-prefix"
        findings = self.findings()
        self.assertEqual(self.kinds(findings), sorted(seeded.items()), json.dumps(findings, indent=1))

        result = self.doctor()
        self.assertExit(result, EXIT_CODE)
        lines = text(result.stdout).splitlines()
        self.assertEqual(len(lines), 3 * len(findings))
        for i in range(0, len(lines), 3):
            self.assertTrue(lines[i + 1].startswith("  why: "), lines[i:i + 3])
            self.assertTrue(lines[i + 2].startswith("  fix: "), lines[i:i + 3])
        self.assertIn("%d findings" % len(findings), text(result.stderr))

    def test_fixes_make_the_directory_clean(self):
        d = self.safe
        d.write("open.sh", SCRIPT, 0o777)
        d.write("noexec.sh", SCRIPT, 0o644)
        d.write("plain", "echo plain\n")
        d.write("dos.sh", "#!/bin/sh\r\necho dos\r\n")
        d.write("py", "#!/nonexistent/sh\necho py\n")
        d.write("it's \"odd\"", SCRIPT)
        os.symlink(d.write(d.beside("outside.sh"), SCRIPT), d.path("linked.sh"))
        before = self.findings()
        self.assertEqual(len(before), 7, before)
        for finding in before:
            result = bash(finding["fix"])
            self.assertEqual(result.returncode, 0, (finding["fix"], result.stderr))
        self.assertEqual(self.findings(), [])
        for name, output in (("plain", b"plain\n"), ("dos.sh", b"dos\n"), ("py", b"py\n")):
            result = run(["eval", "--scanner-dir", d.dir, "RunCommand", "path=" + name])
            self.assertEqual(result.stdout, output, text(result.stderr))

    def test_doctor_runs_no_scanner(self):
        marker = self.safe.beside("ran")
        self.safe.write("scan.sh", "#!/bin/sh\ntouch %s\n" % marker, 0o777)
        self.findings()
        self.assertFalse(os.path.exists(marker))

    def test_clean_directory_is_silent(self):
        self.safe.write("kernel.sh", SCRIPT)
        self.safe.write("README.md", "# notes\n", 0o644)
        os.mkdir(self.safe.path("sub"))
        os.chmod(self.safe.path("sub"), 0o755)
        self.safe.write("sub/deep.sh", SCRIPT)
        os.symlink("kernel.sh", self.safe.path("alias.sh"))
        self.assertEqual(self.findings(), [])

    def test_name_with_control_characters_stays_one_finding_of_three_lines(self):
        path = self.safe.write("new\nline ", SCRIPT)
        result = self.doctor()
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn(self.safe.path("new\\x0Aline ") + ": its name ends with a blank", out)
        finding = [f for f in self.findings() if f["kind"] == "unreachable-name"][0]
        self.assertEqual(finding["path"], path)
        self.assertIn("$'", finding["fix"])

    def test_json_is_valid_utf8_and_the_fix_keeps_bytes_that_are_not(self):
        name = os.fsdecode(b"\xff\xfe-scan.sh")
        self.safe.write(name, SCRIPT, 0o777)
        result = self.doctor("--json")
        self.assertExit(result, EXIT_CODE)
        findings = [json.loads(line) for line in result.stdout.decode("utf-8").splitlines()]
        finding = [f for f in findings if f["kind"] == "writable" and "scan.sh" in f["path"]][0]
        self.assertIn("\\xFF\\xFE", finding["fix"])
        self.assertEqual(bash(finding["fix"]).returncode, 0)
        self.assertFalse(os.stat(self.safe.path(name)).st_mode & 0o022)

    def test_pipe_in_the_directory_is_not_waited_on(self):
        os.mkfifo(self.safe.path("fifo"), 0o755)
        os.symlink("fifo", self.safe.path("fifo-link"))
        self.assertEqual(self.findings(), [])

    def test_many_files_are_all_checked(self):
        for i in range(2000):
            self.safe.write("s%04d.sh" % i, SCRIPT)
        os.chmod(self.safe.path("s1999.sh"), 0o777)
        self.assertEqual(self.kinds(self.findings()), [(self.safe.path("s1999.sh"), "writable")])

    def test_deep_tree_is_walked(self):
        path = self.safe.dir
        for _ in range(200):
            path = os.path.join(path, "d")
            os.mkdir(path)
            os.chmod(path, 0o755)
        bottom = self.safe.write(os.path.join(path, "bottom"), "no interpreter line\n")
        self.assertEqual(self.kinds(self.findings()), [(bottom, "no-interpreter-line")])


class CommandLine(DoctorTestCase):
    def test_directory_defaults_to_the_environment_variable(self):
        self.safe.write("scan.sh", SCRIPT, 0o777)
        result = run(["doctor"], env=clean_environment({"CUSTOMSCAN_SCANNER_DIR": self.safe.dir}))
        self.assertExit(result, EXIT_CODE)
        self.assertIn(self.safe.path("scan.sh"), text(result.stdout))

    def test_option_wins_over_the_environment_variable(self):
        other = self.safe.beside("other")
        os.mkdir(other)
        os.chmod(other, 0o777)
        result = run(["doctor", "--json", "--scanner-dir", self.safe.dir],
                     env=clean_environment({"CUSTOMSCAN_SCANNER_DIR": other}))
        self.assertNotIn(other, text(result.stdout))

    def test_relative_directory_is_taken_from_the_current_directory(self):
        self.safe.write("scan.sh", SCRIPT, 0o777)
        result = run(["doctor", "--scanner-dir", "scan"], cwd=self.safe.root)
        self.assertExit(result, EXIT_CODE)
        self.assertIn(self.safe.path("scan.sh") + ": writable", text(result.stdout))

    def test_usage_errors_exit_two(self):
        cases = [
            ["doctor"],
            ["doctor", "--scanner-dir", self.safe.beside("missing")],
            ["doctor", "--scanner-dir", self.safe.write("file", "x", 0o644)],
            ["doctor", "--scanner-dir", self.safe.dir, "--bogus"],
            ["doctor", "--scanner-dir", self.safe.dir, "extra"],
            ["doctor", "--scanner-dir"],
        ]
        for args in cases:
            with self.subTest(args=args):
                result = run(args)
                self.assertExit(result, EXIT_USAGE)
                self.assertEqual(result.stdout, b"")
                self.assertTrue(result.stderr)

    def test_missing_directory_names_the_reason(self):
        result = run(["doctor", "--scanner-dir", self.safe.beside("missing")])
        self.assertIn("No such file or directory", text(result.stderr))

    def test_help_describes_the_options_and_exit_status(self):
        result = run(["doctor", "--help"])
        self.assertExit(result, EXIT_OK)
        for word in ("--scanner-dir", "--json", "Exit status", "fix"):
            self.assertIn(word, text(result.stdout))
        result = run(["--help"])
        self.assertIn("doctor", text(result.stdout))


if __name__ == "__main__":
    unittest.main()
