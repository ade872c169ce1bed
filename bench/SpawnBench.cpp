// Spawn round trip: one run of a tiny program that writes "ok\n", read to
// the end of its output and reaped.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"

namespace {

// The limit: posix_spawn, a pipe, 64 KiB reads, waitpid.
void BM_Spawn_Bare(benchmark::State& state) {
  std::vector<std::string> argv = {csbench::childPath()};
  for (auto _ : state) {
    if (csbench::spawnAndRead(argv, csbench::ReadMode::Discard) != 3) state.SkipWithError("child failed");
  }
}
BENCHMARK(BM_Spawn_Bare)->UseRealTime()->Unit(benchmark::kMicrosecond);

// What many agents do: the same program through /bin/sh -c.
void BM_Spawn_Shell(benchmark::State& state) {
  std::string line = csbench::childPath();
  for (auto _ : state) {
    if (csbench::shellAndRead(line) != 3) state.SkipWithError("child failed");
  }
}
BENCHMARK(BM_Spawn_Shell)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
