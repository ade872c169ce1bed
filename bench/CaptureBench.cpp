// Output capture: a child writes 100 MB of text lines; the parent collects
// all of it in memory.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"

namespace {

constexpr long long kCaptureBytes = 100LL * 1024 * 1024;

std::vector<std::string> writerArgs(long long bytes) {
  return {csbench::childPath(), "bytes", std::to_string(bytes)};
}

void capture(benchmark::State& state, csbench::ReadMode mode) {
  long long bytes = state.range(0);
  std::vector<std::string> argv = writerArgs(bytes);
  for (auto _ : state) {
    csbench::ByteBuffer buffer;
    if (csbench::spawnAndRead(argv, mode, &buffer) != bytes) state.SkipWithError("short output");
    benchmark::DoNotOptimize(buffer.data);
  }
  state.SetBytesProcessed(state.iterations() * bytes);
}

// The limit: 64 KiB reads straight into a realloc-grown buffer.
void BM_Capture_Blocks(benchmark::State& state) { capture(state, csbench::ReadMode::BlocksGrowing); }
BENCHMARK(BM_Capture_Blocks)->Arg(kCaptureBytes)->UseRealTime()->Unit(benchmark::kMillisecond);

// One read() per byte into the same kind of buffer. It takes seconds per
// run, so it runs three times whatever the repetition count.
void BM_Capture_BytePerRead(benchmark::State& state) { capture(state, csbench::ReadMode::BytePerRead); }
BENCHMARK(BM_Capture_BytePerRead)->Arg(kCaptureBytes)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
