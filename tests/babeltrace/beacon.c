/* A host that LTTng traces, too: an event of LTTng's, a line of a text log, and another event. */

#include <unistd.h>

#include <Diagnostics/TraceApi.h>

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "tests/babeltrace/beacon_events.h"

int main(void) {
    lttng_ust_tracepoint(beacon, at, 1);
    /* The log's date is cut: its times are up to a second before the true ones. */
    sleep(2);
    _TraceConfig config = {TRACE_DEVICE_ROLLING_LOG_FILE, L"LogFile", {{0}}};
    config.settings.rollingLogFile.maxFileSize = 1 << 20;
    config.settings.rollingLogFile.fileName = L"device.log";
    TRACE_DEVICE_HANDLE log = NULL;
    if (TraceDeviceCreate(&config, &log) != 0) {
        return 1;
    }
    TraceDeviceWrite(log, "<INFO> <Beacon> between", -1);
    TraceDeviceRelease(log);
    lttng_ust_tracepoint(beacon, at, 2);
    return 0;
}
