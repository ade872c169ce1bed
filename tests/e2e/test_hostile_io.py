"""The tool's part of the hostile-input catalogue: what the host around the
plug-in does with hostile or unlucky input, output and configuration. Each
case gives a bounded, reported outcome: a trace a terminal survives, an
answer that cannot be written or input that cannot be read reported with its
reason and status, a request with a NUL refused, the scanner directory seen
as the kernel sees it. (The plug-in's own cases are in tests/catalogue/.)
"""

import json
import os
import re
import subprocess
import unittest

from e2e_support import (EXIT_CODE, EXIT_OK, EXIT_OUTPUT, EXIT_USAGE, TOOL, ScannerDir, ToolTestCase,
                         clean_environment, json_lines, run, text, wrapper)

WRONG_COMMAND_PATH = -14118
COMMAND_PATH_DOES_NOT_EXIST = -14119
HEAD = 512  # the characters of a record's text a trace line shows


def run_with(args, stdin=None, stdout=None, restore_signals=True, shell_redirect=None, timeout=120):
    """Runs the tool with the given descriptors (file objects or numbers);
    shell_redirect (">&-", "<&-") closes one through a shell. Returns the
    exit status and standard error (bytes).

    A descriptor closed through shell_redirect reaches the tool itself, not a
    checker around it: valgrind opens its own files first and would hand the
    tool an open descriptor in its place."""
    command = [TOOL] + list(args)
    if shell_redirect:
        command = ["sh", "-c", 'exec "$@" ' + shell_redirect, "sh"] + command
    else:
        command = wrapper() + command
    result = subprocess.run(command, stdin=stdin if stdin is not None else subprocess.DEVNULL,
                            stdout=stdout if stdout is not None else subprocess.DEVNULL,
                            stderr=subprocess.PIPE, env=clean_environment(),
                            restore_signals=restore_signals, timeout=timeout)
    return result.returncode, result.stderr


class Marker:
    """A scanner that leaves a file behind when it runs."""

    def __init__(self, scanners, name="marker.sh"):
        self.path = os.path.join(scanners.path, name + ".ran")
        scanners.script(name, 'echo ran > "$0.ran"; echo ran\n')
        self.name = name

    def ran(self):
        return os.path.exists(self.path)


# ------------------------------------------------------------------ trace

class TraceThatATerminalSurvives(ToolTestCase):
    def test_trace_of_90_kb_of_output_in_short_lines_stays_bounded(self):
        # The detail record after every line carries the whole result so far;
        # written whole it came to about 500 MB for this output.
        self.scanners.script("many-lines.sh",
                             "i=0; while [ $i -lt 9000 ]; do echo 123456789; i=$((i+1)); done\n")
        result = self.eval("--trace=3", "RunCommand", "path=many-lines.sh", timeout=600)
        self.assertExit(result, EXIT_OK)
        self.assertEqual(len(result.stdout), 90000)
        lines = result.stderr.splitlines()
        self.assertLess(len(result.stderr), 8 * 1024 * 1024)
        self.assertLessEqual(max(len(line) for line in lines), 1024)
        results = [l for l in lines if b"getScalarResult(): Result: " in l]
        self.assertGreater(len(results), 8000)
        # The last record's text is "Result: " and the whole result, 89 999
        # characters: 9000 lines less the last line feed, which trim removes.
        last = results[-1].decode()
        self.assertTrue(last.endswith("... [%d more characters]" % (len("Result: ") + 89999 - HEAD)), last[-80:])

    def test_long_record_shows_its_head_and_the_count_left_out(self):
        self.scanners.script("long.sh", "printf 'first\\n%3000s\\n' '' | tr ' ' x\n")
        result = self.eval("--trace=3", "RunCommand", "path=long.sh")
        self.assertExit(result, EXIT_OK)
        records = [l for l in text(result.stderr).splitlines() if "Result: first" in l]
        self.assertEqual(len(records), 1, records)
        text_part = records[0].split("): ", 1)[1]
        whole = "Result: first\n" + "x" * 3000
        self.assertEqual(text_part, "Result: first\\n" + "x" * (HEAD - len("Result: first\n")) +
                         "... [%d more characters]" % (len(whole) - HEAD))

    def test_escape_and_every_other_control_character_are_escaped(self):
        # ESC [ 2 J would clear the screen; BEL rings; 0x9b is a one-byte CSI
        # to a terminal that takes 8-bit controls; U+009B is its UTF-8 form.
        self.scanners.script("controls.sh",
                             "printf 'first\\nx\\033[2J\\007\\177\\233\\302\\233\\t\\\\end\\n'\n")
        result = self.eval("--trace=3", "RunCommand", "path=controls.sh")
        self.assertExit(result, EXIT_OK)
        for line in result.stderr.splitlines():
            self.assertIsNone(re.search(rb"[\x00-\x1f\x7f]", line), line)
            self.assertNotIn(b"\xc2\x9b", line)
            self.assertNotIn(b"\x9b", line)
        records = [l for l in text(result.stderr).splitlines() if "Result: first" in l]
        self.assertEqual(records[-1].split("): ", 1)[1],
                         "Result: first\\nx\\x1b[2J\\x07\\x7f\\x9b\\u{9b}\\t\\\\end")

    def test_control_characters_in_a_command_name_are_escaped(self):
        result = self.eval("--trace=3", "RunCommand", "path=\x1b]0;title\x07")
        self.assertExit(result, EXIT_CODE)
        self.assertNotIn(b"\x1b", result.stderr)
        self.assertNotIn(b"\x07", result.stderr)
        self.assertIn(b"input command is [\\x1b]0;title\\x07]", result.stderr)


