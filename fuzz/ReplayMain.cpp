// Runs every file of the given corpus directories (or the given files)
// through the target once, in name order, so that the ordinary test run
// keeps past findings fixed without libFuzzer.

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"

namespace {

bool isDirectory(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> inputsOf(const std::string& path) {
  if (!isDirectory(path)) return {path};
  std::vector<std::string> files;
  DIR* d = ::opendir(path.c_str());
  if (d == nullptr) return files;
  while (dirent* e = ::readdir(d)) {
    if (e->d_name[0] == '.') continue;
    std::string file = path + "/" + e->d_name;
    if (!isDirectory(file)) files.push_back(file);
  }
  ::closedir(d);
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::string& file : inputsOf(argv[i])) {
      std::ifstream in(file, std::ios::binary);
      if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
        return 1;
      }
      std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
      std::fprintf(stderr, "replay: %s (%zu bytes)\n", file.c_str(), bytes.size());
      // A fresh heap copy of exactly the input's size, as libFuzzer hands it,
      // so that the sanitizers see any read past its end.
      std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[bytes.size()]);
      std::copy(bytes.begin(), bytes.end(), data.get());
      LLVMFuzzerTestOneInput(data.get(), bytes.size());
      ++replayed;
    }
  }
  std::printf("replayed %zu inputs\n", replayed);
  // An empty corpus means a wrong path, not a pass.
  return replayed > 0 ? 0 : 1;
}
