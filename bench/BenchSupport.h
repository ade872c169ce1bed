#pragma once
// Shared pieces of the benchmark programs: the child program, the generated
// MIF files, and the bare process and pipe code that the plug-in's own paths
// are measured against.

#include <cstddef>
#include <string>
#include <vector>

namespace csbench {

// The cs_bench_child program (see cs_bench_child.c).
std::string childPath();

// The directory that holds the generated MIF files:
// $CUSTOMSCAN_BENCH_DATA, or a directory beside the benchmark programs.
std::string dataDir();

// The path of a generated MIF text of about `bytes` bytes, generated with
// cs_mifgen on first use. Sizes are named as the table names them.
std::string mifFile(std::size_t bytes);
std::string sizeLabel(std::size_t bytes);

// A growable byte buffer from malloc/realloc, doubled when full.
struct ByteBuffer {
  ByteBuffer() = default;
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;
  ~ByteBuffer();
  void reserveFree(std::size_t n);  // ensures n writable bytes after size
  char* data = nullptr;
  std::size_t size = 0;
  std::size_t capacity = 0;
};

enum class ReadMode {
  Discard,        // 64 KiB reads into one stack block
  BlocksGrowing,  // 64 KiB reads straight into a realloc-grown buffer
  BytePerRead,    // one read() per byte, appended to a realloc-grown buffer
};

// How the child is set up before it runs its program.
enum class ChildSetup {
  Bare,  // standard output onto the pipe, nothing else
  Host,  // as the host does it: standard input from /dev/null, descriptors
         // from 3 up closed, an empty signal mask, every signal at its default
};
// Runs argv[0] with argv through posix_spawn, its output on a pipe, reads the
// pipe to its end as `mode` says and reaps the child. Returns the number of
// bytes read, or -1 when the child could not be started or did not exit 0.
long long spawnAndRead(const std::vector<std::string>& argv, ReadMode mode,
                       ByteBuffer* keep = nullptr, ChildSetup setup = ChildSetup::Bare);

// The same through "/bin/sh -c commandLine".
long long shellAndRead(const std::string& commandLine);

// Reads a whole file into memory; empty on failure.
std::string readWholeFile(const std::string& path);

// Peak resident set size of this process so far, in bytes.
long long peakRss();

}  // namespace csbench
