"""cmake --install into a temporary prefix, and cpack -G DEB: the installed
tool runs from there and finds its plug-in and libraries by itself."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from e2e_support import BINARY_DIR, EXIT_CODE, EXIT_OK, ToolTestCase, clean_environment, run, text

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


def sanitizer_flags():
    """The -fsanitize flags the build tree was configured with, if any."""
    try:
        with open(os.path.join(BINARY_DIR, "CMakeCache.txt")) as f:
            cache = f.read()
    except OSError:
        return []
    match = re.search(r"^CUSTOMSCAN_SANITIZE:\w+=(.+)$", cache, re.M)
    if not match or not match.group(1).strip():
        return []
    return ["-fsanitize=" + match.group(1).strip().replace(";", ",")]


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
                     ("share", "customscan", "examples", "scanners", "kernel.sh"),
                     ("share", "customscan", "examples", "requests.jsonl")]:
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
                         "customscan 1.1.1.1")

    def test_installed_tool_runs_after_the_prefix_is_moved(self):
        moved = self.prefix + "-moved"
        shutil.copytree(self.prefix, moved, symlinks=True)
        self.addCleanup(shutil.rmtree, moved, True)
        result = run(["eval", "--scanner-dir", moved, "NoSuchOperand"], tool=os.path.join(moved, "bin", "customscan"))
        self.assertExit(result, EXIT_CODE)

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


class DebianPackage(ToolTestCase):
    def test_package_installs_the_tool_under_usr(self):
        work = tempfile.mkdtemp(prefix="cs-deb-")
        self.addCleanup(shutil.rmtree, work, True)
        subprocess.run(["cpack", "-G", "DEB", "--config", os.path.join(BINARY_DIR, "CPackConfig.cmake"), "-B", work],
                       check=True, stdout=subprocess.DEVNULL)
        packages = [n for n in os.listdir(work) if n.endswith(".deb")]
        self.assertEqual(len(packages), 1, os.listdir(work))
        deb = os.path.join(work, packages[0])
        info = subprocess.run(["dpkg-deb", "--field", deb, "Package", "Version"], stdout=subprocess.PIPE,
                              check=True).stdout.decode()
        self.assertIn("Package: customscan", info)
        self.assertIn("Version: 1.1.1.1", info)
        root = os.path.join(work, "root")
        subprocess.run(["dpkg-deb", "-x", deb, root], check=True)
        tool = os.path.join(root, "usr", "bin", "customscan")
        self.assertTrue(os.path.exists(os.path.join(root, "usr", "lib", "customscan", "libCustomScan.so")))
        result = run(["eval", "--scanner-dir", work, "NoSuchOperand"], tool=tool)
        self.assertExit(result, EXIT_CODE)
        self.assertIn("-10008", text(result.stderr))


if __name__ == "__main__":
    unittest.main()
