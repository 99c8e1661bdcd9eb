/* A C host in a few lines: one device, one line, no tracer. */

#include <stdio.h>

#include <Diagnostics/TraceApi.h>

int main(void) {
    _TraceConfig config = {TRACE_DEVICE_ROLLING_LOG_FILE, L"LogFile", {{0}}};
    config.settings.rollingLogFile.maxFileSize = 1 << 20;
    config.settings.rollingLogFile.fileName = L"minimal.log";
    config.settings.rollingLogFile.append = true;

    TRACE_DEVICE_HANDLE log = NULL;
    const int result = TraceDeviceCreate(&config, &log);
    if (result != 0) {
        fprintf(stderr, "cannot open minimal.log: error %d\n", result);
        return 1;
    }
    char header[256];
    const int length = TraceFormatHeader(header, sizeof header, 5, 7, NULL);
    printf("a line of channel 7 begins %.*s\n", length, header);
    TraceDeviceWrite(log, "<INFO> <Minimal> ready", -1);
    TraceDeviceRelease(log);
    return 0;
}
