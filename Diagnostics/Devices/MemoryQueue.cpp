#include "Diagnostics/Files/GatheredWrites.h"
#include "Diagnostics/Files/OutputFile.h"
#include "platform/Clock.h"
#include "platform/Files.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include <fcntl.h>

#include <Diagnostics/MemoryQueue.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr std::size_t kMinBufferSize = 512;
/// Enough for header and text of most records.
constexpr std::size_t kUsualRecord = 256;

constexpr std::int32_t kKindRaw = 0;
constexpr std::int32_t kKindText = 1;

constexpr std::int32_t kModeFlushOnClose = 1;
constexpr std::int32_t kModeFlushWhenFull = 2;

/// The start of every record in the queue. A raw record has only the first two fields.
struct RecordHeader {
    std::int32_t kind;
    std::int32_t size; ///< of the whole record, in bytes
    _SYSTEMTIME time;
    std::uint32_t threadId;
    std::int32_t payloadLength;
};
static_assert(sizeof(RecordHeader) == 32 && offsetof(RecordHeader, time) == 8 &&
              offsetof(RecordHeader, threadId) == 24);

constexpr std::size_t kRawHeaderSize = offsetof(RecordHeader, time);
constexpr std::size_t kTextHeaderSize = sizeof(RecordHeader);

} // namespace

CMemoryQueue::CMemoryQueue() = default;

CMemoryQueue::~CMemoryQueue() = default;

// A full queue reuses its oldest record, node and buffer, for the new one, so that tracing into a full queue
// allocates nothing for lines that fit.
CMemoryQueue::Queue CMemoryQueue::TakeRecordFor(std::size_t size) {
    Queue taken;
    if (!queue_.empty() &&
        std::cmp_greater_equal(queue_.size(), queueDepth_.load(std::memory_order_relaxed))) {
        taken.splice(taken.begin(), queue_, queue_.begin());
    } else {
        taken.emplace_back();
    }
    Record& record = taken.front();
    if (record.capacity < size) {
        record.bytes.reset();
        record.capacity = std::max(size, kMinBufferSize);
        record.bytes = std::make_unique<unsigned char[]>(record.capacity);
    }
    return taken;
}

void CMemoryQueue::Append(Queue& record) {
    const std::int32_t depth = queueDepth_.load(std::memory_order_relaxed);
    if (std::cmp_greater_equal(queue_.size(), depth)) {
        if ((mode_ & kModeFlushWhenFull) != 0) {
            FlushLocked();
        } else if (!queue_.empty()) {
            queue_.pop_front();
        }
    }
    if (depth > 0) {
        queue_.splice(queue_.end(), record);
    }
}

void CMemoryQueue::WriteData(unsigned char* text, int length) {
    if (text == nullptr || length <= 0) {
        return;
    }
    const std::lock_guard guard(lock_);
    RecordHeader header{};
    header.kind = kKindText;
    header.size = static_cast<std::int32_t>(static_cast<std::uint32_t>(length) + kTextHeaderSize);
    header.threadId = CurrentThreadId();
    header.payloadLength = length;
    _get_local_time_helper(&header.time);
    Queue record = TakeRecordFor(kTextHeaderSize + static_cast<std::size_t>(length));
    unsigned char* bytes = record.front().bytes.get();
    std::memcpy(bytes, &header, kTextHeaderSize);
    std::memcpy(bytes + kTextHeaderSize, text, static_cast<std::size_t>(length));
    Append(record);
}

void CMemoryQueue::WriteDataRaw(unsigned char* data, int length) {
    if (data == nullptr || length <= 0) {
        return;
    }
    const std::lock_guard guard(lock_);
    const std::int32_t head[2] = {
        kKindRaw, static_cast<std::int32_t>(static_cast<std::uint32_t>(length) + kRawHeaderSize)};
    Queue record = TakeRecordFor(kRawHeaderSize + static_cast<std::size_t>(length));
    unsigned char* bytes = record.front().bytes.get();
    std::memcpy(bytes, head, kRawHeaderSize);
    std::memcpy(bytes + kRawHeaderSize, data, static_cast<std::size_t>(length));
    Append(record);
}

void CMemoryQueue::WritePreFormattedMessage(char* /*header*/, int /*headerLength*/, unsigned char* /*data*/,
                                            int /*dataLength*/) {}

void CMemoryQueue::AddRecord(GatheredWrites& output, const Record& record) {
    RecordHeader header{};
    const unsigned char* bytes = record.bytes.get();
    std::memcpy(&header, bytes, kRawHeaderSize);
    if (header.kind == kKindRaw) {
        output.Add(bytes + kRawHeaderSize, static_cast<std::size_t>(header.size) - kRawHeaderSize);
        return;
    }
    std::memcpy(&header, bytes, kTextHeaderSize);
    const int headerLength = WriteHeader(header.time, static_cast<long>(header.threadId));
    output.Add(headerBuffer_, static_cast<std::size_t>(headerLength));
    output.Add(bytes + kTextHeaderSize, static_cast<std::size_t>(header.payloadLength));
}

void CMemoryQueue::FlushLocked() {
    void* file = OpenOutputFile(fileName_, kDumpMode, O_CREAT | O_TRUNC);
    if (!IsValidHandle(file)) {
        return;
    }
    const HandleGuard guard(file);
    GatheredWrites output(file);
    // A record stays queued until it has been written, so that a thread that is cancelled meanwhile loses
    // none.
    auto next = queue_.begin();
    while (next != queue_.end()) {
        AddRecord(output, *next++);
        if (!output.HasRoomFor(kUsualRecord)) {
            output.Write();
            queue_.erase(queue_.begin(), next);
        }
    }
    output.Write();
    queue_.clear();
}

void CMemoryQueue::CloseLocked() {
    if ((mode_ & kModeFlushOnClose) != 0) {
        FlushLocked();
    }
    queue_.clear();
}

void CMemoryQueue::Flush() {
    const std::lock_guard guard(lock_);
    FlushLocked();
}

void CMemoryQueue::Close() {
    const std::lock_guard guard(lock_);
    CloseLocked();
}

void CMemoryQueue::Init(_TraceConfig* config) {
    const std::lock_guard guard(lock_);
    CloseLocked();
    if (config != nullptr && config->type == TRACE_DEVICE_MEMORY_QUEUE) {
        const auto& settings = config->settings.memoryQueue;
        configuredQueueDepth_ = settings.queueDepth;
        if (settings.fileName != nullptr && *settings.fileName != L'\0') {
            fileName_ = settings.fileName;
        }
        mode_ = settings.mode;
    }
    SetOpen(true);
}

long CMemoryQueue::GetQueueDepth() {
    return queueDepth_.load(std::memory_order_relaxed);
}

void CMemoryQueue::SetQueueDepth(long records) {
    queueDepth_.store(static_cast<std::int32_t>(records), std::memory_order_relaxed);
}

std::wstring CMemoryQueue::GetFileName() {
    return propertyFileName_;
}

void CMemoryQueue::SetFileName(std::wstring name) {
    propertyFileName_ = std::move(name);
}

int CMemoryQueue::GetMode() {
    return propertyMode_;
}

void CMemoryQueue::SetMode(int mode) {
    propertyMode_ = mode;
}

} // namespace Nima::Common::System::OS::Diagnostics
