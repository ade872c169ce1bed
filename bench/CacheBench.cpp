// The cost of a cache hit as the cache fills: 10,000 distinct requests are
// cached (each ran its scanner once, during set-up), and the request asked
// again is the 1st, the 100th or the 10,000th entry. The lookup is a linear
// scan, so the last entry is the worst case.

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "PluginSupport.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

namespace {

constexpr int kEntries = 10000;
const wchar_t kClass[] = L"Bench|Volumes|1.0";

// The command line of request i: the same scanner and MIF file, told apart
// by a trailing argument the scanner ignores.
String requestCommand(const std::string& file, int i) {
  return String(("cs_bench_child file " + file + " request" + std::to_string(i)).c_str());
}

const std::string& filledCache() {
  static const std::string file = [] {
    std::string path = csbench::mifFile(4 * 1024);
    csbench::plugin();
    for (int i = 1; i <= kEntries; ++i) {
      CustomScanPlugin::MifTable* table = nullptr;
      if (CustomScanPlugin::MifCache::getCache()->getMifTable(requestCommand(path, i), String(),
                                                              String(kClass), table) != 0) {
        std::abort();
      }
    }
    return path;
  }();
  return file;
}

void BM_Cache_Hit(benchmark::State& state) {
  const std::string& file = filledCache();
  String command = requestCommand(file, static_cast<int>(state.range(0)));
  String output;
  String className(kClass);
  CustomScanPlugin::MifCache* cache = CustomScanPlugin::MifCache::getCache();
  if (cache->entryCount() != kEntries) state.SkipWithError("cache not filled");
  for (auto _ : state) {
    CustomScanPlugin::MifTable* table = nullptr;
    if (cache->getMifTable(command, output, className, table) != 0) state.SkipWithError("miss");
    benchmark::DoNotOptimize(table);
  }
}
BENCHMARK(BM_Cache_Hit)->Arg(1)->Arg(100)->Arg(kEntries)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
