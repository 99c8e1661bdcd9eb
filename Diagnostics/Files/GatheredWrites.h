#pragma once

#include <cstddef>
#include <cstdint>

namespace Nima::Common::System::OS::Diagnostics {

/// Writes many small pieces to a file with few system calls. The result is the same as with one call per
/// piece: a short or failed write costs the rest of the piece that it stopped in, and no other piece.
/// Allocates nothing, takes no lock, reports nothing.
class GatheredWrites {
  public:
    /// `file` is an open handle that must outlive this object.
    explicit GatheredWrites(void* file) : file_(file) {}
    GatheredWrites(const GatheredWrites&) = delete;
    GatheredWrites& operator=(const GatheredWrites&) = delete;

    /// Whether one more piece of that length can be added before a `Write`.
    bool HasRoomFor(std::size_t length) const;
    /// Copies a piece. If there is no room, everything before it is written first; a piece longer than the
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
