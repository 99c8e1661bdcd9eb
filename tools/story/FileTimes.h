#pragma once

#include <cstdint>
#include <optional>

namespace NimaPost {

/// Whether the files of a folder still have the modification times that the device gave them, and by how much
/// those differ from its local time. Copying often replaces them: then they fit no date inside the files.
class FileTimes {
  public:
    /// A file that was modified last at about the moment `local`, which it holds itself. Both are in
    /// nanoseconds since 1970. A file that was written in one go must fit; one that grew may have got its
    /// last line later.
    void Compare(std::int64_t modified, std::int64_t local, bool inOneGo);

    /// Local time less modification time, where that is known: nothing contradicts it then.
    void Know(std::int64_t offset) { known_ = offset; }

    bool Kept() const { return known_ || (offset_ && !contradicted_); }
    /// A modification time in the device's local time; empty where the times were not kept.
    std::optional<std::int64_t> Local(std::int64_t modified) const;

  private:
    std::optional<std::int64_t> known_;
    std::optional<std::int64_t> offset_; ///< local time less modification time
    bool contradicted_ = false;
};

} // namespace NimaPost
