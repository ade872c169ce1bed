"""The manual pages never fall behind the tool: every subcommand and option
that `customscan ... --help` shows is in customscan(1), under its subcommand;
every environment variable and exit status the help names is described;
customscan-mif(5) holds every section of docs/mif.md; groff formats both
without a warning.

The help is read here with its own simple rules, independent of the
generator's (scripts/gen-manpages.py), so that a help the generator misreads
shows up as a missing option."""

import os
import re
import shutil
import subprocess
import unittest

from e2e_support import BINARY_DIR, EXIT_OK, SOURCE_DIR, TOOL, ToolTestCase, cmake_cache, help_entries_of, run, text

MAN_DIR = os.path.join(BINARY_DIR, "packaging", "man")
TEMPLATE = "packaging/man/customscan.1.md"


def help_text(words):
    result = run(list(words) + ["--help"])
    if result.returncode != EXIT_OK:
        raise AssertionError("customscan %s --help exited with %d" % (" ".join(words), result.returncode))
    return text(result.stdout)


def entries(help_, heading):
    """The first words of the entries under "heading:" (up to a blank line)."""
    return help_entries_of(help_, heading)


def all_helps():
    """{("mif", "check"): help text, ...}, the top level as ()."""
    helps = {}

    def visit(words):
        helps[tuple(words)] = help_text(words)
        for name in entries(helps[tuple(words)], "Subcommands"):
            visit(words + [name])

    visit([])
    return helps


def option_names(help_):
    names = []
    for entry in entries(help_, "Options"):
        for flag in entry.split(","):
            names.append(re.sub(r"\[.*$", "", flag))
    return names


def plain(troff):
    """The page's troff source as the words a reader sees."""
    troff = troff.replace("\\:", "").replace("\\-", "-").replace("\\[aq]", "'").replace("\\[dq]", '"')
    troff = re.sub(r"\\f(\[[A-Z]*\]|[A-Z])", "", troff)
    return troff.replace("\\(rs", "\\").replace("\\\\", "\\")


def section(page, kind, title):
    """The lines after `.SH "TITLE"` (kind SH) or `.SS "title"` (kind SS), up
    to the next heading of that level or above; None when absent."""
    match = re.search(r'^\.%s "?%s"?\n' % (kind, re.escape(title)), page, re.M)
    if match is None:
        return None
    stop = r"^\.SH " if kind == "SH" else r"^\.S[HS] "
    end = re.compile(stop, re.M).search(page, match.end())
    return page[match.end():end.start() if end else len(page)]


def missing_from_page(helps, page):
    """What the page lacks of the helps, one message each, saying what to do."""
    problems = []
    regenerate = ("customscan(1) is generated from --help at build time (target customscan_manpages): "
                  "rebuild; if it is still missing, scripts/gen-manpages.py cannot read that help")
    for words, help_ in sorted(helps.items()):
        if not words:
            for name in option_names(help_):
                if section(page, "SH", "OPTIONS") is None or name not in section(page, "SH", "OPTIONS"):
                    problems.append("`customscan --help` shows %s, which the OPTIONS section of customscan(1) "
                                    "lacks. %s." % (name, regenerate))
            continue
        title = "customscan " + " ".join(words)
        body = section(page, "SS", title)
        if body is None:
            problems.append("`%s --help` exists, but customscan(1) has no section \"%s\". %s." %
                            (title, title, regenerate))
            continue
        for name in option_names(help_):
            if not re.search(r"(?<![\w-])%s(?![\w-])" % re.escape(name), body):
                problems.append("`%s --help` shows %s, which customscan(1) does not list under \"%s\". %s." %
                                (title, name, title, regenerate))
    environment = section(page, "SH", "ENVIRONMENT") or ""
    exit_status = section(page, "SH", "EXIT STATUS") or ""
    reported = set()
    for words, help_ in sorted(helps.items()):
        command = " ".join(["customscan"] + list(words))
        for variable in sorted(set(re.findall(r"\bCUSTOMSCAN_[A-Z0-9_]+\b", help_)) - reported):
            reported.add(variable)
            if not re.search(r"^%s$" % variable, environment, re.M):
                problems.append("`%s --help` names the environment variable %s, which the ENVIRONMENT section of "
                                "customscan(1) does not describe: add to %s, under \"# ENVIRONMENT\":\n\n"
                                "%s\n:   What it sets, and which option it is the default of.\n" %
                                (command, variable, TEMPLATE, variable))
        for status in sorted(set(exit_statuses(help_)) - reported):
            reported.add(status)
            if not re.search(r"^\.TP\n%d\n" % status, exit_status, re.M):
                problems.append("`%s --help` names the exit status %d, which the EXIT STATUS section of "
                                "customscan(1) does not list: add to %s, under \"# EXIT STATUS\":\n\n"
                                "%d\n:   When the tool exits with it.\n" % (command, status, TEMPLATE, status))
    return problems


def exit_statuses(help_):
    """The statuses a help names: "Exit status: 0 when ..., 1 when ..., 2 for
    ..." and "the exit status is then 2"."""
    flat = " ".join(help_.split())
    found = []
    for match in re.finditer(r"[Ee]xit status(?:es)?:?(.*?)(?:\.(?: |$)|$)", flat):
        found += [int(n) for n in re.findall(r"\b(\d+) (?:when|for|if|on)\b", match.group(1))]
        found += [int(n) for n in re.findall(r"\bis (?:then )?(\d+)\b", match.group(1))]
    return found


