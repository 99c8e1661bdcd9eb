#include "Diagnostics/EventLog/EventLogState.h"
#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "platform/Modules.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>

#include <Diagnostics/EventLog.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr unsigned long kNoCallback = 19;
constexpr int kPayloadChars = 1024;

constinit EventLogCallback g_EventLogCallback = nullptr;
constinit EventLogVantorCallback g_EventLogVantorCallback = nullptr;

/// Calls the host's code between two internal events and catches what it throws. The lock is held.
template <class Call>
unsigned long CallBracketed(EventTypes type, unsigned long id, Call call) {
    const int id32 = static_cast<int>(id);
    RecordInternalDiagnosticEvent(kEventLogCallbackCalled, type, id32, 0, 0);
    try {
        const auto result = static_cast<std::uint32_t>(call());
        RecordInternalDiagnosticEvent(kEventLogCallbackCalled, type, id32, 1, 0);
        return result;
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
        const int code = _get_exception_code_helper();
        RecordInternalDiagnosticEvent(kEventLogCallbackCalled, type, id32, 1, code);
        return static_cast<unsigned long>(code);
    }
}

/// A record begins with words, so it is allocated as words.
using RecordMemory = std::unique_ptr<std::uint32_t[]>;

VantorCallbackStruct* MakeRecord(RecordMemory& memory, int size, EventTypes type, const char* source,
                                 unsigned long id) {
    memory.reset(new (std::nothrow) std::uint32_t[static_cast<std::size_t>(size) / sizeof(std::uint32_t)]());
    void* const start = memory.get();
    auto* const record = static_cast<VantorCallbackStruct*>(start);
    if (record != nullptr) {
        record->totalSize = static_cast<std::uint32_t>(size);
        record->version = VANTOR_RECORD_VERSION;
        record->eventType = static_cast<std::uint32_t>(type);
        record->eventId = static_cast<std::uint32_t>(id);
        record->sourceSize = VANTOR_SOURCE_SIZE;
        if (source != nullptr) {
            std::memcpy(record->source, source, ::strnlen(source, VANTOR_SOURCE_SIZE - 1));
        }
    }
    return record;
}

} // namespace

int EventLog::BuildStandardEventLogPayload(const PayloadEntry* entries, long count, wchar_t* buffer,
                                           int bufferChars) {
    if (entries == nullptr || count <= 0) {
        return 0;
    }
    std::wostringstream out;
    for (long i = 0; i < count; ++i) {
        const PayloadEntry& entry = entries[i];
        if (entry.key == nullptr) {
            return 0;
        }
        out << L"<" << entry.key << L">" << (entry.value != nullptr ? entry.value : L"") << L"</" << entry.key
            << L">";
    }
    const std::wstring text = out.str();
    if (buffer != nullptr && bufferChars > 0) {
        const std::size_t kept = std::min(text.size(), static_cast<std::size_t>(bufferChars) - 1);
        std::wmemcpy(buffer, text.data(), kept);
        buffer[kept] = L'\0';
    }
    return static_cast<int>(text.size());
}

int EventLog::LogEvent(EventTypes type, const wchar_t* source, long id, const wchar_t* file, int line,
                       const PayloadEntry* entries, long count) {
    // Only this combination is refused: events of type 1, without a source, with id 0 or with a negative
    // count all pass.
    if (source != nullptr && type != EVENT_TYPE_ERROR && id != 0 && count >= 0) {
        errno = EINVAL;
        return 0;
    }
    wchar_t text[kPayloadChars] = {};
    int length = 0;
    try {
        length = BuildStandardEventLogPayload(entries, count, text, kPayloadChars);
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
        // Out of memory: use what there is of the text.
        length = static_cast<int>(::wcsnlen(text, kPayloadChars));
    }
    const unsigned long result = DoEventLogCallback(type, source, static_cast<std::uint32_t>(id), file, line,
                                                    length != 0 ? text : nullptr);
    errno = static_cast<int>(result);
    return result == 0 ? 1 : 0;
}

int EventLog::LogEvent(EventTypes type, const char* source, unsigned long id, EventLogPayload& payload) {
    const int size = payload.SerializeToCallback(nullptr);
    RecordMemory memory;
    VantorCallbackStruct* const record = size != 0 ? MakeRecord(memory, size, type, source, id) : nullptr;
    if (record == nullptr) {
        errno = ENOMEM;
        return 0;
    }
    payload.SerializeToCallback(record);
    void* const bytes = record;
    if (DoVantorCallback(type, id, static_cast<unsigned long>(size), static_cast<unsigned char*>(bytes)) !=
        0) {
        return 0;
    }
    errno = 0;
    return 1;
}

unsigned long EventLog::DoEventLogCallback(EventTypes type, const wchar_t* source, unsigned long id,
                                           const wchar_t* file, int line, const wchar_t* payloadXml) {
    const std::lock_guard guard(g_EventLogCallbackLock);
    if (g_EventLogCallback == nullptr) {
        return kNoCallback;
    }
    return CallBracketed(type, id,
                         [&] { return g_EventLogCallback(type, source, id, file, line, payloadXml); });
}

unsigned long EventLog::DoVantorCallback(EventTypes type, unsigned long id, unsigned long size,
                                         unsigned char* record) {
    const std::lock_guard guard(g_EventLogCallbackLock);
    // Hosts install both or none, so the event-log callback decides about Vantor events too.
    if (g_EventLogCallback == nullptr || g_EventLogVantorCallback == nullptr) {
        return kNoCallback;
    }
    return CallBracketed(type, id, [&] { return g_EventLogVantorCallback(type, size, record); });
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

void SetupEventLogCallbacks(EventLogCallback eventLog, EventLogVantorCallback vantor) {
    const std::lock_guard guard(g_EventLogCallbackLock);
    g_EventLogCallback = eventLog;
    g_EventLogVantorCallback = vantor;
}

int LogEvent(EventTypes type, const wchar_t* source, long id, const wchar_t* file, int line,
             const PayloadEntry* entries, long count) {
    return EventLog::LogEvent(type, source, id, file, line, entries, count);
}
