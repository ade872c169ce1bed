#!/usr/bin/env python3
"""Writes the manual pages with pandoc.

  gen-manpages.py tool --tool BUILT_TOOL --template packaging/man/customscan.1.md \
      --version V --date D [--define NAME=VALUE ...] -o customscan.1
  gen-manpages.py mif --source docs/mif.md --version V --date D [--define ...] -o customscan-mif.5

customscan(1) is the hand-written template with its @SYNOPSIS@ and @COMMANDS@
lines replaced by what `customscan ... --help` shows: every subcommand is
found by walking the "Subcommands:" lists, and every positional, option and
footer of each is taken as the tool prints it. A new option or subcommand
therefore reaches the page on the next build without an edit here.
customscan-mif(5) is docs/mif.md under a NAME section.

@NAME@ words in either source are replaced by --define values (the installed
paths), so the pages name the places this build installs to.
"""

import argparse
import os
import re
import subprocess
import sys

SECTION_HEADINGS = ("Positionals:", "Options:", "Subcommands:")
# CLI11 starts the description column here; a longer name column puts the
# description on the next line, indented to it.
ENTRY = re.compile(r"^  (\S(?:.*?\S)?)(?:\s{2,}(\S.*))?$")
CONTINUATION = re.compile(r"^\s{4,}(\S.*)$")


class HelpError(Exception):
    pass


class Help:
    """One `--help` text of the tool, cut into its parts."""

    def __init__(self, command, text):
        self.command = command  # ["customscan", "mif", "check"]
        self.description = []
        self.usage = ""
        self.sections = {}  # heading -> [(name, description)]
        self.footer = []
        self._parse(text)

    def _parse(self, text):
        lines = text.splitlines()
        index = 0
        while index < len(lines) and not lines[index].startswith("Usage:"):
            if lines[index].strip():
                self.description.append(lines[index].strip())
            index += 1
        if index == len(lines):
            raise HelpError("`%s --help` shows no \"Usage:\" line" % " ".join(self.command))
        self.usage = lines[index][len("Usage:"):].strip()
        index += 1
        seen_section = False
        while index < len(lines):
            line = lines[index]
            if line.strip() in SECTION_HEADINGS:
                heading = line.strip()
                seen_section = True
                entries = self.sections.setdefault(heading, [])
                index += 1
                while index < len(lines) and lines[index].strip():
                    match = ENTRY.match(lines[index])
                    continued = CONTINUATION.match(lines[index])
                    if entries and continued:
                        name, described = entries[-1]
                        entries[-1] = (name, (described + " " + continued.group(1)).strip())
                    elif match:
                        entries.append((match.group(1), match.group(2) or ""))
                    else:
                        raise HelpError("`%s --help`: cannot read the line %r of %s" %
                                        (" ".join(self.command), lines[index], heading))
                    index += 1
                continue
            if seen_section and line.strip():
                self.footer = lines[index:]
                while self.footer and not self.footer[-1].strip():
                    self.footer.pop()
                break
            index += 1

    def subcommands(self):
        return [name.split()[0] for name, _ in self.sections.get("Subcommands:", [])]


