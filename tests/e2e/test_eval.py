"""customscan eval: plain and JSON output, exit statuses, codes on standard error."""

import json
import unittest

from e2e_support import EXIT_CODE, EXIT_OK, EXIT_USAGE, ToolTestCase, text


class EvalWithoutOperands(ToolTestCase):
    def test_unknown_operand_is_reported_with_its_code_name_and_meaning(self):
        result = self.eval("--json", "NoSuchOperand")
        self.assertExit(result, EXIT_CODE)
        answer = json.loads(result.stdout)
        self.assertEqual(answer, {"operand": "NoSuchOperand", "code": -10008, "result": "",
                                  "error": "PLUGIN_ERROR_UNKNOWN_EXPRESSION",
                                  "message": answer["message"]})
        self.assertTrue(answer["message"])
        self.assertEqual(list(answer), ["operand", "code", "result", "error", "message"])
        err = text(result.stderr)
        self.assertIn("-10008", err)
        self.assertIn("PLUGIN_ERROR_UNKNOWN_EXPRESSION", err)
        self.assertIn(answer["message"], err)

    def test_operand_names_are_case_sensitive(self):
        result = self.eval("--json", "runcommand", "path=x")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["code"], -10008)

    def test_failed_operand_prints_nothing_on_standard_output_in_plain_mode(self):
        result = self.eval("NoSuchOperand")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(result.stdout, b"")

    def test_json_output_is_valid_utf8_whatever_the_operand_name(self):
        result = self.eval("--json", b"Bad\xffName")
        self.assertExit(result, EXIT_CODE)
        answer = json.loads(result.stdout.decode("utf-8"))
        self.assertEqual(answer["operand"], "Bad\ufffdName")

    def test_refused_plugin_property_is_reported_as_a_warning(self):
        result = self.eval("--plugin-property", "onDuplicatedKeys=Error", "--json", "NoSuchOperand")
        self.assertExit(result, EXIT_CODE)
        self.assertIn("did not accept the plug-in property onDuplicatedKeys=Error", text(result.stderr))

    def test_accepted_plugin_property_gives_no_warning(self):
        for value in ("error", "warn"):
            with self.subTest(value=value):
                result = self.eval("--plugin-property", "onDuplicatedKeys=" + value, "--json", "NoSuchOperand")
                self.assertNotIn("warning", text(result.stderr))


