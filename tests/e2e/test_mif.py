"""customscan mif check / table / tree, on the plug-in's own parser and tables."""

import csv
import io
import json
import unittest

from e2e_support import EXIT_CODE, EXIT_OK, EXIT_USAGE, ToolTestCase, run, text

DISKS = """start component
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
    {"sdb", }
    {"sda", 100}
  end table
end component
"""

AGENT = """start group
  class = "Agents"
  id = 3
  start attribute
    name = "Name"
    value = "Agent"
  end attribute
  start attribute
    name = "Version"
    value = "2.1"
  end attribute
end group
"""

COMPOSITE = """start component
  start group
    class = "Ports"
    key = 2,1
    start attribute
      id = 1
      name = "Port"
      value = ""
    end attribute
    start attribute
      id = 2
      name = "Protocol"
      value = "tcp"
    end attribute
    start attribute
      id = 3
      name = "Note"
      value = ""
    end attribute
  end group
  start table
    class = "Ports"
    {22, , "ssh, \\"secure\\""}
    {53, "udp", dns}
  end table
end component
"""

DUPLICATED = DISKS.replace('{"sda", 100}', '{"sda", 100}\n    {"sda", 200}')

WRONG_END = "start group\nend table\n"


class MifCheck(ToolTestCase):
    def check(self, mif, *args):
        return run(["mif", "check"] + list(args) + ["-"], stdin=mif)

    def test_valid_text_exits_zero_and_summarises_each_class(self):
        result = self.check(DISKS)
        self.assertExit(result, EXIT_OK)
        out = text(result.stdout)
        self.assertIn('class "Disks" (line 2): template group, 2 row(s), key Device', out)
        self.assertTrue(out.rstrip().endswith("-: valid"), out)

    def test_scalar_group(self):
        result = self.check(AGENT)
        self.assertExit(result, EXIT_OK)
        self.assertIn('class "Agents" (line 1): scalar group, 1 row(s), key Name', text(result.stdout))

    def test_parse_error_prints_line_numbered_messages_and_exits_one(self):
        result = self.check(WRONG_END)
        self.assertExit(result, EXIT_CODE)
        lines = text(result.stdout).splitlines()
        self.assertIn("Parsing (line 2) Wrong end scope element, found table expected group", lines)
        self.assertIn("Parsing (line 2) Error parsing token end table", lines)
        self.assertEqual(lines[-1], "-: invalid")
        self.assertIn("-14100 CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF", text(result.stderr))

    def test_validation_failure_names_the_line(self):
        result = self.check("start group\n  {a, b}\nend group\n")
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn("Validation (line 1) scope = group The child row is of an expected type.", out)
        self.assertIn("Validation failed.", out)

    def test_table_that_cannot_be_built_is_invalid(self):
        result = self.check(DISKS.replace('{"sda", 100}', '{"sda"}'))
        self.assertExit(result, EXIT_CODE)
        self.assertIn("CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED", text(result.stdout))
        self.assertIn("-14111", text(result.stderr))

    def test_duplicated_key_warns_and_fails_with_on_duplicated_keys_error(self):
        warned = self.check(DUPLICATED)
        self.assertExit(warned, EXIT_OK)
        self.assertIn("warning: Duplicated row with key sda found, skipping row", text(warned.stdout))
        failed = self.check(DUPLICATED, "--plugin-property", "onDuplicatedKeys=error")
        self.assertExit(failed, EXIT_CODE)
        self.assertIn("CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY", text(failed.stdout))

    def test_json_report_shape(self):
        result = self.check(DISKS, "--json")
        self.assertExit(result, EXIT_OK)
        report = json.loads(result.stdout)
        self.assertEqual(report["valid"], True)
        self.assertEqual(report["code"], 0)
        self.assertEqual(report["classes"][0]["class"], "Disks")
        self.assertEqual(report["classes"][0]["type"], "template")
        self.assertEqual(report["classes"][0]["rows"], 2)
        self.assertEqual(report["classes"][0]["keys"], ["Device"])
        self.assertEqual(report["classes"][0]["attributes"], ["Device", "Size"])
        bad = json.loads(self.check(WRONG_END, "--json").stdout)
        self.assertEqual(bad["valid"], False)
        self.assertEqual(bad["error"], "CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF")
        self.assertIn("Parsing (line 2) Wrong end scope element, found table expected group", bad["messages"])

    def test_file_argument(self):
        path = self.scanners.file("disks.mif", DISKS)
        result = run(["mif", "check", path])
        self.assertExit(result, EXIT_OK)
        self.assertIn(path + ": valid", text(result.stdout))

    def test_missing_file_is_a_usage_error(self):
        self.assertExit(run(["mif", "check", self.scanners.path + "/none.mif"]), EXIT_USAGE)

    def test_trace_shows_the_parser_records(self):
        result = self.check(WRONG_END, "--trace=1")
        self.assertIn("1 MifParser::parse(MemoryBuffer *, MifElement *&): Parsing (line 2) Wrong end scope element, "
                      "found table expected group", text(result.stderr).splitlines())


