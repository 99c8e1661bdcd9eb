#pragma once

#include <cstddef>
#include <cstdint>

namespace Nima::Common::System::OS::Diagnostics {

/// Writes many small pieces to a file with few system calls. What comes of it is what a call for each piece
/// would leave: a short or a failed write costs the rest of the piece that it stopped in, and no other.
/// Allocates nothing, takes no lock, reports nothing.
class GatheredWrites {
  public:
    /// `file` is an open handle and outlives this object.
    explicit GatheredWrites(void* file) : file_(file) {}
    GatheredWrites(const GatheredWrites&) = delete;
    GatheredWrites& operator=(const GatheredWrites&) = delete;

    /// Whether one more piece of that length can be added before `Write`.
    bool HasRoomFor(std::size_t length) const;
    /// Copies a piece. Where there is no room, all before it is written first; one that is longer than the
    /// whole buffer is written at once.
    void Add(const void* piece, std::size_t length);
    /// Writes what has been added since the last call.
    void Write();

  private:
    static constexpr std::size_t kSize = 4096;
    static constexpr std::size_t kMostPieces = 256;

    void* file_;
    std::size_t pieces_ = 0;
    std::size_t fill_ = 0;
    std::uint16_t ends_[kMostPieces]; ///< where each piece ends in the buffer
    char buffer_[kSize];
};

} // namespace Nima::Common::System::OS::Diagnostics
