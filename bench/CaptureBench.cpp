// Output capture: a child writes 100 MB of text lines; the parent collects
// all of it in memory.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "common/Command.h"
#include "common/MemoryBuffer.h"

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
void BM_Capture_Blocks(benchmark::State& state) {
  capture(state, csbench::ReadMode::BlocksGrowing);
}
BENCHMARK(BM_Capture_Blocks)->Arg(kCaptureBytes)->UseRealTime()->Unit(benchmark::kMillisecond);

// One read() per byte into the same kind of buffer. It takes seconds per
// run, so it runs three times whatever the repetition count.
void BM_Capture_BytePerRead(benchmark::State& state) {
  capture(state, csbench::ReadMode::BytePerRead);
}
BENCHMARK(BM_Capture_BytePerRead)
    ->Arg(kCaptureBytes)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);

// The plug-in's process runner, reading the host's byte stream into a
// MemoryBuffer(1024, 4096) as the operands make it.
void BM_Capture_CommandRun(benchmark::State& state) {
  long long bytes = state.range(0);
  String command((csbench::childPath() + " bytes " + std::to_string(bytes)).c_str());
  for (auto _ : state) {
    CustomScanPlugin::MemoryBuffer buffer(1024, 4096);
    if (CustomScanPlugin::Command::run(command, buffer) != 0 ||
        buffer.getData()[bytes - 1] != '\n') {
      state.SkipWithError("Command::run failed");
    }
    benchmark::DoNotOptimize(buffer.getData());
  }
  state.SetBytesProcessed(state.iterations() * bytes);
}
BENCHMARK(BM_Capture_CommandRun)
    ->Arg(kCaptureBytes)
    ->Arg(10 * 1024 * 1024)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
