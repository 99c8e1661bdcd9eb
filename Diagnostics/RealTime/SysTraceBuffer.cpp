#include "Diagnostics/RealTime/SysTraceBuffer.h"

#include "Diagnostics/RealTime/TimerHardware.h"
#include "Diagnostics/RealTime/WideMessage.h"
#include "catalogue/Marks.h"

#include <bit>
#include <cerrno>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr long kPrivateBlockSize = 33024;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::uint32_t kDefaultTimerWord1 = 1000000;
constexpr unsigned char kMaxLevel = 4;
constexpr std::uint32_t kWordsPerLevel = 4;

constexpr auto kTracing = static_cast<std::uint32_t>(SysTraceState::kTracing);
constexpr auto kTriggered = static_cast<std::uint32_t>(SysTraceState::kTriggered);
constexpr auto kTriggerPending = static_cast<std::uint32_t>(SysTraceState::kTriggerPending);
constexpr auto kCapturing = static_cast<std::uint32_t>(SysTraceState::kCapturing);

unsigned char* NewBlock() {
    // The block's words are accessed as words, so it is allocated as words and aligned for them.
    return reinterpret_cast<unsigned char*>(new std::uint32_t[kPrivateBlockSize / sizeof(std::uint32_t)]());
}

} // namespace

SysTraceBuffer::SysTraceBuffer() : SysTraceBuffer(NewBlock(), kPrivateBlockSize, false) {
    ownsMemory_ = true;
}

SysTraceBuffer::SysTraceBuffer(unsigned char* buffer, long size, bool useHardware)
    : memory_(buffer),
      bufferSize_(static_cast<std::int32_t>(size)),
      entryCount_(CalculateMaxEntries(bufferSize_)),
      mask_(static_cast<std::uint32_t>(entryCount_) - 1),
      memorySize_(bufferSize_) {
    RecalculateBufferSize();
    void* const entries = memory_ + SYSTRACE_HEADER_SIZE;
    void* const header = memory_;
    entries_ = static_cast<SysTraceEntry*>(entries);
    header_ = static_cast<SysTraceHeader*>(header);
    CommonSetup();
    if (useHardware) {
        FetchHardwareRegisters();
    }
}

SysTraceBuffer::~SysTraceBuffer() {
    if (ownsMemory_) {
        void* const block = memory_;
        delete[] static_cast<std::uint32_t*>(block);
    }
}

int SysTraceBuffer::CalculateMaxEntries(int size) {
    constexpr int kMinSize = 512;
    if (size < kMinSize) {
        return 0;
    }
    return static_cast<int>(std::bit_floor(static_cast<std::uint32_t>((size - SYSTRACE_HEADER_SIZE) >> 3)));
}

bool SysTraceBuffer::IsFormatted(unsigned char* block) {
    void* const header = block;
    const std::uint32_t flags =
        SharedWord(static_cast<SysTraceHeader*>(header)->flags).load(std::memory_order_acquire);
    return (flags & SYSTRACE_FLAG_FORMATTED) != 0;
}

void SysTraceBuffer::RecalculateBufferSize() {
    bufferSize_ = entryCount_ * static_cast<std::int32_t>(sizeof(SysTraceEntry)) + SYSTRACE_HEADER_SIZE;
}

void SysTraceBuffer::FetchHardwareRegisters() {
    TarnRegisterData registers{};
    if (GetRTTraceRegisters(&registers) == 0) {
        PrintWideMessage(L"Failed to get TARN registers.\r\n");
    } else if (registers.words[2] == 0 || registers.words[3] == 0) {
        PrintWideMessage(L"Failed to get TARN registers (one or both were null).\r\n");
    } else {
        hardwareRegister1_ = registers.words[2];
        hardwareRegister2_ = registers.words[3];
    }
}

void SysTraceBuffer::CommonSetup() {
    reservedByte_ = 0;
    writeIndex_ = &header_->writeIndex;
    restoreStateOnEnd_ = false;
    filterSaved_ = false;
    unsigned long address = 0;
    GetRTTraceTimer(&address);
    timerRegister_ = reinterpret_cast<const volatile std::uint32_t*>(address);
    if (IsFormatted(memory_)) {
        AdoptHeader();
    } else {
        SetupHeader();
    }
}

void SysTraceBuffer::AdoptHeader() {
    threadRecords_ = (Load(header_->flags) & SYSTRACE_FLAG_THREAD_RECORDS) != 0;
    bufferSize_ = static_cast<std::int32_t>(Load(header_->bufferSize));
    entryCount_ = static_cast<std::int32_t>(Load(header_->entryCount));
    filter_ = header_->liveFilter;
}

