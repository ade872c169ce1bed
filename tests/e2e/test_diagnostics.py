"""customscan eval and batch tell why a request failed: the host's reason for a
scanner that could not be started, the exit status or signal and the captured
standard error of one that failed, the plug-in's own error records, the near
names of a class, field or row that was not found, the time limit
(--timeout) and the safe-scanner guard (--require-safe-scanners)."""

import json
import os
import signal
import stat
import subprocess
import time
import unittest

from e2e_support import (EXIT_CODE, EXIT_OK, EXIT_USAGE, SOURCE_DIR, TOOL, ToolTestCase, clean_environment,
                         json_lines, run, text, wrapper)

# A MIF text with a template class keyed by Protocol and Port, and a scalar one.
PORTS_MIF = """start component
  start group
    class = "Ports"
    key = 1,2
    start attribute
      id = 1
      name = "Protocol"
      value = ""
    end attribute
    start attribute
      id = 2
      name = "Port"
      value = ""
    end attribute
    start attribute
      id = 3
      name = "Address"
      value = "0.0.0.0"
    end attribute
  end group
  start table
    class = "Ports"
    {"tcp", "21", }
    {"tcp", "80", "127.0.0.1"}
    {"udp", "53", }
  end table
  start group
    class = "Host"
    id = 1
    start attribute
      id = 1
      name = "Name"
      value = "box"
    end attribute
  end group
end component
"""


def mif_script(mif):
    return "cat <<'MIF'\n" + mif + "MIF\n"


class CreationFailures(ToolTestCase):
    """A scanner the system cannot start: the reason is in the default output."""

    def setUp(self):
        super().setUp()
        if "valgrind" in " ".join(wrapper()):
            self.skipTest("under valgrind posix_spawn's child runs as a fork, so a failed exec arrives as "
                          "exit status 127 instead of an error; the dev and sanitizer passes run these")
        self.noexec = self.scanners.file("noexec.sh", "#!/bin/sh\necho hi\n")
        nohashbang = self.scanners.file("nohashbang.sh", "echo hi\n")
        crlf = self.scanners.file("crlf.sh", "#!/bin/sh\r\necho hi\r\n")
        interp = self.scanners.file("interp.sh", "#!/usr/bin/no-such-shell\necho hi\n")
        for path in (nohashbang, crlf, interp):
            os.chmod(path, 0o755)

    def assertReason(self, script, expected):
        plain = self.eval("RunCommand", "path=" + script)
        self.assertExit(plain, EXIT_CODE)
        err = text(plain.stderr)
        self.assertIn("-14200 CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS", err)
        self.assertIn("  reason: " + expected, err)
        self.assertIn("  plug-in: Unable to create the process for command ", err)
        answer = json.loads(self.eval("--json", "RunCommand", "path=" + script).stdout)
        self.assertEqual(answer["code"], -14200)
        self.assertTrue(answer["reason"].startswith(expected), answer["reason"])
        self.assertEqual(answer["process"]["program"], os.path.join(self.scanners.path, script))
        self.assertFalse(answer["process"]["created"])
        return answer

    def test_scanner_without_execute_permission_says_permission_denied_and_the_fix(self):
        path = os.path.join(self.scanners.path, "noexec.sh")
        answer = self.assertReason("noexec.sh", "permission denied: %s is not executable (chmod +x %s)" % (path, path))
        self.assertEqual(answer["process"]["errno"], 13)

    def test_script_without_hashbang_line_says_exec_format_error(self):
        path = os.path.join(self.scanners.path, "nohashbang.sh")
        self.assertReason("nohashbang.sh", "exec format error: %s has no #! line" % path)

    def test_hashbang_line_ending_in_carriage_return_shows_the_carriage_return(self):
        answer = self.assertReason("crlf.sh", 'bad interpreter "/bin/sh\\r" in the #! line of ')
        self.assertIn("CRLF line ends", answer["reason"])

    def test_missing_interpreter_is_named(self):
        self.assertReason("interp.sh", 'bad interpreter "/usr/bin/no-such-shell" in the #! line of ')

    def test_reason_is_traced_under_the_hosts_own_label(self):
        result = self.eval("--trace=1", "RunCommand", "path=noexec.sh")
        err = text(result.stderr)
        self.assertIn("1 Runtime::exec: Unable to start %s: permission denied" % self.noexec, err)
        self.assertIn("1 Command::run(String&, MemoryBuffer&): Unable to create the process for command", err)

    def test_mif_operands_give_the_reason_too(self):
        answer = json.loads(self.eval("--json", "CustomScanList", "command=crlf.sh", "class=X").stdout)
        self.assertEqual(answer["code"], -14200)
        self.assertIn('bad interpreter "/bin/sh\\r"', answer["reason"])


