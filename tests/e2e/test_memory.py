"""customscan eval on outputs and MIF texts that cost memory: the answer costs
about the size of the output, not a multiple of its copies, and when the room
runs out the tool reports PLUGIN_ERROR_OUT_OF_MEMORY like any other code.

Each run is bounded with setrlimit(RLIMIT_AS), so a regression shows as a
failure here instead of a slow test. These runs are not made under valgrind
(CUSTOMSCAN_E2E_WRAPPER) nor with a tool built with AddressSanitizer: neither
can run under such a bound (both reserve far more address space than they
use), and both would take minutes over these sizes.
"""

import json
import os
import resource
import subprocess
import unittest

from e2e_support import EXIT_CODE, EXIT_OK, TOOL, ToolTestCase, clean_environment, text, wrapper

MIB = 1024 * 1024


def address_sanitized(program):
    """Whether program loads the AddressSanitizer runtime."""
    if not program:
        return False
    try:
        libraries = subprocess.run(["ldd", program], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, timeout=60).stdout
    except (OSError, subprocess.SubprocessError):
        return False
    return b"libasan" in libraries


def bounded(megabytes):
    limit = megabytes * MIB

    def apply():
        resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
    return apply


@unittest.skipIf(wrapper(), "the runs are bounded in address space, which valgrind cannot run under")
@unittest.skipIf(address_sanitized(TOOL),
                 "the runs are bounded in address space, which AddressSanitizer cannot run under")
class EvalWithinBoundedMemory(ToolTestCase):
    def run_bounded(self, megabytes, *args):
        command = [TOOL, "eval", "--scanner-dir", self.scanners.path] + list(args)
        return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, env=clean_environment(),
                              preexec_fn=bounded(megabytes), timeout=300)

    def write_scanner_of(self, name, content):
        """A scanner that writes content (bytes) to its standard output."""
        data = self.scanners.file(name + ".out", content, mode="wb")
        self.scanners.script(name, "exec cat '%s'\n" % data)

    def test_one_line_of_sixty_four_mebibytes_plain_and_as_json(self):
        size = 64 * MIB
        self.write_scanner_of("line", b"x" * size)
        # Five times the output, and room for the program and its libraries.
        plain = self.run_bounded(5 * 64 + 40, "RunCommand", "path=line")
        self.assertExit(plain, EXIT_OK)
        self.assertEqual(len(plain.stdout), size + 1)
        self.assertEqual(plain.stdout.count(b"x"), size)
        answer = self.run_bounded(5 * 64 + 40, "--json", "RunCommand", "path=line")
        self.assertExit(answer, EXIT_OK)
        self.assertEqual(answer.stdout, b'{"operand":"RunCommand","code":0,"result":"' +
                         b"x" * size + b'"}\n')

    def test_ten_million_empty_lines_kept_plain_and_as_json(self):
        lines = 10 * 1000 * 1000
        self.write_scanner_of("empty", b"\n" * lines)
        # Five times the output, and room for the program and its libraries.
        plain = self.run_bounded(5 * 10 + 40, "RunCommandEx", "path=empty", "trim=false")
        self.assertExit(plain, EXIT_OK)
        self.assertEqual(plain.stdout, b"\n" * (lines + 1))
        answer = self.run_bounded(5 * 10 + 40, "--json", "RunCommandEx", "path=empty", "trim=false")
        self.assertExit(answer, EXIT_OK)
        self.assertEqual(answer.stdout, b'{"operand":"RunCommandEx","code":0,"result":[' +
                         b'"",' * lines + b'""]}\n')

    def test_empty_cells_of_a_megabyte_default_share_it(self):
        rows = "".join('{"k%d", }\n' % i for i in range(3000))
        mif = ('start component\nstart group\nclass = "Big"\nkey = 1\n'
               'start attribute\nid = 1\nname = "K"\nend attribute\n'
               'start attribute\nid = 2\nname = "V"\nvalue = "' + "d" * 1000000 + '"\nend attribute\n'
               'end group\nstart table\nclass = "Big"\n' + rows + "end table\nend component\n")
        self.write_scanner_of("defaults", mif.encode())
        result = self.run_bounded(100, "CustomScanInfo", "command=defaults", "class=Big",
                                  "code=k2999", "field=V")
        self.assertExit(result, EXIT_OK)
        self.assertEqual(result.stdout, b"d" * 1000000 + b"\n")

    def test_running_out_of_memory_is_reported_as_a_code(self):
        # Every row's key is ten thousand copies of its value: the table is
        # what is large, and it does not fit.
        rows = "".join('{"row-%d-of-the-table"}\n' % i for i in range(3000))
        mif = ('start component\nstart group\nclass = "Big"\nkey = ' + ",".join(["1"] * 10000) +
               '\nstart attribute\nid = 1\nname = "K"\nend attribute\nend group\n'
               'start table\nclass = "Big"\n' + rows + "end table\nend component\n")
        self.write_scanner_of("keys", mif.encode())
        plain = self.run_bounded(300, "--trace=1", "CustomScanList", "command=keys", "class=Big")
        self.assertExit(plain, EXIT_CODE)
        self.assertEqual(plain.stdout, b"")
        err = text(plain.stderr)
        self.assertIn("-100 PLUGIN_ERROR_OUT_OF_MEMORY", err)
        self.assertIn("Out of memory: std::bad_alloc", err)
        answer = self.run_bounded(300, "--json", "CustomScanList", "command=keys", "class=Big")
        self.assertExit(answer, EXIT_CODE)
        parsed = json.loads(answer.stdout)
        self.assertEqual(parsed["code"], -100)
        self.assertEqual(parsed["error"], "PLUGIN_ERROR_OUT_OF_MEMORY")
        self.assertEqual(parsed["result"], [])


if __name__ == "__main__":
    unittest.main()
