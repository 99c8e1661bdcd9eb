/// The library itself, as a host calls it.

#include "competitors/harness.h"

#include <memory>
#include <stdexcept>
#include <vector>

#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using bench::Job;

namespace {

std::vector<std::unique_ptr<NimaTrace>> tracers;

void OpenLog(const std::string& path, std::size_t tracerCount) {
    constexpr long kFarAway = 0x7fffffff;
    const std::wstring name(path.begin(), path.end());
    TraceServices::ConfigureDefaultLog(name.c_str(), kFarAway, 0, true);
    tracers.clear();
    while (tracers.size() < tracerCount) {
        tracers.push_back(std::make_unique<NimaTrace>(bench::kName));
    }
}

void CloseLog() {
    tracers.front()->Flush();
    tracers.clear();
    TRACE_DEVICE_HANDLE log = nullptr;
    if (TraceDeviceFind(L"LogFile", &log) == 0) {
        log->Close();
        TraceDeviceRelease(log);
    }
}

void Write(NimaTrace& tracer, int calls) {
    for (int i = 0; i < calls; ++i) {
        tracer.WriteWarnV("page %d of %s", i, bench::kWhat);
    }
}

Job LinesThroughOwnTracers() {
    return {[](const std::string& path, int threads) { OpenLog(path, static_cast<std::size_t>(threads)); },
            [](int thread, int calls) { Write(*tracers[static_cast<std::size_t>(thread)], calls); },
            CloseLog};
}

Job LinesThroughOneTracer() {
    return {[](const std::string& path, int) { OpenLog(path, 1); },
            [](int, int calls) { Write(*tracers.front(), calls); }, CloseLog};
}

Job LinesThroughMany(std::size_t count) {
    return {[=](const std::string& path, int) {
                OpenLog(path, count);
                for (const auto& tracer : tracers) {
                    tracer->Initialized();
                }
            },
            [=](int, int calls) {
                std::size_t next = 0;
                for (int i = 0; i < calls; ++i) {
                    tracers[next]->WriteWarnV("page %d of %s", i, bench::kWhat);
                    next = next + 1 == count ? 0 : next + 1;
                }
            },
            CloseLog};
}

Job FilteredOut() {
    return {[](const std::string& path, int) { OpenLog(path, 1); },
            [](int, int calls) {
                for (int i = 0; i < calls; ++i) {
                    tracers.front()->WriteDebugV("page %d of %s", i, bench::kWhat);
                }
            },
            CloseLog};
}

void ConfigureTrace(const std::string&, int) {
    if (SysTraceConfigure() == 0) {
        throw std::runtime_error("no trace memory");
    }
}

constexpr unsigned long kTraced = SYSTRACE_ID(1, 0, 1);
constexpr unsigned long kFiltered = SYSTRACE_ID(1, 3, 1);

Job Records(unsigned long id) {
    return {ConfigureTrace,
            [=](int, int calls) {
                for (int i = 0; i < calls; ++i) {
                    RTTrace(id);
                }
            },
            nullptr};
}

Job RecordsOfThreeWords(unsigned long id) {
    return {ConfigureTrace,
            [=](int, int calls) {
                for (int i = 0; i < calls; ++i) {
                    RTTrace_3(id, static_cast<unsigned long>(i), 2, 3);
                }
            },
            nullptr};
}

TRACE_RING_HANDLE ring = nullptr;

Job RingEvents() {
    return {[](const std::string&, int) {
                if (GetTraceRingBuffer(RING_ENGINE_LINK, &ring) != 0) {
                    throw std::runtime_error("no ring");
                }
            },
            [](int, int calls) {
                for (int i = 0; i < calls; ++i) {
                    WriteEventToRingBuffer(ring, 0, 1, static_cast<unsigned long>(i), 3, 4, 5);
                }
            },
            nullptr};
}

} // namespace

int main() {
    return bench::Serve({{"line-own", LinesThroughOwnTracers()},
                         {"line-shared", LinesThroughOneTracer()},
                         {"line-10-tracers", LinesThroughMany(10)},
                         {"line-100-tracers", LinesThroughMany(100)},
                         {"line-1000-tracers", LinesThroughMany(1000)},
                         {"filtered", FilteredOut()},
                         {"record-0", Records(kTraced)},
                         {"record-3", RecordsOfThreeWords(kTraced)},
                         {"record-0-filtered", Records(kFiltered)},
                         {"record-3-filtered", RecordsOfThreeWords(kFiltered)},
                         {"ring", RingEvents()}});
}
