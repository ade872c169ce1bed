"""customscan mif check / table / tree, on the plug-in's own parser and tables."""

import csv
import io
import json
import os
import re
import resource
import shlex
import subprocess
import sys
import unittest

from e2e_support import (EXIT_CODE, EXIT_OK, EXIT_USAGE, SOURCE_DIR, TOOL, ToolTestCase, clean_environment, run,
                         text, wrapper)

sys.path.insert(0, os.path.join(SOURCE_DIR, "bench"))
import mif_scale  # noqa: E402  (the generator of bench/, so that the tests and the figures share their texts)

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



def generated(kind, *sizes):
    """A text of bench/mif_scale.py."""
    return "\n".join(getattr(mif_scale, kind)(*sizes)) + "\n"


def deep(depth):
    """A valid text of depth scopes, each inside the one before."""
    return generated("deep", depth)


def deep_json(depth):
    """What mif tree --json writes for deep(depth)."""
    return "".join('{"type":"scope","name":"s%d","line":%d,"children":[' % (i, i + 1)
                   for i in range(depth)) + "]}" * depth + "\n"


def run_with_stack(args, stdin, stack_bytes):
    """Runs the tool (under the wrapper) with its stack limited to stack_bytes."""
    def limit():
        resource.setrlimit(resource.RLIMIT_STACK, (stack_bytes, stack_bytes))
    return subprocess.run(wrapper() + [TOOL] + list(args), input=stdin.encode("utf-8"),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=clean_environment(),
                          preexec_fn=limit, timeout=300)


def scaled(count):
    """count, or a tenth of it under a checker such as valgrind, which is some fifty times slower."""
    return count // 10 if wrapper() else count


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


def with_rows(rows):
    """DISKS with its rows replaced."""
    head, _, rest = DISKS.partition('    {"sdb", }\n')
    return head + rows + rest.partition('    {"sda", 100}\n')[2]


DESKTOP = os.path.join(SOURCE_DIR, "examples", "mif", "desktop.mif")
CRLF = os.path.join(SOURCE_DIR, "examples", "mif", "crlf.mif")
BOM = os.path.join(SOURCE_DIR, "examples", "mif", "bom.mif")


class MifCheckRoute(ToolTestCase):
    """The text is read as the agent reads it through the route named."""

    def test_crlf_text_is_valid_through_standard_output_with_a_hint(self):
        result = run(["mif", "check", CRLF])
        self.assertExit(result, EXIT_OK)
        out = text(result.stdout)
        self.assertIn('class "Disks" (line 2): template group, 2 row(s), key Device', out)
        self.assertIn(CRLF + ":1: hint: line 1 ends in CR LF (as do 20 more lines): the stdout route drops every CR "
                      "byte", out)

    def test_crlf_rows_fail_through_a_file_and_the_cr_is_shown(self):
        result = run(["mif", "check", "--route", "file", CRLF])
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn('Parsing (line 18) Malformed token {"sda", 100}\\r', out)
        self.assertIn(CRLF + ":18: hint: line 18 ends in a carriage return after the row's '}', which the file route "
                      "keeps: to the agent the line is malformed, not a row", out)
        self.assertIn(CRLF + ":19: hint:", out)

    def test_crlf_scalar_group_passes_through_a_file(self):
        result = run(["mif", "check", "--route", "file", "-"], stdin=AGENT.replace("\n", "\r\n"))
        self.assertExit(result, EXIT_OK)
        self.assertIn("the file route keeps the CR bytes; the agent trims them from start, end and variable lines",
                      text(result.stdout))

    def test_zero_bytes_are_dropped_through_standard_output(self):
        mif = AGENT.replace('"Agent"', '"Ag\0ent"')
        result = run(["mif", "check", "-"], stdin=mif)
        self.assertExit(result, EXIT_OK)
        self.assertIn("-:6: hint: line 6 holds a zero byte (1 in the text): the stdout route drops zero bytes",
                      text(result.stdout))
        table = run(["mif", "table", "-", "--class", "Agents", "--json"], stdin=mif)
        self.assertEqual(json.loads(table.stdout)[0]["key"], "Agent")

    def test_a_zero_byte_ends_the_text_of_a_file(self):
        result = run(["mif", "check", "--route", "file", "-"], stdin=AGENT + "\0garbage\n")
        self.assertExit(result, EXIT_OK)
        self.assertIn("-:13: hint: line 13 holds a zero byte: read from an output file the text ends there, and the "
                      "agent ignores the 8 byte(s) after it", text(result.stdout))
        cut = run(["mif", "check", "--route", "file", "-"], stdin=AGENT[:40] + "\0" + AGENT[40:])
        self.assertExit(cut, EXIT_CODE)
        self.assertIn("No scope nesting matched.", text(cut.stdout))

    def test_route_is_named_in_json_and_checked(self):
        report = json.loads(run(["mif", "check", "--json", "--route", "file", "-"], stdin=AGENT).stdout)
        self.assertEqual(report["route"], "file")
        self.assertEqual(json.loads(run(["mif", "check", "--json", "-"], stdin=AGENT).stdout)["route"], "stdout")
        result = run(["mif", "check", "--route", "pipe", "-"], stdin=AGENT)
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("--route", text(result.stderr))


