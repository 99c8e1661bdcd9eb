#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include <Diagnostics/Export.h>
#include <Diagnostics/TraceDevice.h>
#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

class TraceSet;
class TracerLock;

/// A tracer: a component writes its text lines through it.
///
///     static NimaTrace trace("Scanner");
///     trace.WriteWarnV("jam at %d", 3);     // ... <WARN> <Scanner> jam at 3
///
/// With its first line a tracer binds itself to the device registered as "LogFile", and later to every new
/// device created under that name. Until there is one, lines are dropped. A line is written while the
/// process-wide effective level is at most the level's threshold (`TraceSetEffectiveLevel`). A line that is
/// filtered out costs one load and one comparison.
///
/// Any thread may write through any tracer, but not from a signal handler. Writers return nothing and report
/// nothing.
///
/// Threads may keep writing through a static tracer while the process exits; once it has been destroyed, its
/// lines are dropped. The owner of any other tracer must not free its memory while anybody still uses it.
///
/// A forked child may write through every tracer, whatever the parent's threads were doing, even if it was
/// forked under a tracer's lock.
///
/// Every level has the same four writers:
/// - `Write<Level>V(format, ...)`: a printf-style line;
/// - `Write<Level>(format, arguments)`: the same with an argument list;
/// - `Write<Level>(data, length)`: raw bytes after a header;
/// - `Write<Level>(tag, data, length)`: raw bytes after a header and "tag::".
///
/// A formatted line is cut to 1023 characters, prefix included. If the C library fails to format a line (a
/// wide argument that does not convert), 1024 bytes are written, with zeros after what was formatted. A null
/// format, an empty message, null data or a length of 0 or less writes nothing. If a tag does not fit, the
/// cut header is written and the data is dropped.
class NIMA_DIAGNOSTICS_API NimaTrace {
  public:
    /// `name` is the component's name and is copied; null counts as empty.
    explicit NimaTrace(const char* name);
    NimaTrace(const NimaTrace&) = delete;
    NimaTrace& operator=(const NimaTrace&) = delete;
    /// Flushes the bound device and releases the reference to it. Waits up to 100 ms for a writer that holds
    /// the lock; if the writer takes longer, what it uses is freed only after it has finished. The thread
    /// that holds the tracer's lock may destroy the tracer.
    virtual ~NimaTrace();

    /// Take and release the tracer's lock, which every writer holds while it writes. The lock is not
    /// recursive: its holder must not write through this tracer and may only call `Initialized`.
    void lock();
    void unlock();

    /// Binds the tracer on the first call and returns whether a device is bound. May be called with or
    /// without the tracer's lock.
    bool Initialized();
    /// Releases the bound device and binds to the device now registered as "LogFile", if any.
    void Initialize();
    /// Flushes the bound device and passes `final` on to it.
    void Flush(bool final);
    void Flush() { Flush(false); }

    void WriteFatalV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WriteFatal(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WriteFatal(const unsigned char* data, int length);
    void WriteFatal(const char* tag, const unsigned char* data, int length);

    void WriteErrorV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WriteError(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WriteError(const unsigned char* data, int length);
    void WriteError(const char* tag, const unsigned char* data, int length);

    void WriteWarnV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WriteWarn(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WriteWarn(const unsigned char* data, int length);
    void WriteWarn(const char* tag, const unsigned char* data, int length);

    void WritePerfV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WritePerf(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WritePerf(const unsigned char* data, int length);
    void WritePerf(const char* tag, const unsigned char* data, int length);

    void WriteInfoV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WriteInfo(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WriteInfo(const unsigned char* data, int length);
    void WriteInfo(const char* tag, const unsigned char* data, int length);

    void WriteDebugV(const char* format, ...) NIMA_PRINTF_FORMAT(2, 3);
    void WriteDebug(const char* format, va_list arguments) NIMA_PRINTF_FORMAT(2, 0);
    void WriteDebug(const unsigned char* data, int length);
    void WriteDebug(const char* tag, const unsigned char* data, int length);

  private:
    friend class TraceSet;
    enum : std::int32_t { kUnused, kJoined, kGone };

    void WriteFormatted(int level, const char* format, va_list arguments) NIMA_PRINTF_FORMAT(3, 0);
    void WriteRaw(int level, const char* tag, const unsigned char* data, int length);
    void _WriteImpl(ITraceDevice* device, int level, const char* format, va_list arguments)
        NIMA_PRINTF_FORMAT(4, 0);
    void _WriteImplNoFmt(ITraceDevice* device, int level, const char* tag, const unsigned char* data,
                         int length);
    void JoinSet();
    void LeaveSet();
    bool TakeForGood();
    void BindAnew();
    bool HasJoined() const { return initialized_.load(std::memory_order_acquire) != kUnused; }
    ITraceDevice* BoundDevice() const { return device_.load(std::memory_order_relaxed); }
    void Bind(ITraceDevice* device);

    std::atomic<ITraceDevice*> device_{nullptr}; ///< null while unbound; carries one reference
    TracerLock* lock_ = nullptr;                 ///< outlives the tracer
    std::atomic<std::int32_t> initialized_{kUnused};
    char* name_ = nullptr;
    char* buffer_ = nullptr; ///< 1024 bytes, the line being written; guarded by the lock
    [[maybe_unused]] std::int32_t reserved_ = 0;
};

} // namespace Nima::Common::System::OS::Diagnostics
