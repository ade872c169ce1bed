"""Helpers of the customscan end-to-end tests: run the tool as a child and
make scanner directories.

Every tool invocation is prefixed by the words of $CUSTOMSCAN_E2E_WRAPPER
(for example "valgrind --error-exitcode=99 --leak-check=full").
"""

import json
import os
import re
import shlex
import shutil
import stat
import subprocess
import tempfile
import unittest

TOOL = os.environ.get("CUSTOMSCAN_TOOL", "")
PLUGIN = os.environ.get("CUSTOMSCAN_PLUGIN_BUILT", "")
HOST_LIBRARY = os.environ.get("CUSTOMSCAN_HOST_BUILT", "")
SOURCE_DIR = os.environ.get("CUSTOMSCAN_SOURCE_DIR",
                            os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..")))
BINARY_DIR = os.environ.get("CUSTOMSCAN_BINARY_DIR", "")
EXAMPLES = os.path.join(SOURCE_DIR, "examples", "scanners")

# Exit statuses of the tool.
EXIT_OK, EXIT_CODE, EXIT_USAGE, EXIT_OUTPUT = 0, 1, 2, 3


def cmake_cache(name):
    """A value of the build tree's CMakeCache.txt, or None."""
    try:
        with open(os.path.join(BINARY_DIR, "CMakeCache.txt")) as f:
            cache = f.read()
    except OSError:
        return None
    match = re.search(r"^%s:\w+=(.*)$" % re.escape(name), cache, re.M)
    return match.group(1).strip() if match else None


def project_version():
    """The one version number: project() in the top CMakeLists.txt."""
    with open(os.path.join(SOURCE_DIR, "CMakeLists.txt")) as f:
        return re.search(r"project\(CustomScan VERSION ([0-9.]+)", f.read()).group(1)


def sanitizer_flags():
    """The -fsanitize flags the build tree was configured with, if any, for
    programs the tests compile against its libraries."""
    sanitizers = cmake_cache("CUSTOMSCAN_SANITIZE")
    if not sanitizers:
        return []
    return ["-fsanitize=" + sanitizers.replace(";", ",")]


def wrapper():
    return shlex.split(os.environ.get("CUSTOMSCAN_E2E_WRAPPER", ""))


def clean_environment(extra=None):
    """The test's environment without the tool's own variables, plus extra."""
    env = dict(os.environ)
    for name in ("CUSTOMSCAN_SCANNER_DIR", "CUSTOMSCAN_PLUGIN"):
        env.pop(name, None)
    if extra:
        env.update(extra)
    return env


def run(args, stdin=None, env=None, tool=None, cwd=None, timeout=120):
    """Runs the tool with args; stdin is bytes or str. Returns a
    CompletedProcess whose stdout and stderr are bytes."""
    if isinstance(stdin, str):
        stdin = stdin.encode("utf-8")
    command = wrapper() + [tool or TOOL] + list(args)
    return subprocess.run(command, input=stdin if stdin is not None else b"",
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          env=env if env is not None else clean_environment(),
                          cwd=cwd, timeout=timeout)


def text(data):
    return data.decode("utf-8", errors="replace")


def json_lines(data):
    """Parses every line of the tool's output as JSON (strict UTF-8)."""
    return [json.loads(line) for line in data.decode("utf-8").splitlines()]


class ScannerDir:
    """A temporary custom scanner directory; scripts are written executable."""

    def __init__(self):
        self.path = tempfile.mkdtemp(prefix="cs-e2e-")

    def script(self, name, body):
        path = os.path.join(self.path, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as f:
            f.write("#!/bin/sh\n" + body)
        os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR | stat.S_IXGRP | stat.S_IXOTH)
        return path

    def file(self, name, content, mode="w"):
        path = os.path.join(self.path, name)
        with open(path, mode) as f:
            f.write(content)
        return path

    def cleanup(self):
        shutil.rmtree(self.path, ignore_errors=True)


class ToolTestCase(unittest.TestCase):
    """Gives each test a fresh scanner directory in self.scanners."""

    def setUp(self):
        if not TOOL:
            self.fail("CUSTOMSCAN_TOOL is not set: run the end-to-end tests through ctest")
        self.scanners = ScannerDir()
        self.addCleanup(self.scanners.cleanup)

    def eval(self, *args, **kwargs):
        return run(["eval", "--scanner-dir", self.scanners.path] + list(args), **kwargs)

    def assertExit(self, result, status):
        self.assertEqual(result.returncode, status,
                         "exit status %d, expected %d\nstdout: %s\nstderr: %s" %
                         (result.returncode, status, text(result.stdout), text(result.stderr)))


def help_entries_of(help_text, heading):
    """The first words of the entries under "heading:" of a --help text (up to
    a blank line)."""
    lines = help_text.splitlines()
    if heading + ":" not in lines:
        return []
    out = []
    for line in lines[lines.index(heading + ":") + 1:]:
        if not line.strip():
            break
        if line.startswith("  ") and not line.startswith("   "):
            out.append(line.split()[0])
    return out
