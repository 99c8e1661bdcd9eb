/// The cost of the counter and of a dump of the binary trace. Segments and dump go to the working directory.

#include <cstdio>

#include <benchmark/benchmark.h>

#include <Diagnostics/RealTimeTraceApi.h>

namespace {

void CounterRead(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(ReadQPC32());
    }
}
BENCHMARK(CounterRead);

/// The whole shared block, once it has wrapped: 8 MiB and two headers.
void DumpOfTheFullBlock(benchmark::State& state) {
    SysTraceConfigure();
    for (int i = 0; i < (1 << 20); ++i) {
        RTTrace(SYSTRACE_ID(1, 0, 1));
    }
    for ([[maybe_unused]] auto _ : state) {
        DumpSysTrace(L"bench.bin", 0);
    }
    std::remove("bench.bin");
}
BENCHMARK(DumpOfTheFullBlock)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