# ------------------------------------------------------------------ output

# One run of each way the tool writes (the mif subcommands share theirs);
# few, since each run costs seconds under valgrind.
OUTPUT_RUNS = [
    ("eval", lambda self: ["eval", "--scanner-dir", self.scanners.path, "RunCommand", "path=ok.sh"]),
    ("batch", lambda self: ["batch", "--scanner-dir", self.scanners.path, self.requests]),
    ("mif check", lambda self: ["mif", "check", self.mif]),
    ("mif table", lambda self: ["mif", "table", self.mif, "--class", "Disks", "--format", "csv"]),
    ("--help", lambda self: ["--help"]),
]

MIF = """start component
  start group
    class = "Disks"
    key = 1
    start attribute
      id = 1
      name = "Device"
      value = ""
    end attribute
  end group
  start table
    class = "Disks"
    {"sda"}
  end table
end component
"""


class OutputThatCannotBeWritten(ToolTestCase):
    def setUp(self):
        super().setUp()
        self.scanners.script("ok.sh", "echo ok\n")
        self.requests = self.scanners.file(
            "requests.jsonl", json.dumps({"operand": "RunCommand", "properties": {"path": "ok.sh"}}) + "\n")
        self.mif = self.scanners.file("disks.mif", MIF)

    def assertOutputError(self, status, err, reason):
        self.assertEqual(status, EXIT_OUTPUT, text(err))
        self.assertIn("customscan: error: cannot write the output: " + reason, text(err))

    def test_full_device_exits_3_with_the_reason(self):
        for name, args in OUTPUT_RUNS:
            with self.subTest(run=name), open("/dev/full", "wb") as full:
                status, err = run_with(args(self), stdout=full)
                self.assertOutputError(status, err, "No space left on device")

    def test_closed_standard_output_exits_3_and_runs_nothing(self):
        marker = Marker(self.scanners)
        status, err = run_with(["eval", "--scanner-dir", self.scanners.path, "RunCommand",
                                "path=" + marker.name], shell_redirect=">&-")
        self.assertOutputError(status, err, "standard output is closed")
        self.assertFalse(marker.ran(), "a scanner ran whose answer could only be lost")
        for name, args in OUTPUT_RUNS:
            with self.subTest(run=name):
                status, err = run_with(args(self), shell_redirect=">&-")
                self.assertOutputError(status, err, "standard output is closed")

    def test_broken_pipe_with_sigpipe_ignored_exits_3_with_the_reason(self):
        # Python ignores SIGPIPE, and restore_signals=False passes that on.
        for name, args in OUTPUT_RUNS:
            with self.subTest(run=name):
                reader, writer = os.pipe()
                os.close(reader)
                try:
                    status, err = run_with(args(self), stdout=writer, restore_signals=False)
                finally:
                    os.close(writer)
                self.assertOutputError(status, err, "Broken pipe")

    def test_broken_pipe_with_sigpipe_at_its_default_ends_the_tool_by_the_signal(self):
        reader, writer = os.pipe()
        os.close(reader)
        try:
            status, _ = run_with(["mif", "tree", self.mif], stdout=writer)
        finally:
            os.close(writer)
        self.assertIn(status, (-13, 128 + 13), status)

    def test_batch_stops_at_the_first_answer_that_cannot_be_written(self):
        first = Marker(self.scanners, "first.sh")
        second = Marker(self.scanners, "second.sh")
        requests = self.scanners.file("two.jsonl", "".join(
            json.dumps({"operand": "RunCommand", "properties": {"path": m.name}}) + "\n" for m in (first, second)))
        with open("/dev/full", "wb") as full:
            status, err = run_with(["batch", "--scanner-dir", self.scanners.path, requests], stdout=full)
        self.assertOutputError(status, err, "No space left on device")
        self.assertTrue(first.ran())
        self.assertFalse(second.ran(), "the batch went on after an answer was lost")

    def test_failed_code_and_lost_answer_give_the_output_status(self):
        with open("/dev/full", "wb") as full:
            status, err = run_with(["eval", "--scanner-dir", self.scanners.path, "--json", "NoSuchOperand"],
                                   stdout=full)
        self.assertOutputError(status, err, "No space left on device")