class FailedScanners(ToolTestCase):
    """A scanner that ran and failed: its exit status or signal, its standard error."""

    def setUp(self):
        super().setUp()
        self.scanners.script("fail.sh", "echo output; echo complaint >&2; echo second >&2; exit 3\n")
        self.scanners.script("segv.sh", "echo before; kill -SEGV $$\n")
        self.scanners.script("chatty.sh", 'i=1; while [ $i -le 100 ]; do echo "line $i" >&2; i=$((i+1)); done; exit 1\n')
        self.scanners.script("warns.sh", "echo warning >&2; echo fine\n")

    def test_plain_eval_names_the_exit_status_and_passes_standard_error_through(self):
        result = self.eval("RunCommand", "path=fail.sh")
        self.assertExit(result, EXIT_CODE)
        err = text(result.stderr)
        self.assertTrue(err.startswith("complaint\nsecond\n"), err)
        self.assertIn("  reason: the scanner exited with status 3\n", err)
        self.assertIn("  plug-in: Command %s terminated with error 3\n" % os.path.join(self.scanners.path, "fail.sh"),
                      err)

    def test_json_answer_carries_exit_status_and_captured_standard_error(self):
        result = self.eval("--json", "RunCommand", "path=fail.sh")
        self.assertExit(result, EXIT_CODE)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["reason"], "the scanner exited with status 3")
        self.assertEqual(answer["process"], {"program": os.path.join(self.scanners.path, "fail.sh"), "exitStatus": 3})
        self.assertEqual(answer["stderr"], ["complaint", "second"])
        self.assertNotIn("stderrTruncated", answer)
        self.assertIn("Command %s terminated with error 3" % os.path.join(self.scanners.path, "fail.sh"),
                      answer["records"])
        # Captured, not mixed in: on the tool's standard error it appears only
        # inside the indented details.
        for line in text(result.stderr).splitlines():
            self.assertTrue(line.startswith("customscan: ") or line.startswith("  "), line)

    def test_death_by_signal_is_named(self):
        answer = json.loads(self.eval("--json", "RunCommand", "path=segv.sh").stdout)
        self.assertEqual(answer["code"], -14202)
        self.assertEqual(answer["reason"], "the scanner was killed by signal 11 (SIGSEGV)")
        self.assertEqual(answer["process"]["signal"], 11)
        self.assertEqual(answer["process"]["signalName"], "SIGSEGV")

    def test_standard_error_is_cut_to_its_last_twenty_lines(self):
        answer = json.loads(self.eval("--json", "RunCommand", "path=chatty.sh").stdout)
        self.assertEqual(answer["stderr"], ["line %d" % i for i in range(81, 101)])
        self.assertTrue(answer["stderrTruncated"])

    def test_successful_answer_keeps_the_standard_error_it_captured(self):
        result = self.eval("--json", "RunCommand", "path=warns.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout),
                         {"operand": "RunCommand", "code": 0, "result": "fine", "stderr": ["warning"]})
        self.assertEqual(result.stderr, b"")

    def test_batch_answers_carry_their_own_details(self):
        lines = "\n".join(json.dumps({"operand": "RunCommand", "properties": {"path": p}})
                          for p in ("fail.sh", "warns.sh", "segv.sh")) + "\n"
        result = run(["batch", "--scanner-dir", self.scanners.path], stdin=lines)
        self.assertExit(result, EXIT_OK)
        fail, warns, segv = json_lines(result.stdout)
        self.assertEqual(fail["stderr"], ["complaint", "second"])
        self.assertEqual(fail["process"]["exitStatus"], 3)
        self.assertEqual(warns, {"operand": "RunCommand", "code": 0, "result": "fine", "stderr": ["warning"]})
        self.assertEqual(segv["process"]["signal"], 11)
        self.assertNotIn("stderr", segv)
        self.assertEqual([r for r in segv["records"] if "fail.sh" in r], [])
        self.assertNotIn("complaint", text(result.stderr))