void SysTraceBuffer::SetupHeader() {
    PrintWideMessage(L"SysTrace (Drel) not setup...setting up\r\n");
    std::uint32_t magic = 0;
    std::memcpy(&magic, Catalogue::kSysTraceMagic, sizeof(magic));
    void* const firstWord = header_->magic;
    threadRecords_ = true;
    Store(header_->state, kTracing);
    Store(header_->indexMask, mask_);
    Store(*static_cast<std::uint32_t*>(firstWord), magic);
    Store(header_->headerSize, SYSTRACE_HEADER_SIZE);
    Store(header_->savedState, 0);
    filter_ = header_->liveFilter;
    LoadFilterData();
    for (std::uint32_t& word : header_->savedFilter) {
        Store(word, 0);
    }
    std::memset(header_->reserved, 0, sizeof(header_->reserved));
    Store(header_->version, SYSTRACE_VERSION);
    Store(header_->entryCount, static_cast<std::uint32_t>(entryCount_));
    Store(header_->bufferSize, static_cast<std::uint32_t>(bufferSize_));
    ResetBuffer();

    std::uint32_t flags = SYSTRACE_FLAG_FORMATTED | SYSTRACE_FLAG_THREAD_RECORDS;
    long first = 0;
    long second = 0;
    if (GetUserModeTimerData(&first, &second) == 0) {
        Store(header_->timerWord2, kNone);
        Store(header_->timerWord1, kDefaultTimerWord1);
    } else {
        Store(header_->timerWord1, static_cast<std::uint32_t>(first));
        Store(header_->timerWord2, second != 0 ? static_cast<std::uint32_t>(second) : kNone);
        if (second == 0) {
            flags |= SYSTRACE_FLAG_TIMER_WORD_2_UNKNOWN;
        }
    }
    // Last: if the process is killed before this, the next one formats the block.
    SharedWord(header_->flags).store(flags);
}

void SysTraceBuffer::LoadFilterData() {
    for (std::uint32_t i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        Store(filter_[i], i < 2 * kWordsPerLevel ? kNone : 0);
    }
}

std::uint32_t& SysTraceBuffer::WrapCount() {
    return reinterpret_cast<std::uint32_t&>(header_->wrapCount);
}

// Not atomic as a whole: two writers a whole buffer apart may count only one wrap, and nobody relies on more.
void SysTraceBuffer::CountWrap() {
    Store(WrapCount(), Load(WrapCount()) + 1);
}

void SysTraceBuffer::SetComponentLevel(unsigned char component, unsigned char level) {
    if (level > kMaxLevel) {
        errno = EINVAL;
        return;
    }
    std::uint32_t& word = filter_[Catalogue::FilterWord(level, component)];
    const std::uint32_t value = Load(word) | Catalogue::FilterBit(component);
    SharedWord(word).store(value);
    errno = 0;
}

void SysTraceBuffer::SetAllLevel(unsigned char level, bool on) {
    if (level > kMaxLevel) {
        errno = EINVAL;
        return;
    }
    for (std::uint32_t i = 0; i < kWordsPerLevel; ++i) {
        SharedWord(filter_[level * kWordsPerLevel + i]).store(on ? kNone : 0);
    }
    errno = 0;
}

int SysTraceBuffer::Trigger(SysTraceState /*state*/) {
    return 0;
}

void SysTraceBuffer::SaveFilter() {
    for (std::uint32_t i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        Store(header_->savedFilter[i], Load(header_->liveFilter[i]));
    }
    for (std::uint32_t& word : header_->liveFilter) {
        Store(word, 0);
    }
}

void SysTraceBuffer::RestoreFilter() {
    for (std::uint32_t i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        Store(header_->liveFilter[i], Load(header_->savedFilter[i]));
    }
    for (std::uint32_t& word : header_->savedFilter) {
        Store(word, 0);
    }
}

// One compare-and-swap. Returns whether the state it found is `expectedResult`, which need not be the one
// that it replaces.
bool SysTraceBuffer::SwapState(std::uint32_t from, std::uint32_t to, std::uint32_t expectedResult) {
    std::uint32_t found = from;
    SharedWord(header_->state).compare_exchange_strong(found, to);
    return found == expectedResult;
}

bool SysTraceBuffer::ResetTrigger() {
    errno = 0;
    if (!SwapState(kTracing, kTriggered, kTriggered)) {
        errno = EOPNOTSUPP;
        return false;
    }
    RestoreFilter();
    Store(header_->savedState, 0);
    SharedWord(header_->state).exchange(kTracing);
    return true;
}

bool SysTraceBuffer::BeginTraceCapture() {
    filterSaved_ = false;
    restoreStateOnEnd_ = true;
    if (SwapState(kCapturing, kTracing, kTracing)) {
        SaveFilter();
        Store(header_->savedState, kTracing);
        filterSaved_ = true;
        return true;
    }
    for (const std::uint32_t state : {kTriggered, kTriggerPending}) {
        if (SwapState(kCapturing, state, state)) {
            Store(header_->savedState, state);
            return true;
        }
    }
    if (SharedWord(header_->state).load() == kCapturing) {
        restoreStateOnEnd_ = false;
        return true;
    }
    errno = EOPNOTSUPP;
    return false;
}

bool SysTraceBuffer::EndTraceCapture() {
    if (filterSaved_) {
        RestoreFilter();
    }
    if (restoreStateOnEnd_) {
        SharedWord(header_->state).store(Load(header_->savedState));
    }
    return true;
}

void SysTraceBuffer::Disable() {
    for (std::uint32_t i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        const std::uint32_t live = SharedWord(header_->liveFilter[i]).exchange(0);
        SharedWord(header_->savedFilter[i]).store(live);
    }
}

void SysTraceBuffer::ResetBuffer() {
    SharedWord(*writeIndex_).store(kNone);
    SharedWord(WrapCount()).store(kNone);
}

void SysTraceBuffer::Clear() {
    BeginTraceCapture();
    ResetBuffer();
    EndTraceCapture();
}

} // namespace Nima::Common::System::OS::Diagnostics