# ------------------------------------------------------------------ input

INPUT_RUNS = [
    ("batch", lambda self: ["batch", "--scanner-dir", self.scanners.path]),
    ("mif check", lambda self: ["mif", "check", "-"]),
    ("mif tree", lambda self: ["mif", "tree", "-"]),
]


class InputThatCannotBeRead(ToolTestCase):
    def assertInputError(self, status, err, reason):
        self.assertEqual(status, EXIT_USAGE, text(err))
        self.assertIn("customscan: error: cannot read standard input: " + reason, text(err))

    def test_directory_as_standard_input_exits_2_with_the_reason(self):
        for name, args in INPUT_RUNS:
            with self.subTest(run=name):
                fd = os.open(self.scanners.path, os.O_RDONLY)
                try:
                    status, err = run_with(args(self), stdin=fd)
                finally:
                    os.close(fd)
                self.assertInputError(status, err, "Is a directory")

    def test_closed_standard_input_exits_2_with_the_reason(self):
        for name, args in INPUT_RUNS:
            with self.subTest(run=name):
                status, err = run_with(args(self), shell_redirect="<&-")
                self.assertInputError(status, err, "it is closed")

    def test_read_error_exits_2_with_the_reason(self):
        # Reading the master side of a terminal whose other side is closed
        # fails with EIO, as a failing disk would.
        for name, args in INPUT_RUNS:
            with self.subTest(run=name):
                master, slave = os.openpty()
                os.close(slave)
                try:
                    status, err = run_with(args(self), stdin=master)
                finally:
                    os.close(master)
                self.assertInputError(status, err, "Input/output error")

    def test_closed_standard_input_does_not_matter_when_a_file_is_named(self):
        path = self.scanners.file("disks.mif", MIF)
        status, err = run_with(["mif", "check", path], shell_redirect="<&-")
        self.assertEqual(status, EXIT_OK, text(err))

    def test_directory_named_as_the_input_file_exits_2(self):
        for args in (["batch", "--scanner-dir", self.scanners.path, self.scanners.path],
                     ["mif", "check", self.scanners.path]):
            with self.subTest(args=args[0]):
                result = run(args)
                self.assertExit(result, EXIT_USAGE)
                self.assertIn("it is a directory", text(result.stderr))


# ------------------------------------------------------------------ NUL

