/// What a binary record, a ring event and a dump cost. Segments and dump go to the working directory.

#include <cstdio>

#include <benchmark/benchmark.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

namespace {

void CounterRead(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(ReadQPC32());
    }
}
BENCHMARK(CounterRead);

void RecordFilteredOut(benchmark::State& state) {
    SysTraceConfigure();
    for ([[maybe_unused]] auto _ : state) {
        RTTrace(SYSTRACE_ID(1, 3, 1));
    }
}
BENCHMARK(RecordFilteredOut);

void Record(benchmark::State& state) {
    SysTraceConfigure();
    for ([[maybe_unused]] auto _ : state) {
        RTTrace(SYSTRACE_ID(1, 0, 1));
    }
}
BENCHMARK(Record)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

void RecordOfThreeWords(benchmark::State& state) {
    SysTraceConfigure();
    for ([[maybe_unused]] auto _ : state) {
        RTTrace_3(SYSTRACE_ID(1, 0, 1), 1, 2, 3);
    }
}
BENCHMARK(RecordOfThreeWords)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

void RingEvent(benchmark::State& state) {
    TRACE_RING_HANDLE ring = nullptr;
    GetTraceRingBuffer(RING_ENGINE_LINK, &ring);
    for ([[maybe_unused]] auto _ : state) {
        WriteEventToRingBuffer(ring, 0, 1, 2, 3, 4, 5);
    }
}
BENCHMARK(RingEvent)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

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
