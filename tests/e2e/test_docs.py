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
                     "--plugin-property", "--trace", "--json", "--class", "--format", "--fail-on-error", "doctor"):
            self.assertIn(word, page)

    def test_readme_gives_the_packaging_commands(self):
        readme = read("README.md")
        for line in ("cmake --workflow --preset package", "lintian build/package/*.deb"):
            self.assertIn(line, readme)

    def test_integration_guide_covers_every_step_of_a_host(self):
        guide = read("docs", "integrating.md")
        for word in ("find_package(CustomScan", "pkg-config", "Link the host library", "one configuration",
                     "TraceControl::setSink", "HostSettings::setCustomScannerDir", "setProcessTimeout",
                     "setRequireSafeScanners", "dlopen", "createPlugin", "initializePlugin",
                     "createExpression", "getScalarResult", "getVectorResult", "destroyExpression",
                     "One thread at a time", "cleanupPlugin", "destroyPlugin", "dlclose", "Results and ownership"):
            with self.subTest(word=word):
                self.assertIn(word, guide)

    def test_example_host_follows_the_guide_step_by_step(self):
        source = read("examples", "host", "host.cpp")
        guide = read("docs", "integrating.md")
        # Every step of the guide is marked in the program under its number.
        guide_steps = [int(n) for n in re.findall(r"^### (\d+)\. ", guide, re.M)]
        self.assertEqual(guide_steps, list(range(1, len(guide_steps) + 1)))
        self.assertGreaterEqual(len(guide_steps), 9)
        steps = sorted(int(n) for n in re.findall(r"\bStep (\d+):", source))
        self.assertEqual(steps, guide_steps)
        for call in ("TraceControl::setSink", "HostSettings::setCustomScannerDir", "dlopen", "initializePlugin",
                     "createExpression", "destroyExpression", "cleanupPlugin", "dlclose"):
            with self.subTest(call=call):
                self.assertIn(call, source)

    def test_packaging_page_lists_the_three_packages(self):
        page = read("docs", "packaging.md")
        for package in ("`libcustomscanhost1`", "`libcustomscanhost-dev`", "`customscan`"):
            self.assertIn(package, page)

    def test_licence_is_the_standard_apache_text(self):
        licence = read("LICENSE")
        self.assertTrue(licence.lstrip().startswith("Apache License\n"))
        self.assertIn("TERMS AND CONDITIONS FOR USE, REPRODUCTION, AND DISTRIBUTION", licence)
        self.assertIn("Copyright 2026 The CustomScan developers", read("NOTICE"))

    def test_developer_guide_covers_what_a_new_engineer_needs(self):
        guide = read("docs", "developing.md")
        for heading in ("## The house", "## The host contract", "## Fixed by the design: do not tidy",
                        "## Repetition kept on purpose", "## Fault injection", "## Checking a change",
                        "## Adding an operand", "### Adding a host operation"):
            with self.subTest(heading=heading):
                self.assertIn("\n" + heading, guide)
        for command in ("scripts/run-tests.sh", ".ci/run", "scripts/lint.sh", "scripts/ci-asan.sh",
                        "scripts/ci-valgrind.sh", "scripts/fuzz.sh", "bench/run.sh",
                        "scripts/check-host-contract.sh"):
            with self.subTest(command=command):
                self.assertIn(command, guide)

    def test_ci_runs_lint(self):
        self.assertRegex(read(".ci", "run"), r"(?m)^bash scripts/lint\.sh --all$")

    def test_every_library_and_tool_source_is_in_a_source_list(self):
        # Sources are listed by name; a file left off its list would silently not be built.
        listed = read("src", "CMakeLists.txt") + read("src", "tools", "customscan", "CMakeLists.txt")
        for folder, _, files in os.walk(os.path.join(SOURCE_DIR, "src")):
            for name in files:
                if not name.endswith(".cpp"):
                    continue
                relative = os.path.relpath(os.path.join(folder, name), os.path.join(SOURCE_DIR, "src"))
                with self.subTest(source=relative):
                    self.assertTrue(re.search(r"(^|[\s/(])%s(\s|\)|$)" % re.escape(name), listed, re.M),
                                    relative + " is on no source list")


if __name__ == "__main__":
    unittest.main()
