/// The cost of text-trace calls that the comparison leaves out. The files go to the working directory.

#include <cstdio>

#include <benchmark/benchmark.h>

#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

/// No run reaches the size limit: each begins with a fresh file.
void OpenLog() {
    std::remove("bench.log");
    TraceServices::ConfigureDefaultLog(L"bench.log", 0x7fffffff, 0, true);
}

NimaTrace& SharedTracer() {
    static NimaTrace trace("Bench");
    return trace;
}

void RawBytesToLog(benchmark::State& state) {
    OpenLog();
    const unsigned char data[] = "thirty-two bytes of raw content\n";
    NimaTrace& trace = SharedTracer();
    for ([[maybe_unused]] auto _ : state) {
        trace.WriteWarn(data, sizeof(data) - 1);
    }
}
BENCHMARK(RawBytesToLog);

void LineToMemoryQueue(benchmark::State& state) {
    _TraceConfig config{};
    config.type = TRACE_DEVICE_MEMORY_QUEUE;
    config.name = L"Queue";
    config.settings.memoryQueue.fileName = L"bench.queue";
    TRACE_DEVICE_HANDLE queue = nullptr;
    if (TraceDeviceCreate(&config, &queue) != 0) {
        state.SkipWithError("no queue");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        TraceDeviceWrite(queue, "page 3 of job", 13);
    }
    TraceDeviceRelease(queue);
}
BENCHMARK(LineToMemoryQueue);

} // namespace

BENCHMARK_MAIN();