@unittest.skipIf(cmake_cache("CUSTOMSCAN_BUILD_MANPAGES") == "OFF",
                 "configured with CUSTOMSCAN_BUILD_MANPAGES=OFF: no manual pages to check")
class ManualPages(ToolTestCase):
    @classmethod
    def setUpClass(cls):
        cls.helps = all_helps() if TOOL else {}

    def page(self, name):
        path = os.path.join(MAN_DIR, name)
        self.assertTrue(os.path.exists(path), "%s was not generated: build the target customscan_manpages" % path)
        with open(path) as f:
            return f.read()

    def test_every_subcommand_option_environment_variable_and_exit_status_of_the_help_is_in_the_page(self):
        self.assertIn(("mif", "check"), self.helps)
        problems = missing_from_page(self.helps, plain(self.page("customscan.1")))
        self.assertEqual(problems, [], "\n\n".join(problems))

    def test_check_names_what_a_page_lacks(self):
        # The check can fail: a page without an option, a subcommand, a
        # variable or a status is reported, with what to add.
        helps = {(): "Usage: customscan SUBCOMMAND\n\nOptions:\n  -h,--help   Help\n\nSubcommands:\n  mif   M\n\n"
                     "Exit status: 0 when fine, 3 when a check fails.\nCUSTOMSCAN_TIMEOUT is the default.",
                 ("mif",): "Usage: customscan mif\n\nOptions:\n  -h,--help   Help\n  --route stdout|file\n"
                           "                 Where\n"}
        page = ('.SH "OPTIONS"\n.TP\n-h, --help\nHelp\n.SH "COMMANDS"\n.SS "customscan mif"\n.TP\n-h, --help\n'
                '.SH "EXIT STATUS"\n.TP\n0\nFine.\n.SH "ENVIRONMENT"\n.TP\nCUSTOMSCAN_PLUGIN\nThe plug-in.\n')
        problems = missing_from_page(helps, page)
        self.assertEqual(len(problems), 3, problems)
        self.assertIn('shows --route, which customscan(1) does not list under "customscan mif"', problems[0])
        self.assertIn("CUSTOMSCAN_TIMEOUT", problems[1])
        self.assertIn('add to packaging/man/customscan.1.md, under "# ENVIRONMENT"', problems[1])
        self.assertIn("exit status 3", problems[2])
        self.assertIn('under "# EXIT STATUS"', problems[2])
        del helps[("mif",)]
        helps[("doctor",)] = "Usage: customscan doctor\n\nOptions:\n  -h,--help   Help\n"
        self.assertIn('has no section "customscan doctor"', "\n".join(missing_from_page(helps, page)))

    def test_exit_statuses_are_read_from_the_help(self):
        self.assertEqual(exit_statuses("Exit status: 0 when the plug-in answered with code 0, 1 when it\n"
                                       "returned another code, 2 for a usage error.\nEnvironment: x"), [0, 1, 2])
        self.assertEqual(exit_statuses("... is answered with X, and the exit status is then 2."), [2])

    def test_synopsis_shows_every_leaf_subcommand(self):
        synopsis = section(plain(self.page("customscan.1")), "SH", "SYNOPSIS")
        self.assertIsNotNone(synopsis)
        for words in self.helps:
            if words and not entries(self.helps[words], "Subcommands"):
                with self.subTest(command=words):
                    self.assertIn("customscan " + " ".join(words), synopsis)

    def test_mif_page_holds_every_section_of_the_mif_guide(self):
        page = plain(self.page("customscan-mif.5"))
        self.assertRegex(page, r'\.TH "CUSTOMSCAN-MIF" "5"')
        self.assertIsNotNone(section(page, "SH", "NAME"))
        with open(os.path.join(SOURCE_DIR, "docs", "mif.md")) as f:
            guide = f.read()
        in_code = False
        for line in guide.splitlines():
            if line.startswith("```"):
                in_code = not in_code
            if in_code:
                continue
            if line.startswith("## "):
                with self.subTest(section=line):
                    self.assertIsNotNone(section(page, "SH", line[3:].upper()), line)
            elif line.startswith("### "):
                with self.subTest(section=line):
                    self.assertIsNotNone(section(page, "SS", line[4:]), line)

    def test_pages_name_the_version_and_format_without_a_warning(self):
        version = text(run(["--version"]).stdout).split()[-1]
        for name in ("customscan.1", "customscan-mif.5"):
            with self.subTest(page=name):
                page = self.page(name)
                self.assertIn('"customscan %s"' % version, page.splitlines()[
                    next(i for i, l in enumerate(page.splitlines()) if l.startswith(".TH "))])
                if shutil.which("groff") is None:
                    continue
                # As lintian checks it: a 120-column terminal; and an 80-column one.
                for width in ("120n", "78n"):
                    result = subprocess.run(["groff", "-t", "-man", "-Tutf8", "-ww", "-z", "-rLL=" + width,
                                             os.path.join(MAN_DIR, name)], stderr=subprocess.PIPE)
                    self.assertEqual(text(result.stderr), "", "groff warns about %s at %s" % (name, width))


if __name__ == "__main__":
    unittest.main()