class MifCheckHints(ToolTestCase):
    """Each hint names its line and says what the agent makes of it."""

    def hints(self, mif, *args):
        result = run(["mif", "check", "--json"] + list(args) + ["-"], stdin=mif)
        return result, json.loads(result.stdout)["hints"]

    def assertHint(self, mif, kind, line, words, status=None):
        result, hints = self.hints(mif)
        if status is not None:
            self.assertExit(result, status)
        found = [h for h in hints if h["kind"] == kind]
        self.assertEqual([h["line"] for h in found], [line], hints)
        self.assertIn(words, found[0]["message"])

    def test_byte_order_mark(self):
        result = run(["mif", "check", BOM])
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn("Parsing (line 1) Malformed token \\u{FEFF}start group", out)
        self.assertIn(BOM + ":1: hint: line 1 begins with a UTF-8 byte order mark (bytes EF BB BF), which the agent "
                      "does not skip: to the agent the line is malformed, not a start line", out)

    def test_string_continued_on_the_next_line_and_group_with_id_and_key(self):
        result = run(["mif", "check", DESKTOP])
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn('Parsing (line 4) Malformed token and the OS they run on."', out)
        self.assertIn(DESKTOP + ':3: hint: line 3 opens a quoted string that line 4 closes: the agent reads one line '
                      'at a time and this dialect does not continue a string on the next line, so the value of '
                      '"Description" is "The computers of one site" and line 4 is malformed', out)
        self.assertIn(DESKTOP + ':5: hint: line 5 starts a group with both an id ("ID", line 8) and a key ("Key", '
                      'line 9): this dialect does not accept a group with both ("Unsupported group type (type = 3)")',
                      out)

    def test_group_with_id_and_key_once_the_string_is_joined(self):
        with open(DESKTOP) as f:
            joined = f.read().replace("site\n                   and", "site and")
        result = run(["mif", "check", "-"], stdin=joined)
        self.assertExit(result, EXIT_CODE)
        out = text(result.stdout)
        self.assertIn("  Unsupported group type (type = 3)", out)
        self.assertIn("-:4: hint: line 4 starts a group with both", out)
        self.assertNotIn("quoted string", out)

    def test_blank_after_the_row_brace(self):
        self.assertHint(with_rows('    {"sda", 100} \n'), "blank-after-brace", 18,
                        "has a blank after the row's closing '}': a row must end at its '}', so to the agent the line "
                        "is malformed", EXIT_CODE)

    def test_blank_after_a_row_holding_an_equals_sign_is_a_variable(self):
        self.assertHint(with_rows('    {"a=b", 1}  \n    {"sda", 100}\n'), "blank-after-brace", 18,
                        "has 2 blanks after the row's closing '}': a row must end at its '}', so to the agent the "
                        "line is a variable", EXIT_OK)

    def test_tab_after_a_keyword(self):
        self.assertHint(DISKS.replace("  end group", "  end\tgroup"), "tab-after-keyword", 15,
                        'has a tab after "end": the keyword must be followed by a blank', EXIT_CODE)

    def test_tab_beside_a_quoted_row_value(self):
        self.assertHint(with_rows('    {"sda",\t100}\n    {\t"sdb", 1}\n'), "tab-in-row", 19,
                        "has a tab beside a quoted value of the row: only blanks may stand before an opening quote",
                        EXIT_CODE)

    def test_row_over_two_lines(self):
        self.assertHint(with_rows('    {"sda",\n     100}\n'), "row-spans-lines", 18,
                        "opens a row that line 19 closes: a row must stand on one line", EXIT_CODE)

    def test_unbalanced_quote_in_a_variable_that_otherwise_passes(self):
        self.assertHint(DISKS.replace('name = "Size"', 'name = "Size'), "unbalanced-quote", 12,
                        'has a quote at one end only of the value of "name": the agent drops that quote, so the '
                        'value is "Size"', EXIT_OK)

    def test_unbalanced_quote_in_a_row_that_otherwise_passes(self):
        mif = AGENT.replace('class = "Agents"\n  id = 3', 'class = "Agents"\n  key = 1').replace(
            'name = "Name"', 'id = 1\n    name = "Name"').replace(
            "end group\n", 'end group\nstart table\n  class = "Agents"\n  {"a, b}\nend table\n')
        self.assertHint("start doc\n" + mif + "end doc\n", "unbalanced-quote", 17,
                        "opens value 1 of the row with a quote that is never closed", EXIT_CODE)

    def test_plain_output_gives_each_hint_a_line_before_the_verdict(self):
        lines = text(run(["mif", "check", "-"], stdin=with_rows('    {"sda", 100} \n')).stdout).splitlines()
        self.assertEqual(lines[-2:], ["-:18: hint: line 18 has a blank after the row's closing '}': a row must end at "
                                      "its '}', so to the agent the line is malformed", "-: invalid"])

    def test_valid_text_has_no_hints(self):
        for mif in (DISKS, AGENT, COMPOSITE):
            result, hints = self.hints(mif)
            self.assertExit(result, EXIT_OK)
            self.assertEqual(hints, [])
            self.assertNotIn("hint:", text(run(["mif", "check", "-"], stdin=mif).stdout))

    def test_hints_of_one_kind_are_capped(self):
        rows = "".join('    {"r%d", 1} \n' % i for i in range(100))
        result, hints = self.hints(with_rows(rows))
        self.assertEqual(len(hints), 11)
        self.assertEqual(hints[-1]["line"], 28)
        self.assertIn("90 more line(s)", hints[-1]["message"])


