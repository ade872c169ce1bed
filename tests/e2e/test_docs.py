"""The documents stay in step with the code they describe."""

import os
import re
import subprocess
import sys
import unittest

from e2e_support import SOURCE_DIR


def read(*parts):
    with open(os.path.join(SOURCE_DIR, *parts)) as f:
        return f.read()


class Documents(unittest.TestCase):
    def test_result_codes_page_is_generated_from_the_header(self):
        result = subprocess.run([sys.executable, os.path.join(SOURCE_DIR, "scripts", "gen-result-codes-doc.py"),
                                 "--check"], stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 0, result.stderr.decode())

    def test_result_codes_page_lists_every_code_of_the_header(self):
        page = read("docs", "result-codes.md")
        header = read("src", "plugins", "CustomScanPlugin", "ResultCodes.h")
        codes = re.findall(r"X\(\s*([A-Z_]+)\s*,\s*(-?\d+)", header)
        self.assertGreaterEqual(len(codes), 31)
        for name, value in codes:
            self.assertIn("| %s | `%s` |" % (value, name), page)

    def test_readme_opens_with_the_tour_and_the_tests(self):
        lines = read("README.md").splitlines()
        self.assertEqual(lines[3], "bash scripts/run-tour.sh        # set up, build, and run the customscan tour on "
                                   "the example scanners")
        self.assertEqual(lines[4], "bash scripts/run-tests.sh       # set up, build, and run every test")

    def test_operand_page_names_every_operand_and_property(self):
        page = read("docs", "operands.md")
        for word in ("RunCommand", "RunCommandEx", "CustomScanInfo", "CustomScanExists", "CustomScanList", "`path`",
                     "`trim`", "`command`", "`class`", "`code`", "`field`", "`output`", "onDuplicatedKeys"):
            self.assertIn(word, page)

    def test_tool_page_names_every_subcommand_and_option(self):
        page = read("docs", "customscan.md")
        for word in ("eval", "batch", "mif check", "mif table", "mif tree", "--plugin", "--scanner-dir",
                     "--plugin-property", "--trace", "--json", "--class", "--format", "--fail-on-error"):
            self.assertIn(word, page)


if __name__ == "__main__":
    unittest.main()
