#pragma once

#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/EventLogPayload.h>
#include <Diagnostics/Export.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Event logging from C++; see `EventLogApi.h` for the callbacks.
class NIMA_DIAGNOSTICS_API EventLog {
  public:
    /// A wide event, as the plain `LogEvent`.
    static int LogEvent(EventTypes type, const wchar_t* source, long id, const wchar_t* file, int line,
                        const PayloadEntry* entries, long count);
    /// An 8-bit event, handed to the Vantor callback as a flat record; a null source is empty and one of more
    /// than 31 characters is cut. Returns 1 with `errno` 0; 0 with `errno` ENOMEM without memory, and 0 with
    /// `errno` 0, or what the callback left there, where the callback refused the event or none is installed.
    static int LogEvent(EventTypes type, const char* source, unsigned long id, EventLogPayload& payload);

    /// The steps of the above. Builds the payload text, cut to `bufferChars` with its terminating zero;
    /// returns the whole text's length, 0 for no entries or a null key.
    static int BuildStandardEventLogPayload(const PayloadEntry* entries, long count, wchar_t* buffer,
                                            int bufferChars);
    /// Call the callbacks; return their result, cut to 32 bits, or 19 where the event-log callback (or, for
    /// the second, either of the two) is not installed.
    static unsigned long DoEventLogCallback(EventTypes type, const wchar_t* source, unsigned long id,
                                            const wchar_t* file, int line, const wchar_t* payloadXml);
    static unsigned long DoVantorCallback(EventTypes type, unsigned long id, unsigned long size,
                                          unsigned char* record);
};

} // namespace Nima::Common::System::OS::Diagnostics