class PluginRecords(ToolTestCase):
    """The plug-in's level-1 records, without --trace."""

    def test_wrong_end_scope_is_told_with_its_line(self):
        mif = PORTS_MIF.replace("  end table\n", "  end tabel\n")
        self.scanners.script("wrongend.sh", mif_script(mif))
        result = self.eval("CustomScanList", "command=wrongend.sh", "class=Ports")
        self.assertExit(result, EXIT_CODE)
        line = 1 + mif.splitlines().index("  end tabel")
        self.assertIn("Parsing (line %d) Wrong end scope element, found tabel" % line, text(result.stderr))
        answer = json.loads(self.eval("--json", "CustomScanList", "command=wrongend.sh", "class=Ports").stdout)
        self.assertEqual(answer["code"], -14100)
        self.assertTrue(answer["reason"].startswith("Parsing (line %d) Wrong end scope element" % line))
        self.assertEqual(answer["records"][0], answer["reason"])

    def test_records_of_one_request_do_not_reach_the_next(self):
        self.scanners.script("broken.sh", mif_script("start component\nend components\n"))
        self.scanners.script("ports.sh", mif_script(PORTS_MIF))
        lines = (json.dumps({"operand": "CustomScanList", "properties": {"command": "broken.sh", "class": "X"}}) + "\n" +
                 json.dumps({"operand": "CustomScanList", "properties": {"command": "ports.sh", "class": "Ports"}}) + "\n")
        first, second = json_lines(run(["batch", "--scanner-dir", self.scanners.path], stdin=lines).stdout)
        self.assertTrue(first["records"])
        self.assertEqual(second, {"operand": "CustomScanList", "code": 0, "result": ["tcp#21", "tcp#80", "udp#53"]})


