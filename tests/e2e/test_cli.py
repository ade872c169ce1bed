"""The command line itself: help, version, usage errors and where the tool
finds its plug-in and scanner directory."""

import json
import os
import unittest

from e2e_support import (EXIT_CODE, EXIT_OK, EXIT_USAGE, HOST_LIBRARY, PLUGIN, ToolTestCase, cmake_cache,
                         clean_environment, run, text)


class HelpAndVersion(ToolTestCase):
    def test_help_lists_every_subcommand_and_exits_zero(self):
        result = run(["--help"])
        self.assertExit(result, EXIT_OK)
        out = text(result.stdout)
        for word in ("eval", "batch", "mif", "--version", "Exit status"):
            self.assertIn(word, out)

    def test_every_subcommand_has_its_own_help(self):
        cases = [
            (["eval", "--help"], ["OPERAND", "NAME=VALUE", "--plugin", "--scanner-dir", "--plugin-property",
                                  "--trace[=LEVEL]", "--json"]),
            (["batch", "--help"], ["FILE|-", "--plugin", "--scanner-dir", "--plugin-property", "--trace[=LEVEL]",
                                   "invalid request"]),
            (["mif", "--help"], ["check", "table", "tree"]),
            (["mif", "check", "--help"], ["FILE|-", "--json", "--trace[=LEVEL]", "--plugin-property"]),
            (["mif", "table", "--help"], ["FILE|-", "--class", "--format", "text|json|csv", "--plugin-property"]),
            (["mif", "tree", "--help"], ["FILE|-", "--json"]),
        ]
        for args, words in cases:
            with self.subTest(args=args):
                result = run(args)
                self.assertExit(result, EXIT_OK)
                for word in words:
                    self.assertIn(word, text(result.stdout))

    def test_version_names_the_tool_and_its_version(self):
        result = run(["--version"])
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout).strip(), "customscan 1.1.1.1")


def installed_guide():
    """Where the tool's reference is installed from this build tree."""
    prefix = cmake_cache("CMAKE_INSTALL_PREFIX") or "/usr/local"
    return "%s/%s/doc/customscan/customscan.md" % (prefix, cmake_cache("CMAKE_INSTALL_DATAROOTDIR") or "share")


class PointersToTheReference(ToolTestCase):
    def test_help_names_the_manual_pages_and_the_installed_guide(self):
        out = text(run(["--help"]).stdout)
        self.assertIn("Reference: customscan(1), customscan-mif(5) and %s." % installed_guide(), out)
        self.assertNotIn("docs/customscan.md", out)

    def test_command_line_error_points_at_help_and_the_manual_page(self):
        result = self.eval("--no-such-option", "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("Run with --help for more information, or see customscan(1), customscan-mif(5) and %s."
                      % installed_guide(), text(result.stderr))

    def test_usage_error_of_a_subcommand_points_at_help_and_the_manual_page(self):
        result = run(["eval", "RunCommand"])
        self.assertExit(result, EXIT_USAGE)
        lines = text(result.stderr).splitlines()
        self.assertTrue(lines[0].startswith("customscan: error: no custom scanner directory"), lines)
        self.assertEqual(lines[1], "customscan: Run with --help for more information, or see customscan(1), "
                                   "customscan-mif(5) and %s." % installed_guide())


