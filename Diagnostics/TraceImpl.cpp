#include "Diagnostics/TraceImpl.h"

#include "Diagnostics/Guarded.h"
#include "Diagnostics/MessageFormat.h"
#include "Diagnostics/TraceFormat.h"
#include "Diagnostics/TraceLevel.h"
#include "Diagnostics/TracerLock.h"
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
#include <utility>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kBufferSize = 1024;
/// What a buffer holds besides its terminating zero.
constexpr int kMaxLine = kBufferSize - 1;
constexpr int kFormatterFailed = -1;

/// Leaves a set that was entered.
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

/// Does what `TraceDeviceWrite` does, for a device and a text that are not null.
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

void TraceSet::Leave() const {
    _leave_critical_section_helper(lock_);
}

/// Releases the tracer that was taken, however the scope is left.
class TraceSet::Hand {
  public:
    Hand(TraceSet& set, TracerLock& lock) : set_(set), lock_(lock) {}
    Hand(const Hand&) = delete;
    Hand& operator=(const Hand&) = delete;
    ~Hand() {
        lock_.unlock(); // from here on the tracer may be gone
        set_.inHand_.store(nullptr);
    }

  private:
    TraceSet& set_;
    TracerLock& lock_;
};

// Takes the tracer after the given one, and its lock. Inside the set it only tries for a lock: between two
// tries, a tracer that is being destroyed can leave the set.
bool TraceSet::TakeNext(NimaTrace*& tracer) {
    for (;;) {
        {
            Enter();
            const SetExit exit(*this);
            const auto next = tracers_.upper_bound(tracer);
            if (next == tracers_.end() || !traceSet.IsLive()) {
                return false;
            }
            if ((*next)->lock_->try_lock()) {
                tracer = *next;
                inHand_.store(tracer);
                return true;
            }
        }
        BriefPause();
    }
}

void TraceSet::RebindAll() {
    const std::lock_guard guard(rebinding_);
    NimaTrace* tracer = nullptr;
    while (TakeNext(tracer)) {
        const Hand hand(*this, *tracer->lock_);
        GuardedCall([=] { tracer->BindAnew(); });
    }
}

void InitTracers() {
    const StaticSlot<TraceSet>::Use set(traceSet);
    if (set) {
        set->RebindAll();
    }
}

NimaTrace::NimaTrace(const char* name) {
    auto buffer = std::make_unique<char[]>(kBufferSize);
    std::unique_ptr<char, decltype(&std::free)> copy(CopyOf(name), &std::free);
    lock_ = TracerLock::Take();
    name_ = copy.release();
    buffer_ = buffer.release();
}

// A static tracer is destroyed while other threads still write through it. Unbinding it first makes new
// writers drop their lines; a writer that is already inside needs what it found there until it leaves. The
// destructor waits a while for that. If a writer hangs inside (or never returns because the exit came from
// its signal handler), what the tracer had is released later. The pointer to the class's table is not wiped
// either, as a sanitizer would do to catch late callers: here they are expected.
__attribute__((no_sanitize("vptr"))) NimaTrace::~NimaTrace() {
    const CancellationDelay delay;
    LeaveSet();
    const TracerBelongings belongings{device_.exchange(nullptr), name_, buffer_};
    if (TakeForGood()) {
        lock_->unlock();
        belongings.Release();
        TracerLock::GiveBack(lock_);
    } else {
        TracerLock::GiveBackLater(lock_, belongings);
    }
    TracerLock::Sweep();
}

// After this, no late caller puts the tracer back into the set or binds it. While the set itself is ending, a
// thread that met this tracer there may still be inside.
void NimaTrace::LeaveSet() {
    {
        const StaticSlot<TraceSet>::Use set(traceSet);
        if (set) {
            set->Enter();
            const SetExit exit(*set);
            initialized_.store(kGone);
            set->Remove(this);
            return;
        }
    }
    initialized_.store(kGone);
    traceSet.AwaitUsers();
}

