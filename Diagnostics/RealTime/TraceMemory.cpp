#include "Diagnostics/RealTime/TraceMemory.h"

#include "catalogue/Files.h"
#include "platform/Cancellation.h"
#include "platform/Files.h"

#include <cerrno>
#include <memory>
#include <mutex>

#include <Diagnostics/Formats.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kOpenReadWrite = 2;
constexpr long kMapReadWrite = 3;

} // namespace

constinit std::atomic<TraceMemory*> TraceMemory::g_Instance{nullptr};

int CreateMemorySegment(const wchar_t* name, int size, void** handle, void** view) {
    *handle = _create_file_mapping_helper(name, kOpenReadWrite);
    const int openError = errno;
    if (*handle == nullptr) {
        return openError;
    }
    *view = _map_view_file_helper(*handle, kMapReadWrite, 0, 0, size);
    if (*view != nullptr) {
        return openError;
    }
    const int mapError = errno;
    _close_handle_helper(*handle);
    *handle = nullptr;
    errno = mapError; // callers that report the error read it there
    return mapError;
}

TraceMemory* TraceMemory::GetInstance() {
    TraceMemory* instance = g_Instance.load(std::memory_order_acquire);
    if (instance != nullptr) {
        return instance;
    }
    const std::lock_guard guard(g_TraceMemoryLock);
    instance = g_Instance.load(std::memory_order_relaxed);
    if (instance == nullptr) {
        std::unique_ptr<TraceMemory> fresh(new TraceMemory);
        if (fresh->AllocateMemory() != 0) {
            instance = fresh.release();
            g_Instance.store(instance, std::memory_order_release);
        }
    }
    return instance;
}

void TraceMemory::Shutdown() {
    delete g_Instance.exchange(nullptr);
}

TraceMemory::~TraceMemory() {
    if (handle_ != nullptr) {
        const CancellationDelay delay;
        reserved1_ = 0;
        buffer_ = nullptr;
        _unmap_view_of_file_helper(view_);
        _close_handle_helper(handle_);
    }
}

int TraceMemory::AllocateMemory() {
    if (view_ != nullptr) {
        return 1;
    }
    unsigned long size = 0;
    if (AllocateTraceMemory(&view_, &size, &handle_) == 0) {
        return 0;
    }
    viewSize_ = static_cast<std::int32_t>(size);
    reserved1_ = 0;
    reserved2_ = 0;
    buffer_ = view_;
    size_ = viewSize_;
    return 1;
}

int TraceMemory::AllocateTraceMemory(unsigned char** buffer, unsigned long* size, void** handle) {
    *handle = nullptr;
    void* view = nullptr;
    CreateMemorySegment(Catalogue::kSysTraceSegment.wide, SYSTRACE_SEGMENT_SIZE, handle, &view);
    if (*handle == nullptr) {
        return 0;
    }
    *buffer = static_cast<unsigned char*>(view);
    *size = SYSTRACE_SEGMENT_SIZE;
    return 1;
}

} // namespace Nima::Common::System::OS::Diagnostics
