"""Shell completion: the bash script registers for customscan and, driven
through COMP_WORDS as bash drives it, offers the subcommands and options the
tool's --help shows, option values, operands, their properties and the
programs of the scanner directory; zsh offers the same through bashcompinit."""

import functools
import os
import shlex
import shutil
import subprocess
import tempfile
import time
import unittest

from e2e_support import SOURCE_DIR, TOOL, ToolTestCase, clean_environment, help_entries_of, run, text

BASH_SCRIPT = os.path.join(SOURCE_DIR, "packaging", "completion", "customscan.bash")
ZSH_SCRIPT = os.path.join(SOURCE_DIR, "packaging", "completion", "_customscan")


@functools.lru_cache(maxsize=None)
def help_lines(words):
    return text(run(list(words) + ["--help"]).stdout).splitlines()


def help_entries(words, heading):
    return help_entries_of("\n".join(help_lines(tuple(words))), heading)


@unittest.skipIf(shutil.which("bash") is None, "bash is not installed")
class BashCompletion(ToolTestCase):
    def complete(self, *words, env=None):
        """COMPREPLY for the command line TOOL words..., the cursor at the end
        of the last word; "=" is a word of its own, as bash splits it."""
        all_words = [TOOL] + list(words)
        line = " ".join(all_words)
        script = "source %s\nCOMP_WORDS=(%s)\nCOMP_CWORD=%d\nCOMP_LINE=%s\nCOMP_POINT=%d\n_customscan\n" \
                 "printf '%%s\\n' \"${COMPREPLY[@]}\"\n" % (
                     shlex.quote(BASH_SCRIPT), " ".join(shlex.quote(w) for w in all_words), len(all_words) - 1,
                     shlex.quote(line), len(line))
        result = subprocess.run(["bash", "--norc", "--noprofile", "-c", script], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=env if env is not None else clean_environment(),
                                timeout=60)
        self.assertEqual(text(result.stderr), "")
        return [w for w in text(result.stdout).splitlines() if w]

    def test_script_registers_the_completion_function_for_customscan(self):
        result = subprocess.run(["bash", "--norc", "--noprofile", "-c",
                                 "source %s && complete -p customscan" % shlex.quote(BASH_SCRIPT)],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 0, text(result.stderr))
        self.assertEqual(text(result.stdout).strip(), "complete -F _customscan customscan")

    def test_offers_the_subcommands_the_help_lists(self):
        self.assertEqual(self.complete(""), help_entries([], "Subcommands"))
        self.assertEqual(self.complete("e"), ["eval"])
        self.assertEqual(self.complete("mif", ""), help_entries(["mif"], "Subcommands"))

    def test_offers_every_option_of_every_subcommand(self):
        for words in (["eval"], ["batch"], ["mif", "check"], ["mif", "table"], ["mif", "tree"]):
            with self.subTest(command=words):
                offered = self.complete(*(words + ["--"]))
                for entry in help_entries(words, "Options"):
                    for flag in entry.split(","):
                        if flag.startswith("--"):
                            self.assertIn(flag.split("[")[0], offered)

    def test_short_options_are_offered_for_a_single_dash(self):
        self.assertIn("-h", self.complete("eval", "-"))

    def test_option_values_come_from_the_help(self):
        self.assertEqual(self.complete("mif", "table", "--format", ""), ["text", "json", "csv"])
        self.assertEqual(self.complete("mif", "table", "--format", "=", "j"), ["json"])
        self.assertEqual(self.complete("eval", "--trace", "=", ""), ["1", "2", "3", "4"])
        self.assertIn("--trace=", self.complete("eval", "--tr"))
        self.assertEqual(self.complete("eval", "--plugin-property", "on"),
                         ["onDuplicatedKeys=error", "onDuplicatedKeys=warn"])

    def test_directory_options_offer_directories(self):
        offered = self.complete("eval", "--scanner-dir", os.path.join(SOURCE_DIR, "exa"))
        self.assertEqual(offered, [os.path.join(SOURCE_DIR, "examples")])

    def test_operands_after_eval_and_their_properties(self):
        self.assertEqual(self.complete("eval", ""),
                         ["RunCommand", "RunCommandEx", "CustomScanInfo", "CustomScanExists", "CustomScanList"])
        self.assertEqual(self.complete("eval", "CustomScanI"), ["CustomScanInfo"])
        self.assertEqual(self.complete("eval", "RunCommand", ""), ["path=", "trim="])
        self.assertEqual(self.complete("eval", "CustomScanList", ""), ["command=", "class=", "output="])
        self.assertEqual(self.complete("eval", "CustomScanInfo", "command=os", "f"), ["field="])

    def test_an_option_value_is_not_taken_for_the_operand(self):
        self.assertIn("RunCommand", self.complete("eval", "--plugin", "x.so", "--trace=2", ""))
        self.assertEqual(self.complete("eval", "--plugin", "x.so", "RunCommand", ""), ["path=", "trim="])

    def test_program_properties_offer_the_scanner_directory_programs(self):
        self.scanners.script("alpha.sh", "echo a\n")
        self.scanners.script("beta.sh", "echo b\n")
        os.makedirs(os.path.join(self.scanners.path, "sub"))
        self.assertEqual(sorted(self.complete("eval", "--scanner-dir", self.scanners.path, "RunCommand",
                                              "path", "=", "")), ["alpha.sh", "beta.sh", "sub"])
        self.assertEqual(self.complete("eval", "--scanner-dir", "=", self.scanners.path, "CustomScanList",
                                       "command", "=", "b"), ["beta.sh"])
        env = clean_environment({"CUSTOMSCAN_SCANNER_DIR": self.scanners.path})
        self.assertEqual(self.complete("eval", "RunCommandEx", "path", "=", "a", env=env), ["alpha.sh"])

    def test_file_arguments_offer_files_and_standard_input(self):
        offered = self.complete("mif", "check", "")
        self.assertIn("-", offered)
        self.assertEqual(self.complete("batch", os.path.join(SOURCE_DIR, "examples", "req")),
                         [os.path.join(SOURCE_DIR, "examples", "requests.jsonl")])