// False if the lock is not available in time. A rebinding in progress does not count: it ends by itself.
bool NimaTrace::TakeForGood() {
    constexpr int kPatience = 100;
    if (lock_->IsMine()) {
        return true;
    }
    const Deadline deadline(kPatience);
    while (!lock_->try_lock()) {
        if (deadline.HasPassed()) {
            const StaticSlot<TraceSet>::Use set(traceSet);
            if (!set || !set->IsRebinding(this)) {
                return false;
            }
        }
        BriefPause();
    }
    return true;
}

void NimaTrace::lock() {
    lock_->lock();
}

void NimaTrace::unlock() {
    lock_->unlock();
}

// Takes over the reference. A host that calls `Initialized` without the lock may have been overtaken by
// another thread: the reference of whichever device is replaced is released.
void NimaTrace::Bind(ITraceDevice* device) {
    if (ITraceDevice* replaced = device_.exchange(device)) {
        TraceDeviceRelease(replaced);
    }
}

// The first use joins the set and binds, all inside the set: a log created at the same time either is found
// here or finds the tracer in the set. Once the set has gone, first uses do nothing.
void NimaTrace::JoinSet() {
    if (HasJoined()) {
        return;
    }
    const StaticSlot<TraceSet>::Use set(traceSet);
    if (!set) {
        return;
    }
    set->Enter();
    const SetExit exit(*set);
    if (initialized_.load(std::memory_order_relaxed) == kUnused) {
        Bind(FindDefaultLog());
        set->Insert(this);
        initialized_.store(kJoined, std::memory_order_release);
    }
}

bool NimaTrace::Initialized() {
    GuardedCall([this] { JoinSet(); });
    return BoundDevice() != nullptr;
}

// The caller holds the lock. A tracer that is destroyed at the same time marks itself before it unbinds:
// either this sees the mark, or the tracer finds what was bound here.
void NimaTrace::BindAnew() {
    Bind(nullptr);
    if (initialized_.load() != kGone) {
        Bind(FindDefaultLog());
    }
    if (initialized_.load() == kGone) {
        Bind(nullptr);
    }
}

void NimaTrace::Initialize() {
    GuardedCall([this] {
        JoinSet();
        const std::lock_guard guard(*lock_);
        BindAnew();
    });
}

void NimaTrace::Flush(bool final) {
    GuardedCall([=, this] {
        JoinSet();
        const std::lock_guard guard(lock_->ForWriter());
        if (ITraceDevice* const device = BoundDevice()) {
            device->Flush(final);
        }
    });
}

void NimaTrace::_WriteImpl(ITraceDevice* device, int level, const char* format, va_list arguments) {
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
        HandOver(device, buffer_, static_cast<int>(std::min<long long>(whole, kMaxLine)));
    } else if (messageLength == kFormatterFailed) {
        // The whole buffer is written; what the formatter did not reach is zero, never part of an earlier
        // line.
        std::memset(message, 0, room);
        std::vsnprintf(message, room, format, again);
        HandOver(device, buffer_, kBufferSize);
    }
    va_end(again);
}

void NimaTrace::_WriteImplNoFmt(ITraceDevice* device, int level, const char* tag, const unsigned char* data,
                                int length) {
    if (data == nullptr || length <= 0) {
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
            JoinSet();
        }
        const PatientGuard guard(lock_->ForWriter());
        if (ITraceDevice* const device = BoundDevice()) {
            _WriteImpl(device, level, format, arguments);
        }
    });
}

void NimaTrace::WriteRaw(int level, const char* tag, const unsigned char* data, int length) {
    GuardedCall([=, this] {
        if (!HasJoined()) {
            JoinSet();
        }
        const PatientGuard guard(lock_->ForWriter());
        if (ITraceDevice* const device = BoundDevice()) {
            _WriteImplNoFmt(device, level, tag, data, length);
        }
    });
}

// The four writers of a level. The threshold comes first: a line that is filtered out touches neither lock
// nor arguments.
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