class NulInABatchRequest(ToolTestCase):
    def test_nul_in_operand_property_name_or_value_refuses_the_request_and_runs_nothing(self):
        marker = Marker(self.scanners)
        requests = [
            {"operand": "RunCommand\u0000junk", "properties": {"path": marker.name}},
            {"operand": "RunCommand", "properties": {"path\u0000x": marker.name}},
            {"operand": "RunCommand", "properties": {"path": marker.name + "\u0000 ../../x"}},
            {"operand": "RunCommand", "properties": {"path": "\u0000"}},
            {"operand": "RunCommandEx", "properties": {"path": marker.name, "trim\u0000": "false"}},
            {"operand": "RunCommand", "properties": {"path": marker.name + "\u0000/../../../bin/sh"}},
        ]
        result = run(["batch", "--scanner-dir", self.scanners.path],
                     stdin="".join(json.dumps(r) + "\n" for r in requests))
        self.assertExit(result, EXIT_USAGE)
        answers = json_lines(result.stdout)
        self.assertEqual(len(answers), len(requests))
        for number, answer in enumerate(answers, 1):
            with self.subTest(line=number):
                self.assertEqual(answer["line"], number)
                self.assertEqual(answer["error"], "invalid request")
                self.assertIn("holds a NUL character", answer["message"])
                self.assertIn("\\u0000", answer["message"])
        self.assertIn("value of property \"path\"", answers[2]["message"])
        self.assertIn("property name \"path\\u0000x\"", answers[1]["message"])
        self.assertIn("operand \"RunCommand\\u0000junk\"", answers[0]["message"])
        self.assertFalse(marker.ran())

    def test_raw_nul_byte_in_a_line_refuses_the_request_and_runs_nothing(self):
        # The JSON parser alone would stop at the byte and run the request before it.
        marker = Marker(self.scanners)
        request = json.dumps({"operand": "RunCommand", "properties": {"path": marker.name}}).encode()
        result = run(["batch", "--scanner-dir", self.scanners.path], stdin=request + b"\0junk\n")
        self.assertExit(result, EXIT_USAGE)
        answer = json_lines(result.stdout)[0]
        self.assertEqual(answer["error"], "invalid request")
        self.assertIn("NUL byte (column %d)" % (len(request) + 1), answer["message"])
        self.assertFalse(marker.ran())

    def test_requests_around_a_refused_one_still_run(self):
        marker = Marker(self.scanners)
        lines = [json.dumps({"operand": "RunCommand\u0000"}),
                 json.dumps({"operand": "RunCommand", "properties": {"path": marker.name}})]
        result = run(["batch", "--scanner-dir", self.scanners.path], stdin="\n".join(lines) + "\n")
        self.assertExit(result, EXIT_USAGE)
        answers = json_lines(result.stdout)
        self.assertEqual(answers[1], {"operand": "RunCommand", "code": 0, "result": "ran"})

    def test_empty_property_name_is_refused(self):
        result = run(["batch", "--scanner-dir", self.scanners.path],
                     stdin=json.dumps({"operand": "RunCommand", "properties": {"": "x"}}) + "\n")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("empty name", json_lines(result.stdout)[0]["message"])

    def test_overlong_nul_in_an_eval_argument_is_two_bytes_not_an_end(self):
        # An argument cannot hold a NUL; the overlong form C0 80 is not UTF-8
        # and stays two bytes, so the name is not cut to "marker.sh".
        marker = Marker(self.scanners)
        result = run(["eval", "--scanner-dir", os.fsencode(self.scanners.path), "--json", "RunCommand",
                      b"path=" + marker.name.encode() + b"\xc0\x80"])
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["code"], COMMAND_PATH_DOES_NOT_EXIST)
        self.assertFalse(marker.ran())


# ------------------------------------------------------------------ scanner directory

