// The command gate against a real directory tree. For every accepted command
// line:
//  - the program the host will start (the first word of the host's own split
//    of the resolved line) is exactly the path the gate checked;
//  - that program is a regular file whose real path lies in the scanner
//    directory, or in a sibling whose name begins with the directory's name
//    (the prefix test's looseness, kept on purpose);
// and a refused one leaves the output untouched and gives one of the gate's
// codes. The tree holds no symbolic links, so the real path is exact.

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "CustomScanConstants.h"
#include "FuzzSupport.h"
#include "base/Runtime.h"
#include "base/String.h"
#include "common/CommandGate.h"

using CustomScanPlugin::CommandGate;

namespace {

constexpr std::size_t kMaxInput = 4096;
constexpr char kSource[] = "../../../../fuzz/CommandResolutionFuzzer";

void makeFile(const std::string& path) {
  std::ofstream(path) << "#!/bin/sh\n";
  ::chmod(path.c_str(), 0755);
}

// root/scan is the scanner directory; the rest are its neighbours.
struct Tree {
  std::string root;
  std::string dir;
  Tree() {
    char templ[] = "/tmp/csfuzz.XXXXXX";
    const char* made = ::mkdtemp(templ);
    if (made == nullptr) std::abort();
    char real[PATH_MAX];
    if (::realpath(made, real) == nullptr) std::abort();
    root = real;
    dir = root + "/scan";
    for (const char* d : {"/scan", "/scan/sub", "/scan/sub/deeper", "/scan2", "/other"}) {
      ::mkdir((root + d).c_str(), 0755);
    }
    for (const char* f : {"/scan/ok", "/scan/my scan.sh", "/scan/sub/inner", "/scan/sub/deeper/x", "/scan/-x",
                          "/scan/a\tb", "/scan2/prog", "/scanner", "/canary", "/other/prog"}) {
      makeFile(root + f);
    }
  }
};

const Tree& tree() {
  static Tree t;
  return t;
}

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  bytes.resize(std::strlen(bytes.c_str()));
  const Tree& t = tree();
  const String command(bytes.c_str());
  const String untouched(L"\x1Funtouched");
  String resolved = untouched;

  const TErrorCode code = CommandGate::resolve(String(t.dir.c_str()), "CommandResolutionFuzzer", kSource,
                                               command, resolved);
  const std::string input = csfuzz::escape(bytes);
  if (code != 0) {
    CSFUZZ_CHECK(code == CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT ||
                     code == CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH ||
                     code == CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST,
                 input);
    CSFUZZ_CHECK(resolved == untouched, input);
    return 0;
  }

  // The gate's own view of the program: the quoted path, or the text up to
  // the first blank.
  const std::string line = resolved.toNarrow();
  std::string checked;
  if (!line.empty() && line[0] == '"') {
    std::size_t close = line.find('"', 1);
    CSFUZZ_CHECK(close != std::string::npos, input + " -> " + csfuzz::escape(line));
    checked = line.substr(1, close - 1);
  } else {
    checked = line.substr(0, line.find(' '));
  }
  // The host's view: what it will start.
  const std::vector<std::string> words = Runtime::splitCommandLine(resolved);
  CSFUZZ_CHECK(!words.empty(), input + " -> " + csfuzz::escape(line));
  CSFUZZ_CHECK(words[0] == checked, input + " -> " + csfuzz::escape(line) + " starts " + csfuzz::escape(words[0]));

  CSFUZZ_CHECK(isRegularFile(words[0]), input + " -> " + csfuzz::escape(words[0]));
  char real[PATH_MAX];
  CSFUZZ_CHECK(::realpath(words[0].c_str(), real) != nullptr, input);
  const std::string program = real;
  const std::string scanPrefix = t.root + "/scan";
  CSFUZZ_CHECK(program.compare(0, scanPrefix.size(), scanPrefix) == 0,
               input + " runs " + csfuzz::escape(program) + ", outside " + t.dir);
  return 0;
}
