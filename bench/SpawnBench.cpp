// Spawn round trip: one run of a tiny program that writes "ok\n", read to
// the end of its output and reaped.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "PluginSupport.h"
#include "sdk/Expression.h"

namespace {

// The limit: posix_spawn, a pipe, 64 KiB reads, waitpid.
void BM_Spawn_Bare(benchmark::State& state) {
  std::vector<std::string> argv = {csbench::scannerPath()};
  for (auto _ : state) {
    if (csbench::spawnAndRead(argv, csbench::ReadMode::Discard) != 3)
      state.SkipWithError("child failed");
  }
}
BENCHMARK(BM_Spawn_Bare)->UseRealTime()->Unit(benchmark::kMicrosecond);

// The same with the child set up as the host sets it up (standard input,
// descriptors, signals): what of the round trip the host's guarantees cost.
void BM_Spawn_BareHostSetup(benchmark::State& state) {
  std::vector<std::string> argv = {csbench::scannerPath()};
  for (auto _ : state) {
    if (csbench::spawnAndRead(argv, csbench::ReadMode::Discard, nullptr,
                              csbench::ChildSetup::Host) != 3)
      state.SkipWithError("child failed");
  }
}
BENCHMARK(BM_Spawn_BareHostSetup)->UseRealTime()->Unit(benchmark::kMicrosecond);

// What many agents do: the same program through /bin/sh -c.
void BM_Spawn_Shell(benchmark::State& state) {
  std::string line = csbench::scannerPath();
  for (auto _ : state) {
    if (csbench::shellAndRead(line) != 3) state.SkipWithError("child failed");
  }
}
BENCHMARK(BM_Spawn_Shell)->UseRealTime()->Unit(benchmark::kMicrosecond);

// The plug-in: the host's call of getScalarResult on a RunCommand operand
// whose "path" names the same program in the scanner directory.
void BM_Spawn_RunCommand(benchmark::State& state) {
  PluginSDK::Expression* operand = csbench::createOperand(L"RunCommand");
  operand->setProperty(L"path", csbench::kScannerName);
  auto* scalar = static_cast<PluginSDK::ScalarExpression*>(operand);
  for (auto _ : state) {
    PluginSDK::String result;
    if (scalar->getScalarResult(result) != 0 || result.length() != 2)
      state.SkipWithError("RunCommand failed");
  }
  csbench::plugin().destroyExpression(operand);
}
BENCHMARK(BM_Spawn_RunCommand)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
