#pragma once

#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/EventLogPayload.h>
#include <Diagnostics/Export.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Event logging from C++; see `EventLogApi.h` for the callbacks.
class NIMA_DIAGNOSTICS_API EventLog {
  public:
    /// Logs a wide event; the same as the plain `LogEvent`.
    static int LogEvent(EventTypes type, const wchar_t* source, long id, const wchar_t* file, int line,
                        const PayloadEntry* entries, long count);
    /// Logs an 8-bit event, which the Vantor callback receives as a flat record. A null source is empty; a
    /// source of more than 31 characters is cut. Returns 1 with `errno` 0 on success. Returns 0 with `errno`
    /// ENOMEM if memory runs out, and 0 with `errno` 0, or with what the callback left there, if the callback
    /// refused the event or none is installed.
    static int LogEvent(EventTypes type, const char* source, unsigned long id, EventLogPayload& payload);

    /// The steps of the above. This one builds the payload text, cut to `bufferChars` including its
    /// terminating zero. Returns the length of the whole text; 0 if there are no entries or a key is null.
    static int BuildStandardEventLogPayload(const PayloadEntry* entries, long count, wchar_t* buffer,
                                            int bufferChars);
    /// These call the callbacks. They return the callback's result, cut to 32 bits, or 19 if the event-log
    /// callback (for the second function, either callback) is not installed.
    static unsigned long DoEventLogCallback(EventTypes type, const wchar_t* source, unsigned long id,
                                            const wchar_t* file, int line, const wchar_t* payloadXml);
    static unsigned long DoVantorCallback(EventTypes type, unsigned long id, unsigned long size,
                                          unsigned char* record);
};

} // namespace Nima::Common::System::OS::Diagnostics
