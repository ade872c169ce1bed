// MIF text to table: the floor, the straightforward C++ parser, and (in the
// sweeps) the same at several sizes.

#include <benchmark/benchmark.h>

#include "BaselineMif.h"
#include "BenchSupport.h"

namespace {

const wchar_t kClass[] = L"Bench|Volumes|1.0";
constexpr long long kMB = 1024 * 1024;

// Reading the file, converting it to wide text and splitting its lines.
void BM_Mif_Floor(benchmark::State& state) {
  std::string path = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(csbench::mifFloor(path));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Mif_Floor)->Arg(1 * kMB)->Arg(10 * kMB)->Arg(100 * kMB)->Unit(benchmark::kMillisecond)->UseRealTime();

// Rows into std::map<std::wstring, std::vector<std::wstring>>.
void BM_Mif_CppBaseline(benchmark::State& state) {
  std::string path = csbench::mifFile(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    csbench::BaselineTable rows;
    if (!csbench::parseBaselineMif(path, kClass, rows) || rows.empty()) state.SkipWithError("baseline failed");
    benchmark::DoNotOptimize(rows.size());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Mif_CppBaseline)->Arg(1 * kMB)->Arg(10 * kMB)->Arg(100 * kMB)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