class NearNames(ToolTestCase):
    """A class, field or row key that is not there: what was asked and what is."""

    def setUp(self):
        super().setUp()
        self.scanners.script("ports.sh", mif_script(PORTS_MIF))

    def info(self, *properties):
        result = self.eval("--json", "CustomScanInfo", "command=ports.sh", *properties)
        self.assertExit(result, EXIT_CODE)
        return json.loads(result.stdout), text(result.stderr)

    def test_unknown_field_names_the_field_asked_for_and_the_same_letters_in_another_case_first(self):
        answer, err = self.info("class=Ports", "code=tcp#80", "field=address")
        self.assertEqual(answer["code"], -14112)
        self.assertEqual(answer["nearNames"], ["Address"])
        self.assertTrue(answer["reason"].startswith('no field "address" in class "Ports"; near: "Address"'),
                        answer["reason"])
        self.assertIn('reason: no field "address" in class "Ports"; near: "Address"', err)

    def test_missing_row_names_the_key_asked_for_and_near_keys(self):
        answer, _ = self.info("class=Ports", "code=tcp#22", "field=Address")
        self.assertEqual(answer["code"], -14113)
        self.assertEqual(answer["nearNames"], ["tcp#21", "tcp#80"])
        self.assertEqual(answer["reason"], 'no row with key "tcp#22" in class "Ports" (3 rows, keyed by '
                                           'Protocol#Port); near: "tcp#21", "tcp#80"')

    def test_missing_row_without_near_keys_shows_some_keys(self):
        answer, _ = self.info("class=Ports", "code=icmp", "field=Address")
        self.assertEqual(answer["reason"], 'no row with key "icmp" in class "Ports" (3 rows, keyed by '
                                           'Protocol#Port); its keys include "tcp#21", "tcp#80", "udp#53"')

    def test_unknown_class_lists_the_classes(self):
        answer, _ = self.info("class=ports", "code=x", "field=y")
        self.assertEqual(answer["code"], -14101)
        self.assertEqual(answer["nearNames"], ["Ports"])
        self.assertEqual(answer["reason"], 'no group of class "ports" in the scanner\'s MIF text; near: "Ports"; '
                                           'its classes: "Ports", "Host"')

    def test_plain_eval_shows_the_reason(self):
        result = self.eval("CustomScanInfo", "command=ports.sh", "class=Host", "code=box", "field=name")
        self.assertExit(result, EXIT_CODE)
        self.assertIn('  reason: no field "name" in class "Host"; near: "Name"', text(result.stderr))

    def test_query_answered_from_the_cache_still_gets_its_hint(self):
        requests = [{"class": "Ports", "code": "tcp#80", "field": "Address"},
                    {"class": "Ports", "code": "tcp#80", "field": "adress"},
                    {"class": "Ports", "code": "udp#54", "field": "Address"}]
        lines = "".join(json.dumps({"operand": "CustomScanInfo", "properties": dict(command="ports.sh", **r)}) + "\n"
                        for r in requests)
        first, second, third = json_lines(run(["batch", "--scanner-dir", self.scanners.path], stdin=lines).stdout)
        self.assertEqual(first["result"], "127.0.0.1")
        self.assertEqual(second["nearNames"], ["Address"])
        self.assertNotIn("process", second)  # no run: the plug-in's cache answered
        self.assertEqual(third["nearNames"], ["udp#53"])

    def test_request_that_failed_before_repeats_the_first_reason(self):
        request = json.dumps({"operand": "CustomScanList", "properties": {"command": "ports.sh", "class": "Nope"}})
        first, second = json_lines(run(["batch", "--scanner-dir", self.scanners.path],
                                       stdin=request + "\n" + request + "\n").stdout)
        self.assertEqual(first["code"], -14101)
        self.assertEqual(second["code"], -14121)
        self.assertEqual(second["reason"],
                         "this request failed before in this plug-in life and is not run again: " + first["reason"])

    def test_output_file_is_read_for_the_hint(self):
        mif_path = os.path.join(self.scanners.path, "ports.mif")
        self.scanners.script("writes.sh", "cat > '%s' <<'MIF'\n%sMIF\n" % (mif_path, PORTS_MIF))
        result = self.eval("--json", "CustomScanInfo", "command=writes.sh", "output=" + mif_path, "class=Host",
                           "code=box", "field=NAME")
        self.assertEqual(json.loads(result.stdout)["nearNames"], ["Name"])


