#include "Diagnostics/RealTime/RingBuffer.h"

#include "Diagnostics/Files/FileRolling.h"
#include "Diagnostics/Guarded.h"
#include "catalogue/Marks.h"
#include "platform/Handles.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace Nima::Common::System::OS::Diagnostics {

using detail::StoreWord;
using detail::WordsOf;

namespace {

constexpr std::size_t kWordsPerRecord = sizeof(RingBufferData) / sizeof(std::uint32_t);
constexpr std::size_t kTextSize = 256;

using RecordWords = std::uint32_t[kWordsPerRecord];

std::uint32_t LoadWord(std::uint32_t& word) {
    return std::atomic_ref<std::uint32_t>(word).load(std::memory_order_relaxed);
}

RingBufferData LoadRecord(const RingBufferData* slot) {
    RecordWords words;
    for (std::size_t i = 0; i < kWordsPerRecord; ++i) {
        words[i] = LoadWord(WordsOf(slot)[i]);
    }
    RingBufferData record;
    std::memcpy(&record, words, sizeof(record));
    return record;
}

bool WriteText(void* file, char* text) {
    void* const bytes = text;
    return FlushBufferToFile(file, static_cast<unsigned char*>(bytes),
                             static_cast<long>(std::strlen(text))) != 0;
}

} // namespace

CRingBuffer::CRingBuffer(int entries, std::wstring name)
    : entryCount_(entries), mask_(static_cast<std::uint32_t>(entries) - 1), name_(std::move(name)) {}

void CRingBuffer::EmptyBuffer() {
    const std::lock_guard guard(lock_);
    if (records_ != nullptr) {
        std::uint32_t* const words = WordsOf(records_);
        for (std::size_t i = 0; i < static_cast<std::size_t>(entryCount_) * kWordsPerRecord; ++i) {
            StoreWord(words[i], 0);
        }
    }
    writeIndex_.store(0xFFFFFFFF);
}

void CRingBuffer::Dump(unsigned char* out, unsigned long length, unsigned long* copied) {
    const unsigned long size = static_cast<unsigned long>(entryCount_) * sizeof(RingBufferData);
    const unsigned long count = records_ != nullptr ? std::min(size, length) : 0;
    const std::lock_guard guard(lock_);
    for (unsigned long done = 0; done < count;) {
        const std::uint32_t word = LoadWord(WordsOf(records_)[done / sizeof(std::uint32_t)]);
        const unsigned long piece = std::min<unsigned long>(sizeof(word), count - done);
        std::memcpy(out + done, &word, piece);
        done += piece;
    }
    *copied = count;
}

void WriteRecordsAsText(const RingBufferData* records, std::uint32_t count, void* file) {
    char text[kTextSize];
    for (std::uint32_t i = 0; i < count; ++i) {
        const RingBufferData record = LoadRecord(&records[i]);
        if (record.timestamp == 0) {
            break;
        }
        const std::uint32_t* const w = record.words;
        std::memset(text, 0, sizeof(text));
        _snprintf_s_helper(
            text, sizeof(text), sizeof(text), "%019lld 0x%8.8x 0x%8.8x : 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x\r\n",
            static_cast<long long>(record.timestamp), record.threadId, w[0], w[1], w[2], w[3], w[4]);
        WriteText(file, text);
    }
}

void CRingBuffer::Dump(void* file) {
    if (!IsValidHandle(file)) {
        return;
    }
    GuardedCall([this, file] {
        char text[kTextSize] = {};
        _snprintf_s_helper(text, sizeof(text), sizeof(text), "%s%ls%s\r\n", Catalogue::kRingHeadingBegin,
                           name_.c_str(), Catalogue::kRingHeadingEnd);
        if (WriteText(file, text) && records_ != nullptr && entryCount_ >= 1) {
            WriteRecordsAsText(records_, static_cast<std::uint32_t>(entryCount_), file);
        }
    });
}

} // namespace Nima::Common::System::OS::Diagnostics
