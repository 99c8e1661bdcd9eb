#include "tools/input/GzipFront.h"

#include <array>
#include <new>

#include <zlib.h>

namespace NimaPost {

namespace {

constexpr int kGzipWindow = 15 + 16; ///< the largest window, with a gzip head and tail

} // namespace

struct GzipFront::State {
    const InputFile* file = nullptr;
    z_stream stream{};
    std::array<char, 1 << 14> input{};
    std::uint64_t offset = 0; ///< in the file, after the input
    bool ended = false;

    /// False where the file has no more.
    bool Fill() {
        const std::size_t got = file->ReadAt(offset, input);
        offset += got;
        stream.next_in = reinterpret_cast<Bytef*>(input.data());
        stream.avail_in = static_cast<uInt>(got);
        return got > 0;
    }
};

GzipFront::GzipFront(const InputFile& file) : state_(std::make_unique<State>()) {
    state_->file = &file;
    if (inflateInit2(&state_->stream, kGzipWindow) != Z_OK) {
        throw std::bad_alloc();
    }
}

GzipFront::~GzipFront() {
    inflateEnd(&state_->stream);
}

std::size_t GzipFront::Read(std::span<char> bytes) {
    State& state = *state_;
    z_stream& stream = state.stream;
    stream.next_out = reinterpret_cast<Bytef*>(bytes.data());
    stream.avail_out = static_cast<uInt>(bytes.size());
    while (!state.ended && stream.avail_out > 0) {
        if (stream.avail_in == 0 && !state.Fill()) {
            state.ended = true;
            break;
        }
        const int result = inflate(&stream, Z_NO_FLUSH);
        // A gzip file may be several, one after the other.
        state.ended = result == Z_STREAM_END ? inflateReset(&stream) != Z_OK : result != Z_OK;
    }
    return bytes.size() - stream.avail_out;
}

std::uint64_t GzipFront::Consumed() const {
    return state_->offset - state_->stream.avail_in;
}

} // namespace NimaPost