class MifTable(ToolTestCase):
    def table(self, mif, *args):
        return run(["mif", "table", "-"] + list(args), stdin=mif)

    def test_text_grid_has_the_key_first_and_rows_in_key_order(self):
        result = self.table(DISKS, "--class", "Disks")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout),
                         "key  Device  Size\n"
                         "---  ------  ----\n"
                         "sda  sda     100\n"
                         "sdb  sdb     0\n")

    def test_json_is_an_array_of_objects(self):
        result = self.table(DISKS, "--class", "Disks", "--format", "json")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout), [
            {"key": "sda", "values": {"Device": "sda", "Size": "100"}},
            {"key": "sdb", "values": {"Device": "sdb", "Size": "0"}},
        ])
        self.assertEqual(self.table(DISKS, "--class", "Disks", "--json").stdout, result.stdout)

    def test_csv_is_rfc_4180(self):
        result = self.table(COMPOSITE, "--class", "Ports", "--format", "csv")
        self.assertExit(result, EXIT_OK)
        self.assertIn(b"\r\n", result.stdout)
        rows = list(csv.reader(io.StringIO(result.stdout.decode("utf-8"), newline="")))
        self.assertEqual(rows, [["key", "Port", "Protocol", "Note"],
                                ["tcp#22", "22", "tcp", 'ssh, "secure"'],
                                ["udp#53", "53", "udp", "dns"]])

    def test_composite_key_follows_the_key_list_order(self):
        result = self.table(COMPOSITE, "--class", "Ports")
        self.assertExit(result, EXIT_OK)
        lines = text(result.stdout).splitlines()
        self.assertTrue(lines[2].startswith("tcp#22 "), lines)

    def test_scalar_class_has_one_row(self):
        result = self.table(AGENT, "--class", "Agents", "--format", "json")
        self.assertEqual(json.loads(result.stdout), [{"key": "Agent", "values": {"Name": "Agent", "Version": "2.1"}}])

    def test_unknown_class_exits_one_with_the_code(self):
        result = self.table(DISKS, "--class", "disks")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(result.stdout, b"")
        self.assertIn("-14101 CUSTOM_SCAN_PLUGIN_ERROR_GROUP_NOT_FOUND", text(result.stderr))
        self.assertIn("Group not found (class = disks)", text(result.stderr))

    def test_duplicated_keys_follow_the_plugin_property(self):
        warned = self.table(DUPLICATED, "--class", "Disks", "--json")
        self.assertExit(warned, EXIT_OK)
        self.assertEqual(json.loads(warned.stdout)[0]["values"]["Size"], "100")
        self.assertIn("Duplicated row with key sda found, skipping row", text(warned.stderr))
        failed = self.table(DUPLICATED, "--class", "Disks", "--plugin-property", "onDuplicatedKeys=error")
        self.assertExit(failed, EXIT_CODE)
        self.assertIn("-14115 CUSTOM_SCAN_PLUGIN_ERROR_DUPLICATED_KEY", text(failed.stderr))

    def test_class_is_required_and_format_is_checked(self):
        self.assertExit(self.table(DISKS), EXIT_USAGE)
        self.assertExit(self.table(DISKS, "--class", "Disks", "--format", "xml"), EXIT_USAGE)
        self.assertExit(self.table(DISKS, "--class", "Disks", "--format", "csv", "--json"), EXIT_USAGE)

    def test_parse_error_exits_one(self):
        result = self.table(WRONG_END, "--class", "Disks")
        self.assertExit(result, EXIT_CODE)
        self.assertIn("Parsing (line 2)", text(result.stderr))


class MifTree(ToolTestCase):
    def test_tree_shows_each_element_with_its_line(self):
        result = run(["mif", "tree", "-"], stdin="start group\n  class = \"A\"\n  start table\n    {a, , \"b\"}\n"
                                                 "  end table\nend group\n")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout),
                         "1  Scope <group>\n"
                         "2    Variable <class = A>\n"
                         "3    Scope <table>\n"
                         "4      Row <a |  | b>\n")

    def test_tree_json(self):
        result = run(["mif", "tree", "--json", "-"], stdin="start group\n  k = v\n  start table\n    {a, }\n"
                                                           "  end table\nend group\n")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout), {
            "type": "scope", "name": "group", "line": 1, "children": [
                {"type": "variable", "name": "k", "value": "v", "line": 2},
                {"type": "scope", "name": "table", "line": 3, "children": [
                    {"type": "row", "line": 4, "values": [{"value": "a", "empty": False},
                                                          {"value": "", "empty": True}]}]}]})

    def test_tree_of_invalid_text_exits_one(self):
        result = run(["mif", "tree", "-"], stdin="just text\n")
        self.assertExit(result, EXIT_CODE)
        self.assertIn("Parsing (line 1) Malformed token just text", text(result.stderr))

    def test_deep_tree_prints_without_recursion(self):
        depth = 20000
        mif = "".join("start s%d\n" % i for i in range(depth)) + "".join(
            "end s%d\n" % i for i in reversed(range(depth)))
        result = run(["mif", "tree", "-"], stdin=mif, timeout=300)
        self.assertExit(result, EXIT_OK)
        self.assertEqual(len(result.stdout.splitlines()), depth)
        self.assertExit(run(["mif", "tree", "--json", "-"], stdin=mif, timeout=300), EXIT_USAGE)


if __name__ == "__main__":
    unittest.main()