class TimeLimit(ToolTestCase):
    """--timeout: the host ends a scanner's whole process group."""

    def setUp(self):
        super().setUp()
        self.pids = os.path.join(self.scanners.path, "pids")
        self.scanners.script("hang.sh", "echo started >&2\necho $$ >> '%s'\nsleep 600\n" % self.pids)
        self.scanners.script("stubborn.sh", "trap '' TERM\necho $$ >> '%s'\nwhile :; do sleep 1; done\n" % self.pids)
        self.scanners.script("family.sh", "sleep 600 &\necho $! >> '%s'\nwait\n" % self.pids)
        self.scanners.script("quick.sh", "echo quick\n")

    def assertProcessesEnd(self):
        with open(self.pids) as f:
            pids = [int(p) for p in f.read().split()]
        self.assertTrue(pids)
        for pid in pids:
            for _ in range(500):
                try:
                    with open("/proc/%d/stat" % pid) as f:
                        if f.read().rsplit(")", 1)[1].split()[0] == "Z":
                            break
                except OSError:
                    break
                time.sleep(0.01)
            else:
                self.fail("process %d still runs" % pid)

    def test_hung_scanner_under_timeout_1_ends_with_the_reason(self):
        # The subprocess limit of 30 s guards against a hang; the answer comes
        # after the one second.
        result = self.eval("--timeout", "1", "RunCommand", "path=hang.sh", timeout=30)
        self.assertExit(result, EXIT_CODE)
        err = text(result.stderr)
        self.assertIn("-14202 CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED", err)
        self.assertIn("  reason: the scanner timed out after 1 s\n", err)
        self.assertIn("terminated with error 143", err)
        self.assertProcessesEnd()

    def test_json_answer_says_it_timed_out(self):
        result = self.eval("--json", "--timeout", "0.5", "RunCommand", "path=hang.sh", timeout=30)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["reason"], "the scanner timed out after 0.5 s")
        self.assertEqual(answer["process"]["timedOut"], True)
        self.assertEqual(answer["process"]["timeout"], 0.5)
        self.assertEqual(answer["process"]["signalName"], "SIGTERM")
        self.assertEqual(answer["stderr"], ["started"])

    def test_scanner_that_ignores_sigterm_is_killed_after_the_grace(self):
        answer = json.loads(self.eval("--json", "--timeout", "0.5", "RunCommand", "path=stubborn.sh",
                                      timeout=30).stdout)
        self.assertEqual(answer["reason"], "the scanner timed out after 0.5 s (SIGTERM did not end it; SIGKILL did)")
        self.assertEqual(answer["process"]["signal"], 9)
        self.assertProcessesEnd()

    def test_children_of_the_scanner_end_with_it(self):
        answer = json.loads(self.eval("--json", "--timeout", "0.5", "RunCommand", "path=family.sh",
                                      timeout=30).stdout)
        self.assertTrue(answer["process"]["timedOut"])
        self.assertProcessesEnd()

    def test_mif_operand_times_out_too(self):
        answer = json.loads(self.eval("--json", "--timeout", "0.5", "CustomScanList", "command=hang.sh",
                                      "class=X", timeout=30).stdout)
        self.assertEqual(answer["code"], -14202)
        self.assertEqual(answer["reason"], "the scanner timed out after 0.5 s")

    def test_each_batch_request_has_its_own_limit(self):
        lines = "".join(json.dumps({"operand": "RunCommand", "properties": {"path": p}}) + "\n"
                        for p in ("hang.sh", "quick.sh", "hang.sh"))
        result = run(["batch", "--timeout", "0.5", "--scanner-dir", self.scanners.path], stdin=lines, timeout=60)
        self.assertExit(result, EXIT_OK)
        answers = json_lines(result.stdout)
        self.assertEqual([a["code"] for a in answers], [-14202, 0, -14202])
        self.assertEqual(answers[1]["result"], "quick")
        self.assertTrue(answers[2]["process"]["timedOut"])

    def test_quick_scanner_is_untouched_and_zero_means_no_limit(self):
        for value in ("60", "0", "0.0"):
            with self.subTest(timeout=value):
                result = self.eval("--timeout", value, "RunCommand", "path=quick.sh")
                self.assertExit(result, EXIT_OK)
                self.assertEqual(result.stdout, b"quick\n")

    def test_unusable_time_limits_are_usage_errors(self):
        for value in ("-1", "abc", "", "1e10", "nan", "inf"):
            with self.subTest(timeout=value):
                result = self.eval("--timeout", value, "RunCommand", "path=quick.sh")
                self.assertExit(result, EXIT_USAGE)
                self.assertIn("--timeout", text(result.stderr))

    def test_interrupting_the_tool_ends_the_scanner_too(self):
        command = wrapper() + [TOOL, "eval", "--timeout", "600", "--scanner-dir", self.scanners.path,
                               "RunCommand", "path=hang.sh"]
        tool = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=clean_environment())
        try:
            for _ in range(3000):
                if os.path.exists(self.pids) and open(self.pids).read().strip():
                    break
                time.sleep(0.01)
            tool.send_signal(signal.SIGINT)
            _, err = tool.communicate(timeout=60)
        finally:
            if tool.poll() is None:
                tool.kill()
                tool.wait()
        # The scanner got the signal too; the tool answered, then exited
        # with the signal's status.
        self.assertIn("  reason: the scanner was killed by signal 2 (SIGINT)", text(err))
        self.assertEqual(tool.returncode, 128 + signal.SIGINT)
        self.assertProcessesEnd()