class UsageErrors(ToolTestCase):
    def test_no_subcommand_is_a_usage_error(self):
        result = run([])
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("subcommand", text(result.stderr))

    def test_unknown_option_is_a_usage_error(self):
        result = self.eval("--no-such-option", "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("--no-such-option", text(result.stderr))

    def test_unknown_subcommand_is_a_usage_error(self):
        self.assertExit(run(["evaluate", "RunCommand"]), EXIT_USAGE)

    def test_eval_without_operand_is_a_usage_error(self):
        self.assertExit(self.eval(), EXIT_USAGE)

    def test_property_without_equals_sign_is_a_usage_error(self):
        result = self.eval("RunCommand", "path")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn('"path" is not of the form NAME=VALUE', text(result.stderr))

    def test_property_with_empty_name_is_a_usage_error(self):
        result = self.eval("RunCommand", "=x")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("empty name", text(result.stderr))

    def test_plugin_property_takes_one_value_per_option(self):
        result = self.eval("--plugin-property", "onDuplicatedKeys=error", "--plugin-property", "onDuplicatedKeys=warn",
                           "--json", "NoSuchOperand")
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["operand"], "NoSuchOperand")
        self.assertNotIn("warning", text(result.stderr))

    def test_plugin_property_without_equals_sign_is_a_usage_error(self):
        result = self.eval("--plugin-property", "onDuplicatedKeys", "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("plug-in property", text(result.stderr))

    def test_trace_level_outside_one_to_four_is_a_usage_error(self):
        for level in ("0", "5", "x"):
            with self.subTest(level=level):
                self.assertExit(self.eval("--trace=" + level, "RunCommand"), EXIT_USAGE)

    def test_missing_scanner_directory_is_a_usage_error(self):
        for args in (["eval", "RunCommand", "path=x"], ["batch", "-"]):
            with self.subTest(args=args):
                result = run(args)
                self.assertExit(result, EXIT_USAGE)
                self.assertIn("--scanner-dir", text(result.stderr))
                self.assertIn("CUSTOMSCAN_SCANNER_DIR", text(result.stderr))

    def test_scanner_directory_that_does_not_exist_is_a_usage_error(self):
        missing = os.path.join(self.scanners.path, "missing")
        result = run(["eval", "--scanner-dir", missing, "RunCommand"])
        self.assertExit(result, EXIT_USAGE)
        self.assertIn(missing, text(result.stderr))

    def test_scanner_directory_that_is_a_file_is_a_usage_error(self):
        path = self.scanners.file("plain", "x")
        self.assertExit(run(["eval", "--scanner-dir", path, "RunCommand"]), EXIT_USAGE)

    def test_batch_file_that_does_not_exist_is_a_usage_error(self):
        result = run(["batch", "--scanner-dir", self.scanners.path, os.path.join(self.scanners.path, "none.jsonl")])
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("none.jsonl", text(result.stderr))


class PluginLoading(ToolTestCase):
    def test_plugin_path_that_does_not_exist_exits_two_with_the_reason(self):
        missing = os.path.join(self.scanners.path, "libNoSuchPlugin.so")
        result = self.eval("--plugin", missing, "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        err = text(result.stderr)
        self.assertIn(missing, err)
        self.assertIn("cannot open shared object file", err)
        self.assertEqual(result.stdout, b"")

    def test_library_without_entry_points_exits_two_naming_the_symbol(self):
        result = self.eval("--plugin", HOST_LIBRARY, "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("createPlugin", text(result.stderr))

    def test_file_that_is_no_library_exits_two(self):
        bogus = self.scanners.file("libBogus.so", "not an ELF file\n")
        result = self.eval("--plugin", bogus, "RunCommand")
        self.assertExit(result, EXIT_USAGE)
        self.assertIn(bogus, text(result.stderr))

    def test_default_plugin_is_the_one_beside_the_tool(self):
        # An unknown operand reaches createExpression: the plug-in was loaded.
        result = self.eval("--json", "NoSuchOperand")
        self.assertExit(result, EXIT_CODE)
        self.assertIn("-10008", text(result.stdout))

    def test_environment_variable_names_the_plugin(self):
        env = clean_environment({"CUSTOMSCAN_PLUGIN": os.path.join(self.scanners.path, "libFromEnv.so")})
        result = run(["eval", "--scanner-dir", self.scanners.path, "RunCommand"], env=env)
        self.assertExit(result, EXIT_USAGE)
        self.assertIn("libFromEnv.so", text(result.stderr))

    def test_plugin_option_wins_over_environment_variable(self):
        env = clean_environment({"CUSTOMSCAN_PLUGIN": os.path.join(self.scanners.path, "libFromEnv.so")})
        result = run(["eval", "--scanner-dir", self.scanners.path, "--plugin", PLUGIN, "NoSuchOperand"], env=env)
        self.assertExit(result, EXIT_CODE)

    def test_scanner_directory_comes_from_the_environment(self):
        env = clean_environment({"CUSTOMSCAN_SCANNER_DIR": self.scanners.path})
        result = run(["eval", "NoSuchOperand"], env=env)
        self.assertExit(result, EXIT_CODE)


if __name__ == "__main__":
    unittest.main()