class MifCheckFiles(ToolTestCase):
    """Several files in one call; the exit status is the worst."""

    def test_each_file_gets_its_verdict_and_the_worst_status_wins(self):
        good = self.scanners.file("good.mif", DISKS)
        bad = self.scanners.file("bad.mif", WRONG_END)
        result = run(["mif", "check", good, bad, good])
        self.assertExit(result, EXIT_CODE)
        verdicts = [l for l in text(result.stdout).splitlines() if l.endswith(": valid") or l.endswith(": invalid")]
        self.assertEqual(verdicts, [good + ": valid", bad + ": invalid", good + ": valid"])
        self.assertExit(run(["mif", "check", good, good]), EXIT_OK)

    def test_a_file_that_cannot_be_read_makes_the_status_two_and_the_others_are_checked(self):
        good = self.scanners.file("good.mif", DISKS)
        missing = os.path.join(self.scanners.path, "none.mif")
        result = run(["mif", "check", missing, good])
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("cannot open " + missing, text(result.stderr))
        self.assertIn(good + ": valid", text(result.stdout))
        bad = self.scanners.file("bad.mif", WRONG_END)
        self.assertExit(run(["mif", "check", bad, self.scanners.path]), EXIT_USAGE)

    def test_json_is_one_object_per_file(self):
        good = self.scanners.file("good.mif", DISKS)
        missing = os.path.join(self.scanners.path, "none.mif")
        result = run(["mif", "check", "--json", good, missing, "-"], stdin=WRONG_END)
        reports = [json.loads(line) for line in result.stdout.splitlines()]
        self.assertEqual([r["file"] for r in reports], [good, missing, "-"])
        self.assertEqual([r["valid"] for r in reports], [True, False, False])
        self.assertEqual(reports[1]["error"], "unreadable")

    def test_standard_input_only_once(self):
        result = run(["mif", "check", "-", "-"], stdin=DISKS)
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("standard input (-) can be checked only once", text(result.stderr))


