// MIF text to table: the floor, the straightforward C++ parser and the
// plug-in, each at 1, 10 and 100 MB. All three work in this process alone, so
// they are timed in CPU time, which the other load of a shared machine
// disturbs far less than the wall clock.

#include <benchmark/benchmark.h>

#include "BaselineMif.h"
#include "BenchSupport.h"
#include "PluginSupport.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

namespace {

const wchar_t kClass[] = L"Bench|Volumes|1.0";
constexpr long long kMB = 1024 * 1024;

// Reading the file, converting it to wide text and splitting its lines.
void BM_Mif_Floor(benchmark::State& state) {
  std::string path = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(csbench::mifFloor(path));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Mif_Floor)->Arg(1 * kMB)->Arg(10 * kMB)->Arg(100 * kMB)->Unit(benchmark::kMillisecond);

// Rows into std::map<std::wstring, std::vector<std::wstring>>.
void BM_Mif_CppBaseline(benchmark::State& state) {
  std::string path = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    csbench::BaselineTable rows;
    if (!csbench::parseBaselineMif(path, kClass, rows) || rows.empty())
      state.SkipWithError("baseline failed");
    benchmark::DoNotOptimize(rows.size());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Mif_CppBaseline)
    ->Arg(1 * kMB)
    ->Arg(10 * kMB)
    ->Arg(100 * kMB)
    ->Unit(benchmark::kMillisecond);

// The plug-in: a scanner that writes its MIF text to an output file, asked
// for once (a cache miss: run, read, widen, parse, build), the cache then
// cleared so that every iteration is a miss.
void BM_Mif_Cache(benchmark::State& state) {
  std::string path = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  csbench::plugin();
  String command((std::string("cs_bench_child none")).c_str());
  String output(path.c_str());
  String className(kClass);
  for (auto _ : state) {
    CustomScanPlugin::MifTable* table = nullptr;
    if (CustomScanPlugin::MifCache::getCache()->getMifTable(command, output, className, table) !=
            0 ||
        table->getRowNumber() == 0) {
      state.SkipWithError("getMifTable failed");
    }
    CustomScanPlugin::MifCache::cleanup();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Mif_Cache)->Arg(1 * kMB)->Arg(10 * kMB)->Arg(100 * kMB)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