class SafeScannerGuard(ToolTestCase):
    """--require-safe-scanners: the host refuses what others could have changed."""

    def setUp(self):
        super().setUp()
        self.path = self.scanners.script("scan.sh", "echo safe\n")
        os.chmod(self.path, 0o755)
        probe = self.eval("--require-safe-scanners", "--json", "RunCommand", "path=scan.sh")
        if json.loads(probe.stdout)["code"] != 0:
            self.skipTest("the test's scanner directory is itself not safe: " + json.loads(probe.stdout)["reason"])

    def test_safe_scanner_runs(self):
        result = self.eval("--require-safe-scanners", "RunCommand", "path=scan.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"safe\n")

    def test_scanner_writable_by_others_is_refused_with_the_reason(self):
        os.chmod(self.path, 0o757)
        result = self.eval("--require-safe-scanners", "RunCommand", "path=scan.sh")
        self.assertExit(result, EXIT_CODE)
        err = text(result.stderr)
        self.assertIn("-14200 CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS", err)
        refusal = "refused: %s is writable by others (mode 0757); fix: chmod go-w -- %s" % (self.path, self.path)
        self.assertIn("  reason: " + refusal + "\n", err)
        answer = json.loads(self.eval("--json", "--require-safe-scanners", "RunCommand", "path=scan.sh").stdout)
        self.assertEqual(answer["reason"], refusal)
        self.assertEqual(answer["process"], {"program": self.path, "created": False})

    def test_directory_writable_by_its_group_is_refused(self):
        os.makedirs(os.path.join(self.scanners.path, "sub"))
        inner = self.scanners.script("sub/inner.sh", "echo inner\n")
        os.chmod(os.path.dirname(inner), 0o775)
        answer = json.loads(self.eval("--json", "--require-safe-scanners", "RunCommand", "path=sub/inner.sh").stdout)
        self.assertEqual(answer["reason"], "refused: %s is writable by its group (mode 0775); fix: chmod go-w -- %s" %
                         (os.path.dirname(inner), os.path.dirname(inner)))

    def test_guard_is_off_by_default(self):
        os.chmod(self.path, 0o777)
        result = self.eval("RunCommand", "path=scan.sh")
        self.assertExit(result, EXIT_OK)

    def test_batch_takes_the_guard_too(self):
        os.chmod(self.path, 0o757)
        result = run(["batch", "--require-safe-scanners", "--scanner-dir", self.scanners.path],
                     stdin='{"operand": "RunCommand", "properties": {"path": "scan.sh"}}\n')
        self.assertTrue(json_lines(result.stdout)[0]["reason"].startswith("refused: "))


class Documentation(unittest.TestCase):
    def test_the_tools_page_gives_the_commands(self):
        with open(os.path.join(SOURCE_DIR, "docs", "customscan.md")) as f:
            page = f.read()
        for word in ("--timeout", "--require-safe-scanners", '"reason"', '"records"', '"process"', '"stderr"',
                     '"nearNames"', "timed out after"):
            self.assertIn(word, page)

    def test_help_names_the_new_options(self):
        for command in ("eval", "batch"):
            result = run([command, "--help"])
            self.assertIn("--timeout", text(result.stdout))
            self.assertIn("--require-safe-scanners", text(result.stdout))


if __name__ == "__main__":
    unittest.main()
