/* The whole C interface of the text trace from a plain C program: it has to compile as C11 and to link. */

#include <stdio.h>
#include <string.h>

#include <Diagnostics/TraceApi.h>

static int failures = 0;

#define CHECK(condition)                                                     \
    do {                                                                     \
        if (!(condition)) {                                                  \
            fprintf(stderr, "line %d: %s is false\n", __LINE__, #condition); \
            ++failures;                                                      \
        }                                                                    \
    } while (0)

static void CheckLog(void) {
    char text[1024] = {0};
    FILE* file = fopen("c_api.log", "rb");
    CHECK(file != NULL);
    if (file != NULL) {
        CHECK(fread(text, 1, sizeof text - 1, file) > 0);
        fclose(file);
    }
    CHECK(strstr(text, "> <CAL> <Trace> Calibration freq=1000000, now=") != NULL);
    CHECK(strstr(text, "> from C\r\n") != NULL);
    CHECK(strstr(text, "> <FATAL> <Nima.Common.System.OS> Trace Test of FATAL level c\r\n") != NULL);
}

int main(void) {
    remove("c_api.log");
    _TraceConfig config = {TRACE_DEVICE_ROLLING_LOG_FILE, L"LogFile", {{0}}};
    config.settings.rollingLogFile.maxFileSize = 1 << 20;
    config.settings.rollingLogFile.fileName = L"c_api.log";
    config.settings.rollingLogFile.append = true;
    TRACE_DEVICE_HANDLE log = NULL;
    TRACE_DEVICE_HANDLE found = NULL;
    CHECK(TraceDeviceCreate(&config, &log) == 0);
    CHECK(GetTraceDeviceCount() == 1);
    CHECK(TraceDeviceWrite(log, "from C", -1) == 1);
    TraceSetEffectiveLevel(TRACE_THRESHOLD_FATAL);
    CHECK(TraceGetEffectiveLevel() == 110000);
    TraceTest(0, "c");
    CHECK(TraceDeviceFind(L"LogFile", &found) == 4);
    CHECK(found == log);
    CHECK(TraceDeviceRelease(found) == 3);
    CHECK(TraceDeviceReInit(&config, log) == 1);
    CHECK(TraceDeviceFlush(log) == 1);
    TraceDeviceFlushAll(false);
    int64_t counter = 0;
    GetRTSCDValue(&counter);
    CHECK(counter != 0);
    CheckLog();
    CHECK(TraceDeviceRelease(log) == 2);
    remove("c_api.log");
    return failures == 0 ? 0 : 1;
}
