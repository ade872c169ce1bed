"""cmake --install into a temporary prefix: the installed tool runs from
there and finds its plug-in and libraries by itself; the licence, manual
pages, completion, pkg-config and CMake files are in place. (The Debian
packages are tested by test_package.py.)"""

import gzip
import json
import os
import shutil
import subprocess
import tempfile
import unittest

from e2e_support import (BINARY_DIR, EXIT_CODE, SOURCE_DIR, ToolTestCase, cmake_cache, clean_environment,
                         project_version, run, sanitizer_flags, text)

CONSUMER = r"""
#include <dlfcn.h>
#include <cstdio>
#include <cwchar>
#include "ResultCodes.h"
#include "sdk/Plugin.h"
#include "trace/Trace.h"

int main(int argc, char** argv) {
  void* library = dlopen(argv[1], RTLD_NOW);
  if (library == nullptr) { std::printf("%s\n", dlerror()); return 1; }
  auto create = reinterpret_cast<PluginSDK::CreatePluginFunction>(dlsym(library, "createPlugin"));
  auto destroy = reinterpret_cast<PluginSDK::DestroyPluginFunction>(dlsym(library, "destroyPlugin"));
  PluginSDK::Plugin* plugin = create();
  plugin->initializePlugin();
  std::printf("%ls %zu\n", plugin->getName(), plugin->getExpressionNames().size());
  plugin->cleanupPlugin();
  destroy(plugin);
  dlclose(library);
  return 0;
}
"""


