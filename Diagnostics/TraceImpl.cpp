#include "Diagnostics/TraceImpl.h"

#include "Diagnostics/Guarded.h"
#include "Diagnostics/MessageFormat.h"
#include "Diagnostics/TraceFormat.h"
#include "Diagnostics/TraceLevel.h"
#include "platform/Cancellation.h"
#include "platform/Handles.h"
#include "platform/PatientLock.h"
#include "platform/Pause.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kBufferSize = 1024;
/// What a buffer holds beside its terminating zero.
constexpr int kMaxLine = kBufferSize - 1;
constexpr int kFormatterFailed = -1;

/// Leaves a set that has been entered.
class SetExit {
  public:
    explicit SetExit(const TraceSet& set) : set_(set) {}
    SetExit(const SetExit&) = delete;
    SetExit& operator=(const SetExit&) = delete;
    ~SetExit() { set_.Leave(); }

  private:
    const TraceSet& set_;
};

char* CopyOf(const char* text) {
    char* copy = ::strdup(text != nullptr ? text : "");
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

/// As `TraceDeviceWrite` does with a device and a text that are there.
void HandOver(ITraceDevice* device, char* text, int length) {
    device->WriteData(reinterpret_cast<unsigned char*>(text), length);
}

ITraceDevice* FindDefaultLog() {
    ITraceDevice* device = nullptr;
    TraceDeviceFind(kDefaultLogName, &device);
    return device;
}

} // namespace

TraceSet::TraceSet() {
    _create_critical_section_helper(&lock_);
}

TraceSet::~TraceSet() {
    Enter();
    tracers_.clear();
    Leave();
    _delete_critical_section_helper(&lock_);
}

void TraceSet::Enter() const {
    _enter_critical_section_helper(lock_);
}

bool TraceSet::TryEnter() const {
    return TryEnterCriticalSection(lock_);
}

void TraceSet::Leave() const {
    _leave_critical_section_helper(lock_);
}

void InitTracers() {
    const StaticSlot<TraceSet>::Use set(traceSet);
    if (!set) {
        return;
    }
    set->Enter();
    const SetExit exit(*set);
    for (NimaTrace* tracer : set->tracers()) {
        tracer->Initialize();
    }
}

NimaTrace::NimaTrace(const char* name) {
    auto cell = std::make_unique<void*>(nullptr);
    auto buffer = std::make_unique<char[]>(kBufferSize);
    name_ = CopyOf(name);
    _create_critical_section_helper(cell.get());
    lock_ = cell.release();
    buffer_ = buffer.release();
}

NimaTrace::~NimaTrace() {
    const CancellationDelay delay;
    if (initialized_.load() == 1) {
        const StaticSlot<TraceSet>::Use set(traceSet);
        if (set) {
            set->Enter();
            const SetExit exit(*set);
            set->Remove(this);
        }
    }
    _delete_critical_section_helper(lock_);
    delete lock_;
    if (ITraceDevice* device = device_.exchange(nullptr)) {
        TraceDeviceFlush(device);
        TraceDeviceRelease(device);
    }
    std::free(name_);
    delete[] buffer_;
}

void NimaTrace::lock() {
    _enter_critical_section_helper(*lock_);
}

void NimaTrace::unlock() {
    _leave_critical_section_helper(*lock_);
}

// Takes over the reference. A host that asks `Initialized` without the lock may have been overtaken by
// another thread: whichever device is replaced gives its reference back.
void NimaTrace::Bind(ITraceDevice* device) {
    if (ITraceDevice* replaced = device_.exchange(device)) {
        TraceDeviceRelease(replaced);
    }
}

// The first use joins the set and binds, all inside the set: a log created meanwhile either is found here or
// finds the tracer there. Writers come here before they take the tracer's lock, so re-binding, which holds
// the set and waits for each tracer, always gets on.
void NimaTrace::JoinSet(bool mayHoldLock) {
    if (HasJoined()) {
        return;
    }
    const StaticSlot<TraceSet>::Use set(traceSet);
    if (!set) {
        Bind(FindDefaultLog()); // the library is coming or going; nobody will bind this tracer anew
        return;
    }
    if (mayHoldLock) {
        // Another thread's first use may put the tracer into the set meanwhile, and whoever is inside may
        // then be waiting for the very lock that the caller holds.
        while (!set->TryEnter()) {
            BriefPause();
            if (HasJoined()) {
                return;
            }
        }
    } else {
        set->Enter();
    }
    const SetExit exit(*set);
    if (initialized_.load(std::memory_order_relaxed) == 0) {
        Bind(FindDefaultLog());
        set->Insert(this);
        initialized_.store(1, std::memory_order_release);
    }
}

bool NimaTrace::Initialized() {
    GuardedCall([this] { JoinSet(true); });
    return IsBound();
}

void NimaTrace::Initialize() {
    GuardedCall([this] {
        JoinSet(false);
        const std::lock_guard guard(*this);
        Bind(nullptr);
        Bind(FindDefaultLog());
    });
}

void NimaTrace::Flush(bool final) {
    GuardedCall([=, this] {
        JoinSet(false);
        const std::lock_guard guard(*this);
        if (IsBound()) {
            device_.load()->Flush(final);
        }
    });
}

