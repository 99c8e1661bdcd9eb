#pragma once

#include <atomic>
#include <cstdint>

#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Creates or opens the named segment, a file in the working directory, and maps `size` bytes of it. Returns
/// an error number; after success it is what the opening left in `errno`, which callers ignore. On failure
/// `*handle` is null.
int CreateMemorySegment(const wchar_t* name, int size, void** handle, void** view);

/// The one segment that holds the SysTrace buffer. Never zeroed: what an earlier process left stays.
class TraceMemory {
  public:
    TraceMemory(const TraceMemory&) = delete;
    TraceMemory& operator=(const TraceMemory&) = delete;
    ~TraceMemory();

    /// The instance, created on first use. Null if the segment is not available; the next call tries again.
    static TraceMemory* GetInstance();
    /// Unmaps the segment. Takes no lock: nobody else may be using it.
    static void Shutdown();

    unsigned char* buffer() const { return buffer_; }
    std::int32_t size() const { return size_; }
    /// The segment's mapping.
    void* handle() const { return handle_; }

  private:
    TraceMemory() = default;
    int AllocateMemory();
    static int AllocateTraceMemory(unsigned char** buffer, unsigned long* size, void** handle);

    static std::atomic<TraceMemory*> g_Instance;

    std::int32_t reserved1_ = 0;
    std::int32_t reserved2_ = 0;
    unsigned char* buffer_ = nullptr;
    std::int32_t size_ = 0;
    unsigned char* view_ = nullptr;
    std::int32_t viewSize_ = 0;
    void* handle_ = nullptr;
};

extern constinit StaticLockStruct g_TraceMemoryLock;

} // namespace Nima::Common::System::OS::Diagnostics
