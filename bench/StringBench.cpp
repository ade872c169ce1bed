// What copies of the host's strings cost, and the compact result list: the
// plug-in copies values freely (defaults into empty cells, keys into lists),
// so a copy must cost no more than a reference, however long the text.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "base/String.h"
#include "sdk/SdkString.h"

namespace {

// A copy of a text of state.range(0) bytes (shared storage: no allocation,
// no copy of the characters).
void BM_String_Copy(benchmark::State& state) {
  const String text(std::string(static_cast<std::size_t>(state.range(0)), 'd').c_str());
  for (auto _ : state) {
    String copy(text);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_String_Copy)->Arg(16)->Arg(1024)->Arg(1 << 20);

// A copy that is then changed: the first change makes the copy's own text.
void BM_String_CopyThenAppend(benchmark::State& state) {
  const String text(std::string(static_cast<std::size_t>(state.range(0)), 'd').c_str());
  for (auto _ : state) {
    String copy(text);
    copy.concat(L'x');
    benchmark::DoNotOptimize(copy);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_String_CopyThenAppend)->Arg(1024)->Arg(1 << 20);

// 3,000 rows that take a 1 MB default: the row values the table keeps.
void BM_String_DefaultsForEmptyCells(benchmark::State& state) {
  const String defaultValue(std::string(1 << 20, 'd').c_str());
  for (auto _ : state) {
    std::vector<String> cells(3000, defaultValue);
    benchmark::DoNotOptimize(cells.data());
  }
}
BENCHMARK(BM_String_DefaultsForEmptyCells)->Unit(benchmark::kMicrosecond);

// A result list of empty lines, as RunCommandEx with trim=false builds it.
void BM_StringVector_EmptyLines(benchmark::State& state) {
  for (auto _ : state) {
    PluginSDK::StringVector lines;
    for (long i = 0; i < state.range(0); ++i) lines.addString(L"");
    benchmark::DoNotOptimize(lines.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StringVector_EmptyLines)->Arg(1000000)->Unit(benchmark::kMillisecond);

// A result string made from one long narrow line, trimmed, then assigned to
// the result, as RunCommand does with a one-line output.
void BM_SdkString_OneLongLine(benchmark::State& state) {
  const std::string line(static_cast<std::size_t>(state.range(0)), 'x');
  for (auto _ : state) {
    PluginSDK::String piece;
    piece = line.c_str();
    piece.trim();
    PluginSDK::String result;
    result = piece;
    benchmark::DoNotOptimize(result);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SdkString_OneLongLine)->Arg(64 << 20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
