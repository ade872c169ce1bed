"""The example scanners a new user runs first, through the tool."""

import json
import os
import subprocess
import unittest

from e2e_support import (EXAMPLES, EXIT_CODE, EXIT_OK, SOURCE_DIR, ToolTestCase, json_lines,
                         run, text)

MIF_SCANNERS = {"os-release.sh": "OperatingSystem", "mounts.sh": "FileSystems", "block-devices.sh": "BlockDevices"}


def scanner_output(name):
    return subprocess.run([os.path.join(EXAMPLES, name)], stdout=subprocess.PIPE, check=False).stdout


class ExampleFiles(unittest.TestCase):
    def test_every_scanner_is_executable_and_documented_in_one_line(self):
        with open(os.path.join(EXAMPLES, "README.md")) as f:
            readme = f.read()
        scripts = sorted(n for n in os.listdir(EXAMPLES) if n.endswith(".sh"))
        self.assertGreaterEqual(len(scripts), 5)
        for name in scripts:
            with self.subTest(scanner=name):
                self.assertTrue(os.access(os.path.join(EXAMPLES, name), os.X_OK))
                self.assertEqual(len([l for l in readme.splitlines() if "`%s`" % name in l]), 1)

    def test_scanners_are_posix_sh(self):
        for name in os.listdir(EXAMPLES):
            if name.endswith(".sh"):
                with self.subTest(scanner=name):
                    with open(os.path.join(EXAMPLES, name)) as f:
                        self.assertEqual(f.readline().strip(), "#!/bin/sh")
                    subprocess.run(["sh", "-n", os.path.join(EXAMPLES, name)], check=True)


class ExampleMif(ToolTestCase):
    def test_mif_scanners_write_text_that_checks_valid(self):
        for name, cls in MIF_SCANNERS.items():
            with self.subTest(scanner=name):
                result = run(["mif", "check", "--json", "-"], stdin=scanner_output(name))
                self.assertExit(result, EXIT_OK)
                report = json.loads(result.stdout)
                self.assertEqual([c["class"] for c in report["classes"]], [cls])

    def test_os_release_is_a_scalar_group_keyed_by_the_system(self):
        result = run(["mif", "table", "--class", "OperatingSystem", "--json", "-"], stdin=scanner_output("os-release.sh"))
        self.assertExit(result, EXIT_OK)
        rows = json.loads(result.stdout)
        self.assertEqual(len(rows), 1)
        self.assertEqual(rows[0]["key"], "Linux")
        self.assertEqual(rows[0]["values"]["Kernel"], os.uname().release)

    def test_mounts_table_has_the_root_file_system(self):
        result = run(["mif", "table", "--class", "FileSystems", "--json", "-"], stdin=scanner_output("mounts.sh"))
        self.assertExit(result, EXIT_OK)
        self.assertIn("/", [row["key"] for row in json.loads(result.stdout)])

    def test_block_devices_are_keyed_by_major_and_minor(self):
        result = run(["mif", "table", "--class", "BlockDevices", "--json", "-"],
                     stdin=scanner_output("block-devices.sh"))
        self.assertExit(result, EXIT_OK)
        for row in json.loads(result.stdout):
            self.assertEqual(row["key"], row["values"]["Major"] + "#" + row["values"]["Minor"])

    def test_bad_mif_fails_the_check_with_the_table_code(self):
        result = run(["mif", "check", "-"], stdin=scanner_output("bad-mif.sh"))
        self.assertExit(result, EXIT_CODE)
        self.assertIn("CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED", text(result.stdout))


class ExampleOperands(ToolTestCase):
    def examples(self, *args, **kwargs):
        return run(["eval", "--scanner-dir", EXAMPLES] + list(args), **kwargs)

    def test_kernel_release(self):
        result = self.examples("RunCommand", "path=kernel.sh")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout), os.uname().release + "\n")

    def test_kernel_lines(self):
        result = self.examples("--json", "RunCommandEx", "path=kernel.sh all")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout)["result"][:2], [os.uname().sysname, os.uname().release])

    def test_failing_scanner_fails(self):
        result = self.examples("RunCommand", "path=failing.sh")
        self.assertExit(result, EXIT_CODE)
        self.assertIn("CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED", text(result.stderr))

    def test_pretty_name_of_the_operating_system(self):
        result = self.examples("CustomScanInfo", "command=os-release.sh", "class=OperatingSystem", "code=Linux",
                               "field=Kernel")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(text(result.stdout), os.uname().release + "\n")

    def test_root_file_system_exists_and_is_listed(self):
        listed = self.examples("CustomScanList", "command=mounts.sh", "class=FileSystems")
        self.assertExit(listed, EXIT_OK)
        self.assertIn("/", text(listed.stdout).splitlines())
        exists = self.examples("--json", "CustomScanExists", "command=mounts.sh", "class=FileSystems", "code=/")
        self.assertExit(exists, EXIT_OK)
        absent = self.examples("--json", "CustomScanExists", "command=mounts.sh", "class=FileSystems",
                               "code=/no/such/mount")
        self.assertExit(absent, EXIT_OK)
        self.assertNotEqual(json.loads(exists.stdout)["result"], json.loads(absent.stdout)["result"])

    def test_example_batch_answers_every_request(self):
        with open(os.path.join(SOURCE_DIR, "examples", "requests.jsonl")) as f:
            requests = f.read()
        result = run(["batch", "--scanner-dir", EXAMPLES], stdin=requests)
        self.assertExit(result, EXIT_OK)
        answers = json_lines(result.stdout)
        self.assertEqual(len(answers), len(requests.splitlines()))
        self.assertEqual([a["code"] for a in answers[:-1]], [0] * (len(answers) - 1))
        self.assertEqual(answers[-1]["error"], "CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED")


if __name__ == "__main__":
    unittest.main()
