"""customscan batch: JSON Lines in, JSON Lines out, one plug-in life."""

import json
import os
import unittest

from e2e_support import (EXIT_OK, EXIT_USAGE, ToolTestCase, json_lines, run, text)


class BatchRequests(ToolTestCase):
    def batch(self, lines, *args, **kwargs):
        return run(["batch", "--scanner-dir", self.scanners.path] + list(args), stdin=lines, **kwargs)

    def test_invalid_lines_are_answered_and_the_run_goes_on(self):
        lines = "\n".join([
            '{"operand": "NoSuchOperand"}',
            'this is not JSON',
            '[1, 2]',
            '{"properties": {}}',
            '{"operand": 7}',
            '{"operand": "X", "properties": ["a"]}',
            '{"operand": "X", "properties": {"path": 1}}',
            '{"operand": "X", "extra": true}',
            '{"operand": "NoSuchOperand", "properties": {"a": "b"}}',
        ]) + "\n"
        result = self.batch(lines)
        self.assertExit(result, EXIT_USAGE)
        answers = json_lines(result.stdout)
        self.assertEqual(len(answers), 9)
        self.assertEqual(answers[0]["code"], -10008)
        for index in range(1, 8):
            with self.subTest(line=index + 1):
                self.assertEqual(list(answers[index]), ["line", "error", "message"])
                self.assertEqual(answers[index]["line"], index + 1)
                self.assertEqual(answers[index]["error"], "invalid request")
                self.assertTrue(answers[index]["message"])
        self.assertEqual(answers[8]["operand"], "NoSuchOperand")
        self.assertIn("invalid request line(s): 2 3 4 5 6 7 8", text(result.stderr))

    def test_messages_say_what_is_wrong(self):
        lines = '{"operand": 7}\n{"operand": "X", "propertes": {}}\n'
        answers = json_lines(self.batch(lines).stdout)
        self.assertIn('"operand" is not a string', answers[0]["message"])
        self.assertIn('unexpected member "propertes"', answers[1]["message"])

    def test_all_valid_lines_exit_zero_even_when_operands_fail(self):
        result = self.batch('{"operand": "NoSuchOperand"}\n{"operand": "Other"}\n')
        self.assertExit(result, EXIT_OK)
        answers = json_lines(result.stdout)
        self.assertEqual([a["code"] for a in answers], [-10008, -10008])
        self.assertEqual(answers[0], {"operand": "NoSuchOperand", "code": -10008, "result": "",
                                      "error": "PLUGIN_ERROR_UNKNOWN_EXPRESSION", "message": answers[0]["message"]})

    def test_blank_lines_are_skipped_but_counted(self):
        result = self.batch('\n   \n{"operand": "NoSuchOperand"}\r\n\nnot json\n')
        self.assertExit(result, EXIT_USAGE)
        answers = json_lines(result.stdout)
        self.assertEqual(len(answers), 2)
        self.assertEqual(answers[1]["line"], 5)

    def test_empty_input_writes_nothing(self):
        result = self.batch("")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"")

    def test_last_line_without_line_feed_is_read(self):
        result = self.batch('{"operand": "NoSuchOperand"}')
        self.assertExit(result, EXIT_OK)
        self.assertEqual(len(json_lines(result.stdout)), 1)

    def test_input_from_file_and_from_dash(self):
        path = self.scanners.file("requests.jsonl", '{"operand": "NoSuchOperand"}\n')
        from_file = run(["batch", "--scanner-dir", self.scanners.path, path])
        self.assertExit(from_file, EXIT_OK)
        from_dash = self.batch('{"operand": "NoSuchOperand"}\n', "-")
        self.assertEqual(from_file.stdout, from_dash.stdout)

    def test_invalid_utf8_in_a_line_is_an_invalid_request_and_output_stays_utf8(self):
        result = self.batch(b'{"operand": "Bad\xff"}\n')
        self.assertExit(result, EXIT_USAGE)
        answer = json.loads(result.stdout.decode("utf-8"))
        self.assertEqual(answer["error"], "invalid request")

    def test_summary_of_many_invalid_lines_is_cut_short(self):
        result = self.batch("x\n" * 25)
        self.assertExit(result, EXIT_USAGE)
        self.assertEqual(len(json_lines(result.stdout)), 25)
        err = text(result.stderr).strip()
        self.assertIn("25 invalid request line(s): 1 2 3", err)
        self.assertTrue(err.endswith(" 20 ..."), err)

    def test_json_option_is_accepted(self):
        self.assertExit(self.batch('{"operand": "NoSuchOperand"}\n', "--json"), EXIT_OK)


class BatchCommands(ToolTestCase):
    def test_answers_have_the_eval_json_form_in_request_order(self):
        self.scanners.script("one.sh", "echo one\n")
        self.scanners.script("two.sh", "echo a; echo b\n")
        lines = "\n".join([
            json.dumps({"operand": "RunCommand", "properties": {"path": "one.sh"}}),
            json.dumps({"operand": "RunCommandEx", "properties": {"path": "two.sh"}}),
            json.dumps({"operand": "RunCommand", "properties": {}}),
        ]) + "\n"
        result = run(["batch", "--scanner-dir", self.scanners.path], stdin=lines)
        self.assertExit(result, EXIT_OK)
        answers = json_lines(result.stdout)
        self.assertEqual(answers[0], {"operand": "RunCommand", "code": 0, "result": "one"})
        self.assertEqual(answers[1], {"operand": "RunCommandEx", "code": 0, "result": ["a", "b"]})
        self.assertEqual(answers[2]["code"], -14203)
        self.assertEqual(answers[2]["error"], "CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND")


MIF_WITH_COUNTER = """
count=$(cat "$0.count" 2>/dev/null || echo 0)
echo $((count + 1)) > "$0.count"
cat <<'MIF'
start component
  start group
    class = "Disks"
    key = 1
    start attribute
      id = 1
      name = "Device"
      value = ""
    end attribute
    start attribute
      id = 2
      name = "Size"
      value = "0"
    end attribute
  end group
  start table
    class = "Disks"
    {"sda", 100}
    {"sdb", }
  end table
end component
MIF
"""


class BatchMifCache(ToolTestCase):
    def test_one_plugin_life_runs_each_scanner_once(self):
        script = self.scanners.script("disks.sh", MIF_WITH_COUNTER)
        base = {"command": "disks.sh", "class": "Disks"}
        requests = [
            {"operand": "CustomScanList", "properties": base},
            {"operand": "CustomScanInfo", "properties": dict(base, code="sdb", field="Size")},
            {"operand": "CustomScanExists", "properties": dict(base, code="sdc")},
        ]
        result = run(["batch", "--scanner-dir", self.scanners.path],
                     stdin="".join(json.dumps(r) + "\n" for r in requests))
        self.assertExit(result, EXIT_OK)
        answers = json_lines(result.stdout)
        self.assertEqual(answers[0]["result"], ["sda", "sdb"])
        self.assertEqual(answers[1]["result"], "0")
        self.assertEqual(answers[2]["code"], 0)
        with open(script + ".count") as f:
            self.assertEqual(f.read().strip(), "1")

    def test_separate_evals_run_the_scanner_each_time(self):
        script = self.scanners.script("disks.sh", MIF_WITH_COUNTER)
        for _ in range(2):
            result = run(["eval", "--scanner-dir", self.scanners.path, "CustomScanList",
                          "command=disks.sh", "class=Disks"])
            self.assertExit(result, 0)
        with open(script + ".count") as f:
            self.assertEqual(f.read().strip(), "2")


if __name__ == "__main__":
    unittest.main()