class MifScale(ToolTestCase):
    """Large texts: the answers, whole; their speed is measured by bench/mif_scale.py, not here."""

    def test_check_of_many_classes_reports_each(self):
        count = scaled(8000)
        result = run(["mif", "check", "-"], stdin=generated("classes", count), timeout=600)
        self.assertExit(result, EXIT_OK)
        lines = text(result.stdout).splitlines()
        self.assertEqual(len(lines), count + 1)
        self.assertEqual(lines[count - 1], 'class "C%d" (line %d): scalar group, 1 row(s), key Name'
                         % (count - 1, 2 + 14 * (count - 1)))

    def test_check_of_many_classes_sees_repeats_and_table_before_group(self):
        mif = generated("classes", scaled(2000))
        extra = ('start table\n  class = "T"\n  {"x", 1}\nend table\n'
                 'start group\n  class = "T"\n  key = 1\n'
                 '  start attribute\n    id = 1\n    name = "K"\n    value = ""\n  end attribute\n'
                 '  start attribute\n    id = 2\n    name = "V"\n    value = "d"\n  end attribute\n'
                 'end group\nstart group\n  class = "C0"\n  id = 1\n'
                 '  start attribute\n    name = "N"\n  end attribute\nend group\n')
        mif = mif.replace("end component\n", extra + "end component\n")
        result = run(["mif", "check", "--json", "-"], stdin=mif, timeout=600)
        report = json.loads(result.stdout)
        self.assertTrue(report["valid"])
        table = [c for c in report["classes"] if c["class"] == "T"][0]
        self.assertEqual((table["type"], table["rows"], table["keys"]), ("template", 1, ["K"]))
        self.assertEqual(len([w for w in report["warnings"] if 'repeats class "C0"' in w]), 1)

    def test_group_naming_many_classes_answers_for_each(self):
        count = scaled(20000)
        mif = ("start group\n" + "".join('  class = "C%d"\n' % i for i in range(count)) +
               '  id = 1\n  start attribute\n    name = "N"\n    value = "v"\n  end attribute\nend group\n')
        result = run(["mif", "check", "-"], stdin=mif, timeout=600)
        self.assertExit(result, EXIT_OK)
        lines = text(result.stdout).splitlines()
        self.assertEqual(len(lines), count + 1)
        self.assertEqual(lines[count - 1], 'class "C%d" (line 1): scalar group, 1 row(s), key N' % (count - 1))

    def test_classes_of_one_group_get_messages_that_name_each(self):
        mif = DISKS.replace('class = "Disks"\n    key = 1', 'class = "Disks"\n    class = "Drives"\n    id = 1\n    key = 1')
        result = run(["mif", "check", "--json", "-"], stdin=mif)
        self.assertExit(result, EXIT_CODE)
        classes = json.loads(result.stdout)["classes"]
        self.assertEqual([c["class"] for c in classes], ["Disks", "Drives"])
        self.assertEqual([c["error"] for c in classes], ["CUSTOM_SCAN_PLUGIN_ERROR_UNSUPPORTED_GROUP_TYPE"] * 2)
        self.assertEqual(classes[1]["messages"], ["Unsupported group type (type = 3)",
                                                  "Failure initializing the group (class = Drives)",
                                                  "Failure initializing the MIF table (class = Drives)"])
        shared = DISKS.replace('class = "Disks"\n    key = 1', 'class = "Disks"\n    class = "Drives"\n    key = 1')
        shared = shared.replace('  start table\n    class = "Disks"', '  start table\n    class = "Disks"\n    class = "Drives"')
        report = json.loads(run(["mif", "check", "--json", "-"], stdin=shared).stdout)
        self.assertEqual([(c["class"], c["rows"], c["keys"]) for c in report["classes"]],
                         [("Disks", 2, ["Device"]), ("Drives", 2, ["Device"])])
        other = shared.replace('    class = "Drives"\n    {"sdb"', '    {"sdb"').replace(
            "end component", '  start table\n    class = "Drives"\n    {"x", 1}\n  end table\nend component')
        report = json.loads(run(["mif", "check", "--json", "-"], stdin=other).stdout)
        self.assertEqual([(c["class"], c["rows"]) for c in report["classes"]], [("Disks", 2), ("Drives", 1)])

    def test_table_of_many_attributes_is_whole(self):
        attributes = scaled(10000)
        result = run(["mif", "table", "-", "--class", "Wide", "--format", "json"],
                     stdin=generated("wide", attributes, 20), timeout=600)
        self.assertExit(result, EXIT_OK)
        rows = json.loads(result.stdout)
        self.assertEqual([r["key"] for r in rows], sorted("r%d" % r for r in range(20)))
        self.assertEqual(len(rows[0]["values"]), attributes)
        self.assertEqual(rows[0]["values"]["A%d" % (attributes - 1)], str(attributes - 1))

    def test_table_of_many_rows_is_whole_in_every_format(self):
        count = scaled(10000)
        mif = generated("long", count, 20)
        for fmt in ("text", "csv", "json"):
            with self.subTest(format=fmt):
                result = run(["mif", "table", "-", "--class", "Wide", "--format", fmt], stdin=mif, timeout=600)
                self.assertExit(result, EXIT_OK)
                if fmt == "json":
                    self.assertEqual(len(json.loads(result.stdout)), count)
                else:
                    self.assertEqual(len(result.stdout.splitlines()), count + (2 if fmt == "text" else 1))


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
        self.assertIn('class names are case-sensitive: the text has "Disks"', text(result.stderr))

    def test_unknown_class_lists_the_classes_there_are(self):
        mif = DISKS.replace("end component\n", AGENT.replace("start group", "start group", 1) + "end component\n")
        result = self.table(mif, "--class", "Nope")
        self.assertExit(result, EXIT_CODE)
        self.assertIn('customscan: mif table: the text defines the classes "Disks", "Agents"', text(result.stderr))
        none = self.table("start component\nend component\n", "--class", "Nope")
        self.assertIn("the text defines no group with a class", text(none.stderr))

    def test_long_class_lists_are_cut(self):
        result = self.table(generated("classes", 30), "--class", "Nope")
        self.assertIn('"C19" and 10 more', text(result.stderr))

    def test_table_reads_the_route_named(self):
        crlf = DISKS.replace("\n", "\r\n")
        self.assertExit(self.table(crlf, "--class", "Disks"), EXIT_OK)
        self.assertExit(self.table(crlf, "--class", "Disks", "--route", "file"), EXIT_CODE)

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

    def test_deep_tree_shows_the_depth_as_a_number_past_the_indentation(self):
        depth = scaled(20000)
        result = run(["mif", "tree", "-"], stdin=deep(depth), timeout=600)
        self.assertExit(result, EXIT_OK)
        lines = text(result.stdout).splitlines()
        self.assertEqual(len(lines), depth)
        self.assertLess(len(result.stdout), depth * 1000)  # 20 MB for 20,000 levels
        width = len(str(depth))
        self.assertEqual(lines[20], "21".rjust(width) + "  " + " " * 40 + "Scope <s20>")
        self.assertEqual(lines[21], "22".rjust(width) + "  " + " " * 40 + "[depth 21] Scope <s21>")
        self.assertEqual(lines[-1], "%d  %s[depth %d] Scope <s%d>" % (depth, " " * 40, depth - 1, depth - 1))

    def test_deep_tree_json_is_written_whole(self):
        depth = scaled(20000)
        result = run(["mif", "tree", "--json", "-"], stdin=deep(depth), timeout=300)
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout), deep_json(depth))

    def test_tree_json_of_the_depth_it_once_refused_fits_a_256_kib_stack(self):
        for depth in (1000, scaled(20000)):
            with self.subTest(depth=depth):
                result = run_with_stack(["mif", "tree", "--json", "-"], deep(depth), 256 * 1024)
                self.assertExit(result, EXIT_OK)
                self.assertEqual(text(result.stdout), deep_json(depth))

    def test_tree_reads_the_route_named(self):
        crlf = "start group\r\n  k = v\r\nend group\r\n"
        self.assertExit(run(["mif", "tree", "-"], stdin=crlf), EXIT_OK)
        self.assertEqual(text(run(["mif", "tree", "--route", "file", "-"], stdin=crlf).stdout),
                         "1  Scope <group>\n2    Variable <k = v>\n")
        self.assertExit(run(["mif", "tree", "--route", "file", "-"], stdin="start group\n  {a}\r\nend group\n"),
                        EXIT_CODE)


class MifReference(ToolTestCase):
    """The examples of the mif sections of docs/customscan.md print what they show."""

    def examples(self):
        with open(os.path.join(SOURCE_DIR, "docs", "customscan.md")) as f:
            page = f.read()
        sections = re.split(r"^## ", page, flags=re.M)
        found = []
        for section in sections:
            if not section.startswith("mif "):
                continue
            for block in re.findall(r"^```\n(.*?)^```", section, flags=re.M | re.S):
                command = None
                for line in block.splitlines():
                    if line.startswith("$ "):
                        command = [line[2:], []]
                        found.append(command)
                    elif command is not None:
                        command[1].append(line)
        return found

    def test_each_example_prints_what_the_reference_shows(self):
        examples = self.examples()
        self.assertGreaterEqual(len(examples), 6)
        customscan = " ".join(shlex.quote(word) for word in wrapper() + [TOOL])
        for command, expected in examples:
            with self.subTest(command=command):
                result = subprocess.run(["bash", "-c", "customscan() { %s \"$@\"; }\n%s" % (customscan, command)],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd=SOURCE_DIR,
                                        env=clean_environment(), timeout=300)
                self.assertEqual(text(result.stdout).splitlines(), expected)


if __name__ == "__main__":
    unittest.main()
