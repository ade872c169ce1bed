#!/usr/bin/env python3
"""Writes docs/result-codes.md from src/plugins/CustomScanPlugin/ResultCodes.h,
the one table of result codes. With --check, exits 1 when the file differs."""

import os
import re
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
HEADER = os.path.join(ROOT, "src", "plugins", "CustomScanPlugin", "ResultCodes.h")
DOC = os.path.join(ROOT, "docs", "result-codes.md")

ENTRY = re.compile(r'X\(\s*([A-Z_]+)\s*,\s*(-?\d+)\s*,\s*"((?:[^"\\]|\\.)*)"\s*\)')


def entries(section):
    with open(HEADER) as f:
        source = f.read()
    start = source.index("#define " + section)
    end = source.find("#define ", start + 1)
    block = source[start:end if end >= 0 else len(source)]
    return [(name, int(value), meaning.replace('\\"', '"')) for name, value, meaning in ENTRY.findall(block)]


def render():
    lines = [
        "# Result codes",
        "",
        "Every operation of the plug-in answers with a result code: 0 for success, a negative",
        "number for a failure. The `customscan` tool prints a failure as the number, the constant's",
        "name and its meaning (`customscan eval` on standard error, `--json` and `batch` in the",
        "`error` and `message` members). This page is generated from",
        "`src/plugins/CustomScanPlugin/ResultCodes.h` by `scripts/gen-result-codes-doc.py`; a test",
        "keeps the two in step.",
        "",
        "## The plug-in's own codes",
        "",
        "Three bands: -14000 to -14003 for missing operand properties, -14100 to -14121 for MIF",
        "and command-line problems, -14200 to -14203 for running a command and for the `path`",
        "property. -14104 and -14108 are not assigned.",
        "",
        "| Code | Constant | Meaning |",
        "|---:|---|---|",
    ]
    for name, value, meaning in entries("CUSTOM_SCAN_PLUGIN_RESULT_CODES"):
        lines.append("| %d | `%s` | %s |" % (value, name, meaning))
    lines += [
        "",
        "## Host SDK codes the plug-in returns",
        "",
        "| Code | Constant | Meaning |",
        "|---:|---|---|",
    ]
    for name, value, meaning in entries("CUSTOM_SCAN_HOST_RESULT_CODES"):
        lines.append("| %d | `%s` | %s |" % (value, name, meaning))
    lines += [
        "",
        "`CUSTOM_SCAN_PLUGIN_ERROR_NOT_A_SCALAR_GROUP` and `CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_IS_NOT_A_FILE`",
        "are defined and exported for hosts that know them, but no operation returns them: a command",
        "that is not a regular file is reported as `CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST`.",
        "",
    ]
    return "\n".join(lines)


def main():
    text = render()
    if "--check" in sys.argv[1:]:
        with open(DOC) as f:
            if f.read() != text:
                print("docs/result-codes.md is out of date: run scripts/gen-result-codes-doc.py", file=sys.stderr)
                return 1
        return 0
    with open(DOC, "w") as f:
        f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