@unittest.skipIf(shutil.which("zsh") is None, "zsh is not installed (Debian package zsh): zsh completion not tested")
class ZshCompletion(ToolTestCase):
    def test_zsh_completes_a_subcommand_through_bashcompinit(self):
        # A zsh whose fpath holds the installed layout: share/zsh/vendor-completions/_customscan
        # beside share/bash-completion/completions/customscan.
        root = tempfile.mkdtemp(prefix="cs-zsh-")
        self.addCleanup(shutil.rmtree, root, True)
        share = os.path.join(root, "share")
        os.makedirs(os.path.join(share, "zsh", "vendor-completions"))
        os.makedirs(os.path.join(share, "bash-completion", "completions"))
        os.makedirs(os.path.join(root, "bin"))
        shutil.copy(ZSH_SCRIPT, os.path.join(share, "zsh", "vendor-completions", "_customscan"))
        shutil.copy(BASH_SCRIPT, os.path.join(share, "bash-completion", "completions", "customscan"))
        os.symlink(TOOL, os.path.join(root, "bin", "customscan"))
        driver = os.path.join(root, "drive.zsh")
        with open(driver, "w") as f:
            f.write(r"""zmodload zsh/zpty
zpty z zsh -f -i
zpty -w z "fpath=(%s \$fpath); autoload -U compinit; compinit -u -D; PS1='%%%% '; setopt nobeep"
zpty -w -n z $'customscan mif ch\t'
out=
for i in {1..100}; do
  while zpty -r -t z chunk; do out+=$chunk; done
  [[ $out == *'customscan mif check '* ]] && break
  sleep 0.1
done
zpty -d z
print -r -- "$out"
""" % os.path.join(share, "zsh", "vendor-completions"))
        env = clean_environment({"PATH": os.path.join(root, "bin") + os.pathsep + os.environ.get("PATH", ""),
                                 "TERM": "dumb", "HOME": root})
        start = time.monotonic()
        result = subprocess.run(["zsh", "-f", driver], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env,
                                timeout=60)
        self.assertIn("customscan mif check ", text(result.stdout),
                      "zsh did not complete \"mif ch\" after %.1f s:\n%s%s" %
                      (time.monotonic() - start, text(result.stdout), text(result.stderr)))


if __name__ == "__main__":
    unittest.main()
