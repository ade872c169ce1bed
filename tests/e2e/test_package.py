"""The Debian packages, built by cpack from this build tree: three packages in
Debian's shape, lintian without errors, and, unpacked into a temporary root
(dpkg-deb -x), a tool that runs on the examples and an example host program
that builds with CMake and with pkg-config against that root alone.

Slow (cpack, lintian, a CMake build): labelled "package", run by the dev CI
pass only. Skipped when dpkg-deb is missing."""

import gzip
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from e2e_support import (BINARY_DIR, EXIT_CODE, EXIT_OK, SOURCE_DIR, ToolTestCase, cmake_cache, json_lines,
                         project_version, run, sanitizer_flags, text)

RUNTIME, DEV, TOOL = "libcustomscanhost1", "libcustomscanhost-dev", "customscan"
# The packages' version: the project's, and the Debian revision.
VERSION = project_version() + "-" + (cmake_cache("CUSTOMSCAN_DEBIAN_REVISION") or "1")


def have(program):
    return shutil.which(program) is not None


def control_field(deb, field):
    return subprocess.run(["dpkg-deb", "--field", deb, field], stdout=subprocess.PIPE,
                          check=True).stdout.decode().strip()


def control_file(deb, name):
    """A member of the package's control archive, or None."""
    work = tempfile.mkdtemp(prefix="cs-control-")
    try:
        subprocess.run(["dpkg-deb", "--control", deb, work], check=True)
        path = os.path.join(work, name)
        if not os.path.exists(path):
            return None
        with open(path) as f:
            return f.read()
    finally:
        shutil.rmtree(work, ignore_errors=True)


def elf_files(root):
    for directory, _, names in os.walk(root):
        for name in names:
            path = os.path.join(directory, name)
            if os.path.islink(path) or not os.path.isfile(path):
                continue
            with open(path, "rb") as f:
                if f.read(4) == b"\x7fELF":
                    yield path


