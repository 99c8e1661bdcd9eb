#include "Diagnostics/Files/GatheredWrites.h"

#include "platform/Files.h"

#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

bool GatheredWrites::HasRoomFor(std::size_t length) const {
    return pieces_ < kMostPieces && length <= kSize - fill_;
}

void GatheredWrites::Add(const void* piece, std::size_t length) {
    if (!HasRoomFor(length)) {
        Write();
    }
    if (length > kSize) {
        _write_file_helper(file_, static_cast<const char*>(piece), static_cast<long>(length), nullptr);
        return;
    }
    std::memcpy(buffer_ + fill_, piece, length);
    fill_ += length;
    ends_[pieces_++] = static_cast<std::uint16_t>(fill_);
}

void GatheredWrites::Write() {
    std::size_t done = 0;
    for (std::size_t piece = 0; done < fill_;) {
        long written = 0;
        _write_file_helper(file_, buffer_ + done, static_cast<long>(fill_ - done), &written);
        const std::size_t reached = done + static_cast<std::size_t>(written);
        while (piece < pieces_ && ends_[piece] <= reached) {
            done = ends_[piece++];
        }
        // The write stopped inside a piece, or wrote nothing at all.
        if (piece < pieces_ && (done < reached || written == 0)) {
            done = ends_[piece++];
        }
    }
    pieces_ = 0;
    fill_ = 0;
}

} // namespace Nima::Common::System::OS::Diagnostics
