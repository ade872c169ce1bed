// The command gate against a real directory tree, for several scanner
// directories (the input's first byte picks one): a plain one, one whose name
// holds a blank, one whose name holds a double quote, one configured with a
// trailing separator, one configured unnormalised. For every accepted command
// line:
//  - the program the host will start (the first word of the host's own split
//    of the resolved line) is exactly the path the gate checked (read from
//    the gate's own trace record);
//  - that program is a regular file whose real path begins with the
//    configured directory: it lies inside it, or in a sibling whose name
//    begins with the directory's name (the prefix test's looseness, kept on
//    purpose);
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
#include "base/ProcessExtras.h"
#include "base/Runtime.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"
#include "common/CommandGate.h"
#include "trace/TraceSink.h"

using CustomScanPlugin::CommandGate;

namespace {

constexpr std::size_t kMaxInput = 4096;
constexpr char kSource[] = "../../../../fuzz/CommandResolutionFuzzer";

void makeFile(const std::string& path) {
  std::ofstream(path) << "#!/bin/sh\n";
  ::chmod(path.c_str(), 0755);
}

// Scanner directories under one root, with programs inside and beside them.
struct Tree {
  std::string root;
  std::vector<std::string> dirs;
  Tree() {
    char templ[] = "/tmp/csfuzz.XXXXXX";
    const char* made = ::mkdtemp(templ);
    if (made == nullptr) std::abort();
    char real[PATH_MAX];
    if (::realpath(made, real) == nullptr) std::abort();
    root = real;
    for (const char* d : {"/scan", "/scan/sub", "/scan/sub/deeper", "/scan2", "/other",
                          "/my scanners", "/my scanners/sub", "/q\"uote", "/q\"uote/sub"}) {
      ::mkdir((root + d).c_str(), 0755);
    }
    for (const char* f : {"/scan/ok", "/scan/my scan.sh", "/scan/sub/inner", "/scan/sub/deeper/x",
                          "/scan/-x", "/scan/a\tb", "/scan2/prog", "/scanner", "/canary",
                          "/other/prog", "/my", "/my scanners/ok", "/my scanners/sub/inner", "/q",
                          "/quote", "/q\"uote/ok", "/q\"uote/sub/inner"}) {
      makeFile(root + f);
    }
    dirs = {root + "/scan", root + "/my scanners", root + "/q\"uote", root + "/scan/",
            root + "/scan/sub/.."};
  }
};

const Tree& tree() {
  static Tree t;
  return t;
}

// Keeps the path the gate checked, from its own trace record.
class CheckedPathSink : public TraceSink {
 public:
  int maxLevel() const override { return Trace::Detail; }
  void record(const TraceRecord& record) override {
    static const std::wstring kPrefix = L"the normalized path for the command is [";
    if (record.text.compare(0, kPrefix.size(), kPrefix) == 0 && record.text.back() == L']') {
      checked = record.text.substr(kPrefix.size(), record.text.size() - kPrefix.size() - 1);
    }
  }
  std::wstring checked;
};

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput || size < 1) return 0;
  const Tree& t = tree();
  const std::string& dir = t.dirs[data[0] % t.dirs.size()];
  std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  bytes.resize(std::strlen(bytes.c_str()));
  const String command(bytes.c_str());
  const String untouched(L"\x1Funtouched");
  String resolved = untouched;

  CheckedPathSink sink;
  TraceSink* previous = TraceControl::getSink();
  TraceControl::setSink(&sink);
  const TErrorCode code = CommandGate::resolve(String(dir.c_str()), "CommandResolutionFuzzer",
                                               kSource, command, resolved);
  TraceControl::setSink(previous);

  const std::string input = csfuzz::escape(dir) + " | " + csfuzz::escape(bytes);
  if (code != 0) {
    CSFUZZ_CHECK(code == CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT ||
                     code == CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH ||
                     code == CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST,
                 input);
    CSFUZZ_CHECK(sameText(resolved, untouched), input);
    return 0;
  }

  // The host's view, what it will start, against the gate's.
  const std::string line = resolved.toNarrow();
  const std::string checked = hostEncodeNarrow(sink.checked.data(), sink.checked.size());
  const std::vector<std::string> words = hostSplitCommandLine(resolved);
  CSFUZZ_CHECK(!checked.empty(),
               input + " -> " + csfuzz::escape(line) + ": no checked path traced");
  CSFUZZ_CHECK(!words.empty(), input + " -> " + csfuzz::escape(line));
  CSFUZZ_CHECK(words[0] == checked, input + " -> " + csfuzz::escape(line) + " checks " +
                                        csfuzz::escape(checked) + " but starts " +
                                        csfuzz::escape(words[0]));

  CSFUZZ_CHECK(isRegularFile(words[0]), input + " -> " + csfuzz::escape(words[0]));
  char real[PATH_MAX];
  CSFUZZ_CHECK(::realpath(words[0].c_str(), real) != nullptr, input);
  const std::string program = real;
  CSFUZZ_CHECK(program.compare(0, dir.size(), dir) == 0,
               input + " runs " + csfuzz::escape(program) + ", outside " + csfuzz::escape(dir));
  return 0;
}
