/// LTTng-UST. `bench/compare.py` sets up the session that makes its events cost what a user's would.

#include "competitors/harness.h"

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "competitors/lttng_events.h"

using bench::Job;

namespace {

template <class Call>
Job Calls(Call call) {
    return {nullptr,
            [=](int, int calls) {
                for (int i = 0; i < calls; ++i) {
                    call(i);
                }
            },
            nullptr};
}

} // namespace

int main() {
    return bench::Serve({
        {"record-0", Calls([](int) { lttng_ust_tracepoint(bench, plain); })},
        {"record-3",
         Calls([](int i) { lttng_ust_tracepoint(bench, three, static_cast<unsigned>(i), 2, 3); })},
        {"record-0-filtered", Calls([](int) { lttng_ust_tracepoint(bench, plain_off); })},
        {"record-3-filtered",
         Calls([](int i) { lttng_ust_tracepoint(bench, three_off, static_cast<unsigned>(i), 2, 3); })},
    });
}
