#include "tools/base/ContentHash.h"

#include "tools/base/Hash.h"

#include <algorithm>
#include <cstring>

namespace NimaPost {

namespace {

constexpr unsigned kByteBits = 8;
/// Odd, so that different words stay different, and the lanes have nothing in common.
constexpr std::uint64_t kOtherLane = 0xD6E8FEB86659FD93;

/// The lowest byte first, whatever the machine's order.
std::uint64_t WordAt(const char* bytes) {
    std::uint64_t word = 0;
    for (unsigned i = 0; i < sizeof word; ++i) {
        word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (i * kByteBits);
    }
    return word;
}

} // namespace

void ContentHash::AddWord(std::uint64_t word) {
    lanes_[0] = Mix(lanes_[0], word);
    lanes_[1] = Mix(lanes_[1], word * kOtherLane);
}

void ContentHash::Add(std::string_view bytes) {
    size_ += bytes.size();
    if (inRest_ > 0) {
        const std::size_t taken = std::min(bytes.size(), rest_.size() - inRest_);
        std::memcpy(rest_.data() + inRest_, bytes.data(), taken);
        inRest_ += taken;
        bytes.remove_prefix(taken);
        if (inRest_ < rest_.size()) {
            return;
        }
        AddWord(WordAt(rest_.data()));
        inRest_ = 0;
    }
    for (; bytes.size() >= rest_.size(); bytes.remove_prefix(rest_.size())) {
        AddWord(WordAt(bytes.data()));
    }
    std::copy(bytes.begin(), bytes.end(), rest_.begin());
    inRest_ = bytes.size();
}

void ContentHash::AddWhole(std::string_view text) {
    const std::uint64_t size = text.size();
    Add(text);
    for (unsigned i = 0; i < sizeof size; ++i) {
        const char byte = static_cast<char>(size >> (i * kByteBits));
        Add({&byte, 1});
    }
}

std::string ContentHash::Hexadecimal() const {
    ContentHash end = *this;
    std::fill(end.rest_.begin() + static_cast<std::ptrdiff_t>(inRest_), end.rest_.end(), '\0');
    end.AddWord(WordAt(end.rest_.data()));
    end.AddWord(size_);
    constexpr std::string_view kDigits = "0123456789abcdef";
    constexpr unsigned kDigitBits = 4;
    std::string text;
    for (const std::uint64_t lane : end.lanes_) {
        for (unsigned shift = 64; shift > 0; shift -= kDigitBits) {
            text += kDigits[(lane >> (shift - kDigitBits)) & 0xF];
        }
    }
    return text;
}

} // namespace NimaPost