@unittest.skipIf(not have("dpkg-deb"), "dpkg-deb is missing (Debian package dpkg): the packages cannot be examined")
class DebianPackages(ToolTestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp(prefix="cs-deb-")
        result = subprocess.run(["cpack", "-G", "DEB", "--config", os.path.join(BINARY_DIR, "CPackConfig.cmake"),
                                 "-B", cls.work], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            shutil.rmtree(cls.work, ignore_errors=True)
            raise AssertionError("cpack failed:\n" + result.stdout.decode(errors="replace"))
        cls.debs = {}
        for name in os.listdir(cls.work):
            if name.endswith(".deb"):
                deb = os.path.join(cls.work, name)
                cls.debs[control_field(deb, "Package")] = deb
        cls.root = os.path.join(cls.work, "root")
        for deb in cls.debs.values():
            subprocess.run(["dpkg-deb", "-x", deb, cls.root], check=True)
        libdirs = [os.path.dirname(p) for p in elf_files(os.path.join(cls.root, "usr", "lib"))
                   if os.path.basename(p).startswith("libCustomScanHost.so")]
        cls.libdir = libdirs[0] if libdirs else None

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def usr(self, *parts):
        return os.path.join(self.root, "usr", *parts)

    def environment(self):
        """What a program from the unpacked root needs: the packages drop the
        RPATH, since /usr/lib is searched on an installed system."""
        env = dict(os.environ)
        for name in ("CUSTOMSCAN_SCANNER_DIR", "CUSTOMSCAN_PLUGIN"):
            env.pop(name, None)
        env["LD_LIBRARY_PATH"] = self.libdir
        return env

    # ------------------------------------------------------------ the packages

    def test_three_packages_carry_the_project_version(self):
        self.assertEqual(sorted(self.debs), sorted([RUNTIME, DEV, TOOL]))
        for package, deb in self.debs.items():
            with self.subTest(package=package):
                self.assertEqual(control_field(deb, "Version"), VERSION)
                self.assertTrue(os.path.basename(deb).startswith("%s_%s_" % (package, VERSION)))

    def test_descriptions_do_not_start_with_the_package_name(self):
        for package, deb in self.debs.items():
            with self.subTest(package=package):
                synopsis = control_field(deb, "Description").splitlines()[0]
                self.assertFalse(synopsis.lower().startswith(package), synopsis)

    def test_runtime_package_declares_its_shlibs_and_activates_the_ldconfig_trigger(self):
        deb = self.debs[RUNTIME]
        self.assertEqual(control_file(deb, "shlibs").strip(),
                         "libCustomScanHost 1 %s (>= %s)" % (RUNTIME, VERSION))
        self.assertEqual(control_file(deb, "triggers").strip(), "activate-noawait ldconfig")
        self.assertEqual(control_field(deb, "Section"), "libs")

    def test_dev_and_tool_depend_on_this_exact_runtime(self):
        for package in (DEV, TOOL):
            with self.subTest(package=package):
                self.assertIn("%s (= %s)" % (RUNTIME, VERSION), control_field(self.debs[package], "Depends"))
        self.assertRegex(control_field(self.debs[TOOL], "Depends"), r"libstdc\+\+6 \(>= ")

    def test_each_package_holds_its_own_part(self):
        def listing(package):
            out = subprocess.run(["dpkg-deb", "--contents", self.debs[package]], stdout=subprocess.PIPE,
                                 check=True).stdout.decode()
            return [line.split()[5] for line in out.splitlines()]
        runtime, dev, tool = listing(RUNTIME), listing(DEV), listing(TOOL)
        self.assertTrue(any(p.endswith("/customscan/libCustomScan.so") for p in runtime), runtime)
        self.assertTrue(any(p.endswith("/libCustomScanHost.so.1") for p in runtime), runtime)
        self.assertFalse(any(p.endswith("/libCustomScanHost.so") for p in runtime), runtime)
        for part in ("/libCustomScanHost.so", "/include/customscan/sdk/Plugin.h",
                     "/include/customscan/config/HostSettings.h", "/include/customscan/config/ZelCfg.h",
                     "/include/customscan/trace/TraceSink.h", "/cmake/CustomScan/CustomScanConfig.cmake",
                     "/pkgconfig/customscan-host.pc"):
            with self.subTest(part=part):
                self.assertTrue(any(p.endswith(part) for p in dev), part)
        for part in ("./usr/bin/customscan", "./usr/share/man/man1/customscan.1.gz",
                     "./usr/share/man/man5/customscan-mif.5.gz",
                     "./usr/share/bash-completion/completions/customscan",
                     "./usr/share/zsh/vendor-completions/_customscan", "./usr/share/doc/customscan/integrating.md",
                     "./usr/share/customscan/examples/host/host.cpp"):
            with self.subTest(part=part):
                self.assertIn(part, tool)
        self.assertFalse([p for p in tool + dev if "libCustomScan.so" in p and "Host" not in p])

    def test_binaries_are_stripped_and_carry_no_rpath(self):
        binaries = list(elf_files(self.root))
        self.assertEqual(len(binaries), 3, binaries)
        for path in binaries:
            with self.subTest(binary=os.path.relpath(path, self.root)):
                sections = subprocess.run(["readelf", "-S", "-W", path], stdout=subprocess.PIPE,
                                          check=True).stdout.decode()
                self.assertNotIn(".symtab", sections)
                self.assertNotIn(".debug_", sections)
                dynamic = subprocess.run(["readelf", "-d", path], stdout=subprocess.PIPE, check=True).stdout.decode()
                self.assertNotIn("RPATH", dynamic)
                self.assertNotIn("RUNPATH", dynamic)

    def test_every_package_has_a_machine_readable_copyright_and_its_changelog(self):
        for package in self.debs:
            with self.subTest(package=package):
                doc = self.usr("share", "doc", package)
                with open(os.path.join(doc, "copyright")) as f:
                    copyright_text = f.read()
                self.assertTrue(copyright_text.startswith(
                    "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"))
                self.assertIn("Copyright: 2026 The CustomScan developers\nLicense: Apache-2.0", copyright_text)
                self.assertIn("/usr/share/common-licenses/Apache-2.0", copyright_text)
                with gzip.open(os.path.join(doc, "changelog.Debian.gz"), "rt") as f:
                    first = f.readline()
                self.assertEqual(first.split()[:2], ["customscan", "(%s)" % VERSION])
                with open(os.path.join(doc, "changelog.Debian.gz"), "rb") as f:
                    header = f.read(10)
                # gzip -n: no name, no time stamp, so that rebuilds are identical.
                self.assertEqual(header[4:8], b"\0\0\0\0")

    def test_lintian_reports_no_error_and_only_documented_warnings(self):
        if not have("lintian"):
            self.skipTest("lintian is not installed (Debian package lintian)")
        result = subprocess.run(["lintian", "--no-tag-display-limit"] + sorted(self.debs.values()),
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        report = result.stdout.decode(errors="replace")
        errors = [line for line in report.splitlines() if line.startswith("E:")]
        self.assertEqual(errors, [], report)
        with open(os.path.join(SOURCE_DIR, "docs", "packaging.md")) as f:
            page = f.read()
        warnings = sorted(set(re.findall(r"^W: [^:]+: ([a-z0-9-]+)", report, re.M)))
        for tag in warnings:
            with self.subTest(warning=tag):
                self.assertIn("`%s`" % tag, page,
                              "lintian warns %s; list it in docs/packaging.md with the reason it is kept" % tag)

    # ------------------------------------------------------------ unpacked

    def test_tool_runs_from_the_unpacked_root_on_the_examples(self):
        tool = self.usr("bin", "customscan")
        scanners = self.usr("share", "customscan", "examples", "scanners")
        env = self.environment()
        result = run(["eval", "--scanner-dir", scanners, "--json", "RunCommand", "path=kernel.sh"], tool=tool, env=env)
        self.assertExit(result, EXIT_OK)
        self.assertEqual(json.loads(result.stdout)["code"], 0)
        result = run(["eval", "--scanner-dir", scanners, "CustomScanExists", "command=mounts.sh", "class=FileSystems",
                      "code=/"], tool=tool, env=env)
        self.assertExit(result, EXIT_OK)
        result = run(["batch", "--scanner-dir", scanners, self.usr("share", "customscan", "examples", "requests.jsonl")],
                     tool=tool, env=env)
        self.assertExit(result, EXIT_OK)
        self.assertGreaterEqual(len(json_lines(result.stdout)), 3)
        bad = subprocess.run([os.path.join(scanners, "bad-mif.sh")], stdout=subprocess.PIPE).stdout
        result = run(["mif", "check", "-"], stdin=bad, tool=tool, env=env)
        self.assertExit(result, EXIT_CODE)
        self.assertIn("-: invalid", text(result.stdout))

    def test_tool_help_points_at_the_manual_page(self):
        result = run(["--help"], tool=self.usr("bin", "customscan"), env=self.environment())
        self.assertExit(result, EXIT_OK)
        self.assertIn("customscan(1)", text(result.stdout))

    def test_example_host_builds_with_cmake_against_the_unpacked_root_and_runs(self):
        source = self.usr("share", "customscan", "examples", "host")
        build = os.path.join(self.work, "host-cmake")
        flags = " ".join(sanitizer_flags())
        configure = subprocess.run(["cmake", "-S", source, "-B", build, "-DCMAKE_PREFIX_PATH=" + self.usr(),
                                    "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF", "-DCMAKE_CXX_FLAGS=" + flags],
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(configure.returncode, 0, configure.stdout.decode(errors="replace"))
        compiled = subprocess.run(["cmake", "--build", build], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(compiled.returncode, 0, compiled.stdout.decode(errors="replace"))
        self.check_example_host(os.path.join(build, "customscan-host-example"))

    def test_example_host_builds_with_pkg_config_against_the_unpacked_root_and_runs(self):
        if not have("pkg-config"):
            self.skipTest("pkg-config is not installed (Debian package pkg-config)")
        pcdir = os.path.join(self.libdir, "pkgconfig")
        env = dict(os.environ, PKG_CONFIG_PATH=pcdir)
        # The file names /usr; a staged tree is reached by redefining its prefix.
        query = ["pkg-config", "--define-variable=prefix=" + self.usr()]
        flags = subprocess.run(query + ["--cflags", "--libs", "customscan-host"], env=env, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
        self.assertEqual(flags.returncode, 0, flags.stderr.decode())
        words = flags.stdout.decode().split()
        self.assertEqual(words, ["-I" + self.usr("include", "customscan"), "-L" + self.libdir, "-lCustomScanHost"])
        plugin = subprocess.run(query + ["--variable=plugin", "customscan-host"], env=env, stdout=subprocess.PIPE,
                                check=True).stdout.decode().strip()
        self.assertTrue(os.path.isfile(plugin), plugin)
        program = os.path.join(self.work, "host-pkg-config")
        compiled = subprocess.run(["g++", "-std=c++17"] + sanitizer_flags() +
                                  [self.usr("share", "customscan", "examples", "host", "host.cpp")] + words +
                                  ["-ldl", '-DCUSTOMSCAN_PLUGIN_PATH="%s"' % plugin, "-o", program],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(compiled.returncode, 0, compiled.stdout.decode(errors="replace"))
        self.check_example_host(program)

    def check_example_host(self, program):
        scanners = self.usr("share", "customscan", "examples", "scanners")
        env = self.environment()
        result = subprocess.run([program, scanners, "RunCommand", "path=kernel.sh", "--", "CustomScanList",
                                 "command=block-devices.sh", "class=BlockDevices"], env=env,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
        self.assertEqual(result.returncode, 0, text(result.stdout) + text(result.stderr))
        out = text(result.stdout).splitlines()
        self.assertEqual(out[0], "RunCommand: code 0")
        self.assertIn("CustomScanList: code 0", out)
        # A code other than 0 is named with its meaning, and the exit status says so.
        result = subprocess.run([program, scanners, "RunCommand", "path=../outside.sh", "--", "runcommand"], env=env,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
        self.assertEqual(result.returncode, 1, text(result.stdout) + text(result.stderr))
        self.assertIn("CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH", text(result.stdout))
        self.assertIn("PLUGIN_ERROR_UNKNOWN_EXPRESSION", text(result.stdout))
        # The plug-in's trace records reach the sink the host set: one configuration, one trace.
        self.assertIn("is not located in the custom scanner directory", text(result.stderr))
        result = subprocess.run([program, scanners], env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 2)
        self.assertIn("usage:", text(result.stderr))


if __name__ == "__main__":
    unittest.main()