def run_help(tool, words):
    env = {k: v for k, v in os.environ.items() if not k.startswith("CUSTOMSCAN_")}
    env["COLUMNS"] = "80"
    result = subprocess.run([tool] + words + ["--help"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env)
    if result.returncode != 0:
        raise HelpError("`customscan %s --help` exited with %d: %s" %
                        (" ".join(words), result.returncode, result.stderr.decode(errors="replace")))
    return result.stdout.decode("utf-8", errors="replace")


def collect(tool):
    """Every help text of the tool, the top level first, subcommands depth-first."""
    helps = []

    def visit(words):
        current = Help(["customscan"] + words, run_help(tool, words))
        helps.append(current)
        for name in current.subcommands():
            visit(words + [name])

    visit([])
    return helps


MARKDOWN_SPECIAL = re.compile(r"([\\`*_{}\[\]<>#+\-.!|$~^\"'@])")


def md(text):
    """Plain text as pandoc Markdown that reads back as the same text."""
    return MARKDOWN_SPECIAL.sub(r"\\\1", text)


def option_term(name):
    """'--plugin-property NAME=VALUE' -> '**\\--plugin-property** *NAME=VALUE*';
    '-h,--help' -> '**-h**, **\\--help**'; a positional 'FILE FILE|- REQUIRED'
    -> '*FILE* (FILE\\|-, required)'."""
    words = name.split()
    required = "REQUIRED" in words
    words = [w for w in words if w != "REQUIRED"]
    head, rest = words[0], words[1:]
    # CLI11 appends the accepted set to the type, "text|json|csv:{text,json,csv}".
    rest = [re.sub(r":\{[^}]*\}$", "", w) for w in rest]
    rest = [w for w in rest if w]
    if head.startswith("-"):
        flags = []
        for flag in head.split(","):
            bracket = flag.find("[")
            if bracket > 0:
                flags.append("**%s**%s" % (md(flag[:bracket]), md(flag[bracket:])))
            else:
                flags.append("**%s**" % md(flag))
        term = ", ".join(flags)
        if rest:
            term += " " + " ".join("*%s*" % md(w) for w in rest)
        if required:
            term += " (required)"
        return term
    notes = [md(w) for w in rest if w != "TEXT"]
    if required:
        notes.append("required")
    return "*%s*" % md(head) + (" (%s)" % ", ".join(notes) if notes else "")


def usage_line(help_):
    """The usage line, with the options that must be given added (CLI11
    shows them only as [OPTIONS])."""
    out = []
    for w in help_.usage.split():
        out.append("**%s**" % md(w) if w in help_.command else md(w))
    for name, _ in help_.sections.get("Options:", []):
        words = name.split()
        if "REQUIRED" in words:
            flag = words[0].split(",")[-1]
            kind = [re.sub(r":\{[^}]*\}$", "", w) for w in words[1:] if w != "REQUIRED"]
            out.append("**%s**" % md(flag) + "".join(" *%s*" % md(k) for k in kind if k))
    return " ".join(out)


def definition_list(entries):
    out = []
    for name, described in entries:
        out.append(option_term(name))
        out.append(":   " + (md(described) if described else "\\ "))
        out.append("")
    return out


def footer_block(lines):
    """The footer as the tool shows it, line for line."""
    out = []
    for line in lines:
        if not line.strip():
            out.append("")
            continue
        indent = len(line) - len(line.lstrip())
        out.append("| " + "\u00a0" * indent + md(line.strip()))
    out.append("")
    return out


def render_commands(helps):
    top = helps[0]
    out = []
    for help_ in helps[1:]:
        out.append("## %s" % " ".join(help_.command))
        out.append("")
        out.append(usage_line(help_))
        out.append("")
        if help_.description:
            out.append(md(" ".join(help_.description)))
            out.append("")
        if help_.sections.get("Positionals:"):
            out.append("Arguments:")
            out.append("")
            out += definition_list(help_.sections["Positionals:"])
        if help_.sections.get("Options:"):
            out.append("Options:")
            out.append("")
            out += definition_list(help_.sections["Options:"])
        if help_.sections.get("Subcommands:"):
            out.append("Subcommands: " + ", ".join("**%s**" % md(n) for n in help_.subcommands()) + ".")
            out.append("")
        # A subcommand shows its parent's footer when it has none of its own.
        if help_.footer and help_.footer != top.footer:
            out += footer_block(help_.footer)
    return out


def render_synopsis(helps):
    lines = []
    for help_ in helps[1:]:
        if not help_.subcommands():
            lines.append("| " + usage_line(help_))
    flags = [n for n, _ in helps[0].sections.get("Options:", [])]
    names = []
    for flag in flags:
        names += flag.split()[0].split(",")
    long_names = [n for n in names if n.startswith("--")]
    lines.append("| **customscan** " + " \\| ".join("**%s**" % md(n) for n in long_names))
    return lines


def render_global_options(helps):
    return definition_list(helps[0].sections.get("Options:", []))


def substitute(text, defines):
    for name, value in defines.items():
        text = text.replace("@%s@" % name, value)
    left = re.findall(r"@[A-Z_]+@", text)
    if left:
        raise HelpError("no value for %s (give --define NAME=VALUE)" % ", ".join(sorted(set(left))))
    return text


TABLE_FORMAT = re.compile(r"^(?:lw\([0-9.]+n\)\s*)+\.$")
# What an 80-column terminal leaves a table after the page's indent, less the
# gaps between columns.
TABLE_WIDTH = 64.0


def fit_table_widths(line):
    """pandoc sizes table columns for the whole line; scale them down so that
    a table fits an 80-column terminal beside the page's indent."""
    if not TABLE_FORMAT.match(line):
        return line
    widths = [float(w) for w in re.findall(r"lw\(([0-9.]+)n\)", line)]
    room = TABLE_WIDTH - 3 * (len(widths) - 1)
    scale = min(1.0, room / sum(widths))
    return " ".join("lw(%.1fn)" % (w * scale) for w in widths) + "."


def pandoc(markdown, title, section, version, date, header, output):
    command = ["pandoc", "--standalone", "--from", "markdown-smart", "--to", "man",
               "--metadata", "title=" + title, "--metadata", "section=" + section,
               "--metadata", "date=" + date, "--metadata", "footer=customscan " + version,
               "--metadata", "header=" + header, "--output", output]
    result = subprocess.run(command, input=markdown.encode("utf-8"), stderr=subprocess.PIPE)
    if result.returncode != 0:
        raise HelpError("pandoc failed: " + result.stderr.decode(errors="replace"))
    with open(output) as f:
        lines = f.read().split("\n")
    # Table columns are narrow: set the page ragged-right, so that a short
    # line in a column is not stretched (groff warns when it cannot), and let
    # a long constant name (CUSTOM_SCAN_PLUGIN_ERROR_...) break after an
    # underscore rather than be hyphenated anywhere.
    lines = [line if line.startswith((".", "'")) else re.sub(r"(?<=\w)_(?=\w)", r"_\\:", line) for line in lines]
    for index, line in enumerate(lines):
        if line.startswith(".TH "):
            lines.insert(index + 1, ".ad l")
            break
    lines = [fit_table_widths(line) for line in lines]
    with open(output, "w") as f:
        f.write("\n".join(lines))


def tool_page(args, defines):
    helps = collect(args.tool)
    with open(args.template) as f:
        template = f.read()
    replacements = {
        "@SYNOPSIS@": render_synopsis(helps),
        "@COMMANDS@": render_commands(helps),
        "@GLOBAL_OPTIONS@": render_global_options(helps),
    }
    lines = []
    for line in template.splitlines():
        if line.strip() in replacements:
            lines += replacements[line.strip()]
        else:
            lines.append(line)
    markdown = substitute("\n".join(lines) + "\n", defines)
    pandoc(markdown, "CUSTOMSCAN", "1", args.version, args.date, "User Commands", args.output)


def mif_page(args, defines):
    with open(args.source) as f:
        source = f.read().splitlines()
    # The page's own title becomes its NAME line; every heading moves up a level.
    if not source or not source[0].startswith("# "):
        raise HelpError("%s does not begin with a level-one heading" % args.source)
    body = []
    in_code = False
    for line in source[1:]:
        if line.startswith("```"):
            in_code = not in_code
        if not in_code and re.match(r"^##+ ", line):
            hashes, title = line.split(" ", 1)
            line = hashes[1:] + " " + (title.upper() if len(hashes) == 2 else title)
        body.append(line)
    intro = [
        "# NAME",
        "",
        "customscan-mif - the MIF text that the CustomScan plug-in accepts from custom scanners",
        "",
        "# DESCRIPTION",
    ]
    outro = [
        "",
        "# SEE ALSO",
        "",
        "**customscan**(1); the operands that read MIF and their properties in "
        "*@DOCDIR@/operands.md*; this page's source, *@DOCDIR@/mif.md*.",
        "",
    ]
    markdown = substitute("\n".join(intro + body + outro) + "\n", defines)
    pandoc(markdown, "CUSTOMSCAN-MIF", "5", args.version, args.date, "File Formats", args.output)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("page", choices=["tool", "mif"])
    parser.add_argument("--tool", help="the built customscan (page tool)")
    parser.add_argument("--template", help="the hand-written customscan(1) source (page tool)")
    parser.add_argument("--source", help="docs/mif.md (page mif)")
    parser.add_argument("--version", required=True)
    parser.add_argument("--date", required=True)
    parser.add_argument("--define", action="append", default=[], metavar="NAME=VALUE")
    parser.add_argument("-o", "--output", required=True)
    args = parser.parse_args()
    defines = {}
    for item in args.define:
        name, sep, value = item.partition("=")
        if not sep:
            parser.error("--define wants NAME=VALUE, not %r" % item)
        defines[name] = value
    try:
        if args.page == "tool":
            if not args.tool or not args.template:
                parser.error("the tool page needs --tool and --template")
            tool_page(args, defines)
        else:
            if not args.source:
                parser.error("the mif page needs --source")
            mif_page(args, defines)
    except (HelpError, OSError) as e:
        print("gen-manpages: error: %s" % e, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