class ScannerDirectory(unittest.TestCase):
    """ROOT/scan (the directory, holding ok), ROOT/scan2/prog (a sibling whose
    name extends it), ROOT/real/prog and ROOT/scan/lnk -> ../real/sub."""

    def setUp(self):
        self.root = ScannerDir()
        self.addCleanup(self.root.cleanup)
        self.dir = os.path.join(self.root.path, "scan")
        self.root.script("scan/ok", "echo ok\n")
        self.root.script("scan2/prog", "echo sibling\n")
        self.root.script("real/prog", "echo real\n")
        os.makedirs(os.path.join(self.root.path, "real", "sub"))
        os.symlink("../real/sub", os.path.join(self.dir, "lnk"))

    def eval(self, directory, *args, env=None):
        return run(["eval", "--scanner-dir", directory, "--json"] + list(args), env=env)

    def answer(self, result):
        return json.loads(result.stdout)

    def test_trailing_separator_is_kept_and_refuses_the_sibling(self):
        result = self.eval(self.dir + "/", "RunCommand", "path=../scan2/prog")
        self.assertEqual(self.answer(result)["code"], WRONG_COMMAND_PATH, text(result.stderr))
        self.assertEqual(result.returncode, EXIT_CODE)
        self.assertEqual(self.answer(self.eval(self.dir + "/", "RunCommand", "path=ok"))["result"], "ok")

    def test_trailing_separator_from_the_environment_is_kept(self):
        env = clean_environment({"CUSTOMSCAN_SCANNER_DIR": self.dir + "/"})
        result = run(["eval", "--json", "RunCommand", "path=../scan2/prog"], env=env)
        self.assertEqual(self.answer(result)["code"], WRONG_COMMAND_PATH)

    def test_without_the_separator_the_sibling_is_let_through_as_documented(self):
        self.assertEqual(self.answer(self.eval(self.dir, "RunCommand", "path=../scan2/prog"))["result"], "sibling")

    def test_doubled_trailing_separator_becomes_one(self):
        result = run(["eval", "--scanner-dir", self.dir + "//", "--trace=3", "RunCommand", "path=ok"])
        self.assertIn("the custom scanners directory is [%s/]" % os.path.realpath(self.dir),
                      text(result.stderr))

    def test_link_then_parent_step_is_the_directory_the_kernel_finds(self):
        # The kernel resolves scan/lnk/.. to ROOT/real, not to ROOT/scan.
        through_link = os.path.join(self.dir, "lnk", "..")
        result = self.eval(through_link, "RunCommand", "path=prog")
        self.assertEqual(self.answer(result)["result"], "real", text(result.stderr))
        result = self.eval(through_link, "RunCommand", "path=../scan/ok")
        self.assertEqual(self.answer(result)["code"], WRONG_COMMAND_PATH)

    def test_linked_directory_is_given_to_the_plugin_resolved(self):
        link = os.path.join(self.root.path, "link-to-scan")
        os.symlink("scan", link)
        result = run(["eval", "--scanner-dir", link, "--trace=3", "RunCommand", "path=ok"])
        self.assertEqual(result.returncode, EXIT_OK, text(result.stderr))
        self.assertIn("the custom scanners directory is [%s]" % os.path.realpath(self.dir), text(result.stderr))

    def test_relative_directory_with_dot_steps_is_resolved(self):
        result = run(["eval", "--scanner-dir", "./scan/../scan/.", "--json", "RunCommand", "path=ok"],
                     cwd=self.root.path)
        self.assertEqual(self.answer(result)["result"], "ok", text(result.stderr))

    def test_missing_dangling_or_non_directory_is_a_usage_error(self):
        dangling = os.path.join(self.root.path, "dangling")
        os.symlink("nowhere", dangling)
        cases = [(os.path.join(self.root.path, "missing"), "No such file or directory"),
                 (dangling, "No such file or directory"),
                 (os.path.join(self.dir, "ok"), "not a directory"),
                 (os.path.join(self.dir, "ok") + "/", "Not a directory")]
        for directory, reason in cases:
            with self.subTest(directory=directory):
                result = self.eval(directory, "RunCommand", "path=ok")
                self.assertEqual(result.returncode, EXIT_USAGE, text(result.stderr))
                self.assertIn(directory, text(result.stderr))
                self.assertIn(reason, text(result.stderr))
                self.assertEqual(result.stdout, b"")

    def test_unsearchable_directory_is_a_usage_error(self):
        locked = os.path.join(self.root.path, "locked")
        os.mkdir(locked)
        os.chmod(locked, 0)
        self.addCleanup(os.chmod, locked, 0o700)
        command = wrapper() + [TOOL, "eval", "--scanner-dir", locked, "RunCommand", "path=ok"]
        preexec = None
        if os.geteuid() == 0:
            # The superuser may search any directory: ask as another user,
            # without the wrapper (its log directory is not that user's).
            os.chmod(self.root.path, 0o755)
            command = [TOOL] + command[len(wrapper()) + 1:]

            def preexec():
                os.setgroups([])
                os.setgid(65534)
                os.setuid(65534)
        def run_as_user(args):
            return subprocess.run(args, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  env=clean_environment(), preexec_fn=preexec, timeout=120)

        if preexec is not None:
            try:
                probe = run_as_user([TOOL, "--version"])
            except PermissionError:
                probe = None
            if probe is None or probe.returncode != 0:
                self.skipTest("the tool cannot be run by another user here")
        result = run_as_user(command)
        self.assertEqual(result.returncode, EXIT_USAGE, text(result.stderr))
        self.assertIn(locked, text(result.stderr))
        self.assertIn("cannot be searched (Permission denied)", text(result.stderr))


