#pragma once

#include "tools/base/Descriptor.h"

#include <cstddef>
#include <optional>
#include <string>

namespace NimaCtl {

enum class Access : unsigned char { kRead, kWrite };

/// The first bytes of a file that other processes have mapped, mapped here as well. The file must exist and
/// hold them all: it is never created and never changed in size. If another process cuts it while it is
/// mapped, zeros of this process's own take the place of all of it, and `Lost` says so.
class Segment {
  public:
    /// Empty if there is nothing to map; `problem` then says why.
    static std::optional<Segment> Map(const std::string& path, std::size_t bytes, Access access,
                                      std::string& problem);
    Segment(Segment&& other) noexcept;
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;
    ~Segment();

    void* Bytes() const { return bytes_; }
    int Number() const { return descriptor_.Number(); }
    const std::string& Path() const { return path_; }

    /// Whether the file is no longer there to be read or written, after which nothing that was read counts.
    bool Lost() const;
    std::string LostText() const;

  private:
    Segment(std::string path, NimaPost::Descriptor descriptor, void* bytes, std::size_t size)
        : path_(std::move(path)), descriptor_(std::move(descriptor)), bytes_(bytes), size_(size) {}

    std::string path_;
    NimaPost::Descriptor descriptor_;
    void* bytes_;
    std::size_t size_;
};

/// Opens an existing regular file; empty with a reason if that fails. Where a right is missing, the reason
/// names the user who has it.
NimaPost::Descriptor OpenExisting(const std::string& path, Access access, std::string& problem);

} // namespace NimaCtl
