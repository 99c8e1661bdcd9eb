/* The C interface from a plain C program: every header compiles as C11, and callbacks, structures and macros
 * do their work there. That every function can be linked by its C name, the list of exports tells. */

#include <stdio.h>
#include <string.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TestHooksApi.h>
#include <Diagnostics/TraceApi.h>

static int failures = 0;

#define CHECK(condition)                                                     \
    do {                                                                     \
        if (!(condition)) {                                                  \
            fprintf(stderr, "line %d: %s is false\n", __LINE__, #condition); \
            ++failures;                                                      \
        }                                                                    \
    } while (0)

static int Count(const char* data, int length, int* written, void* context) {
    (void)data;
    *(int*)context += length;
    *written = length;
    return 1;
}

static void CheckBinaryTrace(void) {
    static uint32_t block[8256];
    int dumped = 0;
    SetRTTraceConfig((unsigned char*)block, sizeof block);
    CHECK(SysTraceConfigure() == 1);
    RTTrace(SYSTRACE_ID(1, 0, 1));
    RTTrace_1(SYSTRACE_ID(1, 0, 2), 1);
    RTTrace_2(SYSTRACE_ID(1, 0, 3), 1, 2);
    RTTrace_3(SYSTRACE_ID(1, 0, 4), 1, 2, 3);
    RTTrace_4(SYSTRACE_ID(1, 0, 5), 1, 2, 3, 4);
    RTTrace_5(SYSTRACE_ID(1, 0, 6), 1, 2, 3, 4, 5);
    CHECK(((SysTraceHeader*)block)->writeIndex == 2 + 3 + 4 + 5 + 6 + 7 - 1);
    CHECK(DumpSysTraceEx(Count, &dumped) == 19);
    CHECK(dumped == 256 + 256 + (27 + 2) * 8);
    CHECK(ClearSysTrace() == 19);

    TRACE_RING_HANDLE ring = NULL;
    RingBufferData record = {0};
    unsigned long copied = 0;
    CHECK(GetTraceRingBuffer(RING_PANEL, &ring) == 0);
    CHECK(WriteEventToRingBuffer(ring, 0, 7, 1, 2, 3, 4) == 0);
    CHECK(GetTraceData(ring, (unsigned char*)&record, sizeof record, &copied) == 0);
    CHECK(copied == sizeof record && record.words[0] == 7 && record.words[4] == 4);
    CHECK(EmptyRingBuffer(ring) == 0);
    remove("System Ring Buffers");
}

static unsigned long OnEvent(EventTypes type, const wchar_t* source, unsigned long id, const wchar_t* file,
                             int line, const wchar_t* payload) {
    CHECK(type == 1 && id == 2 && line == 3);
    CHECK(wcscmp(source, L"source") == 0 && wcscmp(file, L"file.c") == 0);
    CHECK(wcscmp(payload, L"<key>value</key>") == 0);
    return 0;
}

/* NOLINTNEXTLINE(readability-non-const-parameter): the callback's type */
static unsigned long OnVantorEvent(EventTypes type, unsigned long size, unsigned char* record) {
    const void* start = record;
    const VantorCallbackStruct* head = start;
    const void* behind = head + 1;
    const VantorEntry* entry = behind;
    CHECK(type == 4 && size == 56 + 2 * 256 && head->eventId == 5);
    CHECK(strcmp(entry->text, "Context,hashed") == 0);
    return 0;
}

static void CheckEvents(void) {
    const PayloadEntry entries[] = {{L"key", L"value"}};
    CHECK(LogEvent(1, L"source", 2, L"file.c", 3, entries, 1) == 0);
    SetupEventLogCallbacks(OnEvent, OnVantorEvent);
    CHECK(LogEvent(1, L"source", 2, L"file.c", 3, entries, 1) == 1);
    CHECK(XXX_TestNativeEventVantorLogFeature(4, 5, L"source", L"hashed", L"other") == 1);
    SetupEventLogCallbacks(NULL, NULL);
}

static void CheckLog(void) {
    _TraceConfig config = {TRACE_DEVICE_ROLLING_LOG_FILE, L"LogFile", {{0}}};
    config.settings.rollingLogFile.maxFileSize = 1 << 20;
    config.settings.rollingLogFile.fileName = L"c_api.log";
    config.settings.rollingLogFile.append = true;
    TRACE_DEVICE_HANDLE log = NULL;
    TRACE_DEVICE_HANDLE found = NULL;
    CHECK(TraceDeviceCreate(&config, &log) == 0);
    TraceSetEffectiveLevel(TRACE_THRESHOLD_FATAL);
    CHECK(TraceGetEffectiveLevel() == 110000);
    CHECK(TraceDeviceFind(L"LogFile", &found) == 3);
    CHECK(found == log);
    CHECK(TraceDeviceWrite(found, "from C", -1) == 1);
    CHECK(TraceDeviceRelease(found) == 2);
    CHECK(TraceDeviceRelease(log) == 0);
    remove("c_api.log");
}

int main(void) {
    CheckEvents();
    CheckBinaryTrace();
    CheckLog();
    return failures == 0 ? 0 : 1;
}