# ------------------------------------------------------------------ batch

class BatchStatusAndLines(ToolTestCase):
    def batch(self, lines, *args):
        return run(["batch", "--scanner-dir", self.scanners.path] + list(args), stdin=lines)

    def test_fail_on_error_exits_1_when_any_request_failed(self):
        self.scanners.script("ok.sh", "echo ok\n")
        lines = (json.dumps({"operand": "RunCommand", "properties": {"path": "ok.sh"}}) + "\n" +
                 json.dumps({"operand": "RunCommand", "properties": {"path": "missing.sh"}}) + "\n")
        result = self.batch(lines, "--fail-on-error")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual([a["code"] for a in json_lines(result.stdout)], [0, COMMAND_PATH_DOES_NOT_EXIST])
        self.assertIn("1 request(s) answered with a non-zero code, on line(s): 2", text(result.stderr))
        self.assertExit(self.batch(lines), EXIT_OK)

    def test_fail_on_error_exits_0_when_every_request_succeeded(self):
        self.scanners.script("ok.sh", "echo ok\n")
        result = self.batch(json.dumps({"operand": "RunCommand", "properties": {"path": "ok.sh"}}) + "\n",
                            "--fail-on-error")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stderr, b"")

    def test_invalid_line_wins_over_failed_request(self):
        result = self.batch('{"operand": "NoSuchOperand"}\nnot json\n', "--fail-on-error")
        self.assertExit(result, EXIT_USAGE)

    def test_malformed_request_names_its_own_line(self):
        lines = ['{"operand": "NoSuchOperand"}'] * 7 + ['{"operand": "RunCommand", nope}']
        result = self.batch("\n".join(lines) + "\n")
        self.assertExit(result, EXIT_USAGE)
        answer = json_lines(result.stdout)[7]
        self.assertEqual(answer["line"], 8)
        self.assertIn("at line 8, column", answer["message"])
        self.assertNotIn("line 1,", answer["message"])

    def test_line_longer_than_one_mebibyte_is_refused_and_the_next_one_runs(self):
        long_line = '{"operand": "RunCommand", "properties": {"path": "' + "x" * (1024 * 1024) + '"}}'
        result = self.batch(long_line + "\n" + '{"operand": "NoSuchOperand"}\n' + "y" * (3 * 1024 * 1024))
        self.assertExit(result, EXIT_USAGE)
        answers = json_lines(result.stdout)
        self.assertEqual([a.get("line") for a in answers], [1, None, 3])
        self.assertIn("longer than 1048576 bytes", answers[0]["message"])
        self.assertIn("longer than 1048576 bytes", answers[2]["message"])
        self.assertEqual(answers[1]["code"], -10008)

    def test_line_of_exactly_one_mebibyte_is_read(self):
        prefix = '{"operand": "NoSuchOperand", "properties": {"p": "'
        suffix = '"}}'
        line = prefix + "x" * (1024 * 1024 - len(prefix) - len(suffix)) + suffix
        self.assertEqual(len(line), 1024 * 1024)
        result = self.batch(line + "\n")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json_lines(result.stdout)[0]["code"], -10008)


if __name__ == "__main__":
    unittest.main()
