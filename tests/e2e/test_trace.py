"""--trace[=LEVEL]: one record a line of standard error, "LEVEL LABEL: TEXT";
scopes only at level 4."""

import unittest

from e2e_support import EXIT_CODE, EXIT_OK, ToolTestCase, text

REFUSED = ("2 DkrPlugin::setProperty(const wchar_t *, const wchar_t *): Unexpected plugin property, skipping. "
           "plugin=[CustomScan] name=[colour] value=[blue]")


class TraceFormat(ToolTestCase):
    def traced(self, *options):
        return self.eval(*(list(options) + ["--plugin-property", "colour=blue", "--json", "NoSuchOperand"]))

    def test_record_is_level_label_and_text_exactly(self):
        result = self.traced("--trace=2")
        self.assertExit(result, EXIT_CODE)
        self.assertIn(REFUSED, text(result.stderr).splitlines())

    def test_default_level_is_three_and_shows_warnings_but_no_scopes(self):
        lines = text(self.traced("--trace").stderr).splitlines()
        self.assertIn(REFUSED, lines)
        self.assertFalse([l for l in lines if l.startswith("4 ")], lines)

    def test_level_one_leaves_out_warnings(self):
        lines = text(self.traced("--trace=1").stderr).splitlines()
        self.assertNotIn(REFUSED, lines)

    def test_scopes_appear_at_level_four(self):
        lines = text(self.traced("--trace=4").stderr).splitlines()
        self.assertIn(REFUSED, lines)
        for label in ("CustomScanPlugin::initializePlugin()", "CustomScanPlugin::setProperty()",
                      "CustomScanPlugin::createExpression"):
            self.assertIn("4 %s: enter" % label, lines)
            self.assertIn("4 %s: leave" % label, lines)
        enter = lines.index("4 CustomScanPlugin::setProperty(): enter")
        self.assertLess(enter, lines.index(REFUSED))

    def test_without_trace_nothing_is_traced(self):
        result = self.traced()
        self.assertNotIn("DkrPlugin", text(result.stderr))

    def test_trace_goes_to_standard_error_only(self):
        result = self.traced("--trace=4")
        self.assertNotIn(b"enter", result.stdout)


class TraceOfACommand(ToolTestCase):
    def test_detail_records_of_the_command_gate(self):
        self.scanners.script("hello.sh", "echo hello\n")
        result = self.eval("--trace", "RunCommand", "path=hello.sh")
        self.assertExit(result, EXIT_OK)
        lines = text(result.stderr).splitlines()
        self.assertIn("3 RunCommand::getCommand(const String&,String&): input command is [hello.sh]", lines)
        self.assertIn("3 RunCommand::getCommand(const String&,String&): the custom scanners directory is [%s]"
                      % self.scanners.path, lines)

    def test_line_feeds_inside_a_record_stay_on_its_line(self):
        self.scanners.script("hello.sh", "echo hello\n")
        result = self.eval("--trace=3", "RunCommand", "path=hello.sh")
        lines = text(result.stderr).splitlines()
        preparing = [l for l in lines if "Preparing process environment for command" in l]
        self.assertEqual(len(preparing), 1, lines)
        self.assertTrue(preparing[0].startswith("3 Command::run(String&, MemoryBuffer&): \\nPreparing"), preparing)
        self.assertTrue(preparing[0].endswith("\\n"), preparing)

    def test_error_records_at_level_one(self):
        result = self.eval("--trace=1", "RunCommand")
        self.assertExit(result, EXIT_CODE)
        lines = text(result.stderr).splitlines()
        self.assertIn("1 CustomScanRunCommand::validateProperties(): Path attribute not specified.", lines)
        self.assertFalse([l for l in lines if l.startswith("3 ")])


if __name__ == "__main__":
    unittest.main()