void NimaTrace::_WriteImpl(int level, const char* format, va_list arguments) {
    if (format == nullptr) {
        return;
    }
    const int prefixLength = ComposePrefix(buffer_, kBufferSize, level, name_);
    const int stored = std::min(prefixLength, kMaxLine);
    char* const message = buffer_ + stored;
    const auto room = static_cast<std::size_t>(kBufferSize - stored);
    va_list again;
    va_copy(again, arguments);
    const int messageLength = FormatMessage(message, room, format, arguments);
    if (messageLength > 0) {
        const long long whole = static_cast<long long>(prefixLength) + messageLength;
        HandOver(device_.load(std::memory_order_relaxed), buffer_,
                 static_cast<int>(std::min<long long>(whole, kMaxLine)));
    } else if (messageLength == kFormatterFailed) {
        // The whole buffer goes out; what the formatter did not get to is zero, never an earlier line.
        std::memset(message, 0, room);
        std::vsnprintf(message, room, format, again);
        HandOver(device_.load(std::memory_order_relaxed), buffer_, kBufferSize);
    }
    va_end(again);
}

void NimaTrace::_WriteImplNoFmt(int level, const char* tag, const unsigned char* data, int length) {
    ITraceDevice* const device = device_.load(std::memory_order_relaxed);
    if (device == nullptr || data == nullptr || length <= 0) {
        return;
    }
    const auto failedIfCut = [](int result, int room) { return result >= room ? kFormatterFailed : result; };
    int headerLength = failedIfCut(TraceFormatHeader(buffer_, kBufferSize, level, 0, name_), kBufferSize);
    if (tag != nullptr && headerLength > 0) {
        const int room = kBufferSize - headerLength;
        const auto size = static_cast<std::size_t>(room);
        const int appended =
            failedIfCut(_snprintf_s_helper(buffer_ + headerLength, size, size, "%s::", tag), room);
        headerLength = appended > 0 ? headerLength + appended : appended;
    }
    if (headerLength > 0) {
        device->WritePreFormattedMessage(buffer_, headerLength, const_cast<unsigned char*>(data), length);
    } else if (headerLength == kFormatterFailed) {
        device->WriteData(reinterpret_cast<unsigned char*>(buffer_), kBufferSize);
    }
}

void NimaTrace::WriteFormatted(int level, const char* format, va_list arguments) {
    GuardedCall([&] {
        if (!HasJoined()) {
            JoinSet(false);
        }
        const PatientGuard guard(*AsCriticalSection(*lock_));
        if (IsBound()) {
            _WriteImpl(level, format, arguments);
        }
    });
}

void NimaTrace::WriteRaw(int level, const char* tag, const unsigned char* data, int length) {
    GuardedCall([=, this] {
        if (!HasJoined()) {
            JoinSet(false);
        }
        const PatientGuard guard(*AsCriticalSection(*lock_));
        if (IsBound()) {
            _WriteImplNoFmt(level, tag, data, length);
        }
    });
}

// The four writers of a level. The threshold comes before everything else: a line that is filtered out
// touches neither lock nor arguments.
#define NIMA_LEVEL_WRITERS(Level, index, threshold)                                        \
    void NimaTrace::Write##Level##V(const char* format, ...) {                             \
        if (IsLevelWritten(threshold)) {                                                   \
            va_list arguments;                                                             \
            va_start(arguments, format);                                                   \
            WriteFormatted(index, format, arguments);                                      \
            va_end(arguments);                                                             \
        }                                                                                  \
    }                                                                                      \
    void NimaTrace::Write##Level(const char* format, va_list arguments) {                  \
        if (IsLevelWritten(threshold)) {                                                   \
            WriteFormatted(index, format, arguments);                                      \
        }                                                                                  \
    }                                                                                      \
    void NimaTrace::Write##Level(const unsigned char* data, int length) {                  \
        if (IsLevelWritten(threshold)) {                                                   \
            WriteRaw(index, nullptr, data, length);                                        \
        }                                                                                  \
    }                                                                                      \
    void NimaTrace::Write##Level(const char* tag, const unsigned char* data, int length) { \
        if (IsLevelWritten(threshold)) {                                                   \
            WriteRaw(index, tag, data, length);                                            \
        }                                                                                  \
    }

NIMA_LEVEL_WRITERS(Fatal, kLevelFatal, TRACE_THRESHOLD_FATAL)
NIMA_LEVEL_WRITERS(Error, kLevelError, TRACE_THRESHOLD_ERROR)
NIMA_LEVEL_WRITERS(Warn, kLevelWarn, TRACE_THRESHOLD_WARN)
NIMA_LEVEL_WRITERS(Perf, kLevelPerf, TRACE_THRESHOLD_PERF)
NIMA_LEVEL_WRITERS(Info, kLevelInfo, TRACE_THRESHOLD_INFO)
NIMA_LEVEL_WRITERS(Debug, kLevelDebug, TRACE_THRESHOLD_DEBUG)
#undef NIMA_LEVEL_WRITERS

} // namespace Nima::Common::System::OS::Diagnostics