class Installation(ToolTestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = tempfile.mkdtemp(prefix="cs-install-")
        subprocess.run(["cmake", "--install", BINARY_DIR, "--prefix", cls.prefix], check=True,
                       stdout=subprocess.DEVNULL)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.prefix, ignore_errors=True)

    def path(self, *parts):
        return os.path.join(self.prefix, *parts)

    def test_layout(self):
        for part in [("bin", "customscan"), ("lib", "customscan", "libCustomScan.so"), ("lib", "libCustomScanHost.so"),
                     ("include", "customscan", "sdk", "Plugin.h"), ("include", "customscan", "base", "String.h"),
                     ("include", "customscan", "config", "ZelCfg.h"), ("include", "customscan", "trace", "Trace.h"),
                     ("include", "customscan", "CustomScanConstants.h"), ("include", "customscan", "ResultCodes.h"),
                     ("lib", "cmake", "CustomScan", "CustomScanConfig.cmake"),
                     ("share", "doc", "customscan", "README.md"), ("share", "doc", "customscan", "customscan.md"),
                     ("share", "doc", "customscan", "result-codes.md"),
                     ("share", "doc", "customscan", "integrating.md"),
                     ("share", "doc", "customscan", "LICENSE"), ("share", "doc", "customscan", "NOTICE"),
                     ("share", "customscan", "examples", "scanners", "kernel.sh"),
                     ("share", "customscan", "examples", "requests.jsonl"),
                     ("share", "customscan", "examples", "host", "CMakeLists.txt"),
                     ("share", "customscan", "examples", "host", "host.cpp"),
                     ("include", "customscan", "config", "HostSettings.h"),
                     ("include", "customscan", "trace", "TraceSink.h"),
                     ("lib", "pkgconfig", "customscan-host.pc"),
                     ("share", "bash-completion", "completions", "customscan"),
                     ("share", "zsh", "vendor-completions", "_customscan")]:
            with self.subTest(path=os.path.join(*part)):
                self.assertTrue(os.path.exists(self.path(*part)))
        self.assertTrue(os.access(self.path("share", "customscan", "examples", "scanners", "kernel.sh"), os.X_OK))

    def test_installed_tool_finds_its_plugin_and_libraries(self):
        env = clean_environment()
        env.pop("LD_LIBRARY_PATH", None)
        result = run(["eval", "--scanner-dir", self.path("share", "customscan", "examples", "scanners"), "--json",
                      "NoSuchOperand"], tool=self.path("bin", "customscan"), env=env)
        self.assertExit(result, EXIT_CODE)
        self.assertEqual(json.loads(result.stdout)["code"], -10008)
        self.assertEqual(text(run(["--version"], tool=self.path("bin", "customscan"), env=env).stdout).strip(),
                         "customscan " + project_version())

    def test_installed_tool_runs_after_the_prefix_is_moved(self):
        moved = self.prefix + "-moved"
        shutil.copytree(self.prefix, moved, symlinks=True)
        self.addCleanup(shutil.rmtree, moved, True)
        result = run(["eval", "--scanner-dir", moved, "NoSuchOperand"], tool=os.path.join(moved, "bin", "customscan"))
        self.assertExit(result, EXIT_CODE)

    def test_licence_is_the_apache_licence_with_its_notice(self):
        with open(self.path("share", "doc", "customscan", "LICENSE")) as f:
            licence = f.read()
        self.assertIn("Apache License", licence)
        self.assertIn("Version 2.0, January 2004", licence)
        with open(os.path.join(SOURCE_DIR, "LICENSE")) as f:
            self.assertEqual(licence, f.read())
        with open(self.path("share", "doc", "customscan", "NOTICE")) as f:
            self.assertIn("Copyright 2026 The CustomScan developers", f.read())

    def test_debian_files_stay_out_of_a_plain_installation(self):
        # copyright and changelog.Debian.gz belong to the packages' own doc directories.
        self.assertFalse(os.path.exists(self.path("share", "doc", "customscan", "changelog.Debian.gz")))
        self.assertFalse(os.path.exists(self.path("share", "doc", "libcustomscanhost1")))

    def test_installed_binaries_keep_their_relative_rpath(self):
        result = subprocess.run(["readelf", "-d", self.path("bin", "customscan")], stdout=subprocess.PIPE, check=True)
        self.assertIn("$ORIGIN/../lib", result.stdout.decode())

    def test_manual_pages_are_installed_compressed(self):
        if cmake_cache("CUSTOMSCAN_BUILD_MANPAGES") == "OFF":
            self.skipTest("configured with CUSTOMSCAN_BUILD_MANPAGES=OFF: no manual pages")
        for section, name in (("man1", "customscan.1.gz"), ("man5", "customscan-mif.5.gz")):
            with self.subTest(page=name):
                with gzip.open(self.path("share", "man", section, name), "rt") as f:
                    page = f.read()
                self.assertIn(".TH \"%s\"" % name.split(".")[0].upper(), page)

    def test_pkg_config_names_the_installed_tree(self):
        if shutil.which("pkg-config") is None:
            self.skipTest("pkg-config is not installed (Debian package pkg-config)")
        env = dict(os.environ, PKG_CONFIG_PATH=self.path("lib", "pkgconfig"))
        result = subprocess.run(["pkg-config", "--cflags", "--libs", "customscan-host"], env=env,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 0, result.stderr.decode())
        flags = result.stdout.decode().split()
        self.assertEqual(flags, ["-I" + self.path("include", "customscan"), "-L" + self.path("lib"),
                                 "-lCustomScanHost"])
        plugin = subprocess.run(["pkg-config", "--variable=plugin", "customscan-host"], env=env,
                                stdout=subprocess.PIPE, check=True).stdout.decode().strip()
        self.assertEqual(plugin, self.path("lib", "customscan", "libCustomScan.so"))
        version = subprocess.run(["pkg-config", "--modversion", "customscan-host"], env=env,
                                 stdout=subprocess.PIPE, check=True).stdout.decode().strip()
        self.assertEqual(version, project_version())

    def test_sdk_headers_and_host_library_build_a_host(self):
        work = tempfile.mkdtemp(prefix="cs-consumer-")
        self.addCleanup(shutil.rmtree, work, True)
        source = os.path.join(work, "host.cpp")
        with open(source, "w") as f:
            f.write(CONSUMER)
        program = os.path.join(work, "host")
        subprocess.run(["g++", "-std=c++17"] + sanitizer_flags() + [source, "-I", self.path("include", "customscan"),
                        "-L", self.path("lib"), "-lCustomScanHost", "-ldl", "-Wl,-rpath," + self.path("lib"),
                        "-o", program], check=True)
        result = subprocess.run([program, self.path("lib", "customscan", "libCustomScan.so")],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout.decode().strip(), "CustomScan 5")


if __name__ == "__main__":
    unittest.main()
