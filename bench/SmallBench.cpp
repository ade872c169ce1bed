// Small outputs end to end: a scanner writes a 4 KB or 64 KB MIF text to its
// standard output, and a CustomScanInfo operand answers one field of one row,
// with the cache cleared after each answer so that each one runs the scanner.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "PluginSupport.h"
#include "operands/MifCache.h"
#include "sdk/Expression.h"

namespace {

// The limit: spawning the same scanner and reading its output.
void BM_Small_BareSpawn(benchmark::State& state) {
  std::string file = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  std::vector<std::string> argv = {csbench::scannerPath(), "file", file};
  for (auto _ : state) {
    csbench::ByteBuffer buffer;
    if (csbench::spawnAndRead(argv, csbench::ReadMode::BlocksGrowing, &buffer) <= 0)
      state.SkipWithError("failed");
  }
}
BENCHMARK(BM_Small_BareSpawn)
    ->Arg(4 * 1024)
    ->Arg(64 * 1024)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void BM_Small_CustomScanInfo(benchmark::State& state) {
  std::string file = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  PluginSDK::Expression* operand = csbench::createOperand(L"CustomScanInfo");
  operand->setProperty(L"command", String(("cs_bench_child file " + file).c_str()));
  operand->setProperty(L"class", L"Bench|Volumes|1.0");
  operand->setProperty(L"code", L"/dev/vd00001");
  operand->setProperty(L"field", L"FileSystem");
  auto* scalar = static_cast<PluginSDK::ScalarExpression*>(operand);
  for (auto _ : state) {
    PluginSDK::String result;
    if (scalar->getScalarResult(result) != 0 || !(result == L"xfs"))
      state.SkipWithError("CustomScanInfo failed");
    CustomScanPlugin::MifCache::cleanup();
  }
  csbench::plugin().destroyExpression(operand);
}
BENCHMARK(BM_Small_CustomScanInfo)
    ->Arg(4 * 1024)
    ->Arg(64 * 1024)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
