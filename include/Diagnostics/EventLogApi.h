#pragma once

/// Events for the host. The library stores none: the host installs two callbacks, and each event goes to one
/// of them, one at a time, under a lock. A callback must therefore neither log an event nor install
/// callbacks: it would wait for itself for ever. An exception that it throws is caught and counts as success.
///
///     SetupEventLogCallbacks(OnEvent, OnVantorEvent);
///     const PayloadEntry entries[] = {{L"Tray", L"2"}};
///     LogEvent(EVENT_TYPE_ERROR, L"Scanner", 0x493801, L"scan.c", 77, entries, 1);
///
/// Any thread may call anything here; nothing may be called from a signal handler.

#include <Diagnostics/Export.h>
#include <Diagnostics/Types.h>

/// The kind of an event. The values are the host's and are passed through. The library knows only this one,
/// which affects the arguments that `LogEvent` accepts.
typedef int32_t EventTypes;
enum { EVENT_TYPE_ERROR = 1 };

/// A key and its value; read during the call only.
typedef struct PayloadEntry {
    const wchar_t* key;
    const wchar_t* value;
} PayloadEntry;

/// Receives a wide event. `payloadXml` is "<key>value</key>" for each pair, nothing escaped, cut to 1023
/// characters; null if there are no pairs. The texts are valid during the call only. Returns 0 for success,
/// otherwise an error number.
typedef unsigned long (*EventLogCallback)(EventTypes type, const wchar_t* source, unsigned long id,
                                          const wchar_t* file, int line, const wchar_t* payloadXml);

/// Receives an 8-bit event as a flat record (doc/event-record.md), valid during the call only. Returns as
/// above.
typedef unsigned long (*EventLogVantorCallback)(EventTypes type, unsigned long recordSize,
                                                unsigned char* record);

NIMA_EXTERN_C_BEGIN

/// Installs both callbacks, null for none. Waits while a callback is running. Vantor events are delivered
/// only while the event-log callback is installed too.
NIMA_DIAGNOSTICS_API void SetupEventLogCallbacks(EventLogCallback eventLog, EventLogVantorCallback vantor);

/// Logs a wide event with `count` pairs. If a key is null, the event has no payload; a null value is empty. A
/// source together with a type other than 1, an id other than 0 and a count of 0 or more is refused with
/// EINVAL. Returns 1 on success; 0 with the reason in `errno`: 19 if no callback is installed, otherwise what
/// the callback returned.
NIMA_DIAGNOSTICS_API int LogEvent(EventTypes type, const wchar_t* source, long id, const wchar_t* file,
                                  int line, const PayloadEntry* entries, long count);

NIMA_EXTERN_C_END