class EvalRunCommand(ToolTestCase):
    def setUp(self):
        super().setUp()
        self.scanners.script("hello.sh", 'printf "  hello  \\n\\n world \\n"\n')
        self.scanners.script("args.sh", 'printf "%s|" "$@"; echo\n')
        self.scanners.script("fail.sh", 'echo output; echo complaint >&2; exit 3\n')
        self.scanners.script("bytes.sh", "printf 'a\\377b\\n'\n")

    def test_scalar_result_is_printed_with_one_line_feed(self):
        result = self.eval("RunCommand", "path=hello.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"hello\nworld\n")

    def test_scalar_json_shape(self):
        result = self.eval("--json", "RunCommand", "path=hello.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout), {"operand": "RunCommand", "code": 0, "result": "hello\nworld"})
        self.assertEqual(result.stdout.count(b"\n"), 1)

    def test_property_value_is_split_at_the_first_equals_sign(self):
        result = self.eval("RunCommand", "path=args.sh a=b c")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"a=b|c|\n")

    def test_trim_false_keeps_the_output_as_it_is(self):
        result = self.eval("--json", "RunCommand", "path=hello.sh", "trim=false")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout)["result"], "  hello  \n\n world \n")

    def test_failing_scanner_exits_one_and_names_the_code(self):
        result = self.eval("RunCommand", "path=fail.sh")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(result.stdout, b"")
        err = text(result.stderr)
        self.assertIn("-14202 CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED", err)
        self.assertIn("complaint", err)  # the scanner's own standard error passes through

    def test_failing_scanner_json_has_empty_result_error_and_message(self):
        result = self.eval("--json", "RunCommand", "path=fail.sh")
        self.assertExit(result, EXIT_CODE)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["code"], -14202)
        self.assertEqual(answer["result"], "")
        self.assertEqual(answer["error"], "CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED")
        self.assertTrue(answer["message"])

    def test_missing_path_property(self):
        result = self.eval("--json", "RunCommand")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["error"], "CUSTOM_SCAN_PLUGIN_ERROR_PLUGIN_PROPERTY_NOT_FOUND")

    def test_command_outside_the_scanner_directory_is_refused(self):
        result = self.eval("--json", "RunCommand", "path=../../../bin/true")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["code"], -14118)

    def test_command_that_does_not_exist(self):
        result = self.eval("--json", "RunCommand", "path=none.sh")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["code"], -14119)

    def test_relative_scanner_directory_is_accepted(self):
        import os
        result = self.eval("RunCommand", "path=hello.sh", cwd=os.path.dirname(self.scanners.path))
        self.assertExit(result, EXIT_OK)
        relative = os.path.basename(self.scanners.path)
        from e2e_support import run
        result = run(["eval", "--scanner-dir", "./" + relative + "/", "RunCommand", "path=hello.sh"],
                     cwd=os.path.dirname(self.scanners.path))
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"hello\nworld\n")

    def test_invalid_utf8_is_replaced_in_json_and_kept_in_plain_output(self):
        result = self.eval("--json", "RunCommand", "path=bytes.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout.decode("utf-8"))["result"], "a\ufffdb")
        plain = self.eval("RunCommand", "path=bytes.sh")
        self.assertEqual(plain.stdout, b"a\xffb\n")


class EvalRunCommandEx(ToolTestCase):
    def setUp(self):
        super().setUp()
        self.scanners.script("lines.sh", 'printf "a\\n\\n b \\n"\n')
        self.scanners.script("none.sh", 'exit 0\n')

    def test_vector_result_is_one_element_per_line(self):
        result = self.eval("RunCommandEx", "path=lines.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"a\nb\n")

    def test_vector_json_shape(self):
        result = self.eval("--json", "RunCommandEx", "path=lines.sh", "trim=false")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout),
                         {"operand": "RunCommandEx", "code": 0, "result": ["a", "", " b ", ""]})

    def test_vector_failure_json_has_an_empty_list(self):
        result = self.eval("--json", "RunCommandEx")
        self.assertExit(result, EXIT_CODE)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["result"], [])
        self.assertEqual(answer["code"], -14203)

    def test_empty_output_is_one_empty_element(self):
        result = self.eval("--json", "RunCommandEx", "path=none.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout)["result"], [""])


DUPLICATED = """start component
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
    {"sdb", 7}
    {"sda", 100}
    {"sda", 200}
  end table
end component
"""


class EvalMifOperands(ToolTestCase):
    def setUp(self):
        super().setUp()
        self.scanners.script("disks.sh", "cat <<'MIF'\n" + DUPLICATED + "MIF\n")

    def test_info_exists_and_list(self):
        info = self.eval("--json", "CustomScanInfo", "command=disks.sh", "class=Disks", "code=sda", "field=Size")
        self.assertExit(info, EXIT_OK)
        self.assertEqual(json.loads(info.stdout), {"operand": "CustomScanInfo", "code": 0, "result": "100"})
        listed = self.eval("CustomScanList", "command=disks.sh", "class=Disks")
        self.assertEqual(listed.stdout, b"sda\nsdb\n")
        present = json.loads(self.eval("--json", "CustomScanExists", "command=disks.sh", "class=Disks",
                                       "code=sdb").stdout)
        absent = json.loads(self.eval("--json", "CustomScanExists", "command=disks.sh", "class=Disks",
                                      "code=sdc").stdout)
        self.assertEqual((present["code"], absent["code"]), (0, 0))
        self.assertNotEqual(present["result"], absent["result"])

    def test_missing_row_and_field_name_their_codes(self):
        row = self.eval("CustomScanInfo", "command=disks.sh", "class=Disks", "code=SDA", "field=Size")
        self.assertExit(row, EXIT_CODE)
        self.assertIn("-14113 CUSTOM_SCAN_PLUGIN_ERROR_TABLE_ROW_NOT_FOUND", text(row.stderr))
        field = self.eval("CustomScanInfo", "command=disks.sh", "class=Disks", "code=sda", "field=2")
        self.assertIn("-14112 CUSTOM_SCAN_PLUGIN_ERROR_TABLE_FIELD_NOT_FOUND", text(field.stderr))

    def test_on_duplicated_keys_reaches_the_table_builder(self):
        warned = self.eval("--trace=2", "CustomScanList", "command=disks.sh", "class=Disks")
        self.assertExit(warned, EXIT_OK)
        self.assertIn("Duplicated row with key sda found, skipping row", text(warned.stderr))
        failed = self.eval("--json", "--plugin-property", "onDuplicatedKeys=error", "CustomScanList",
                           "command=disks.sh", "class=Disks")
        self.assertExit(failed, EXIT_CODE)
        answer = json.loads(failed.stdout)
        self.assertEqual(answer["code"], -14115)
        self.assertEqual(answer["result"], [])
        self.assertEqual(answer["error"], "CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY")

    def test_missing_properties_are_reported_in_order(self):
        result = self.eval("--json", "CustomScanInfo", "class=Disks")
        self.assertEqual(json.loads(result.stdout)["error"], "CUSTOM_SCAN_ERROR_UNSPECIFIED_COMMAND")


if __name__ == "__main__":
    unittest.main()
