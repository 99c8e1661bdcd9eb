#pragma once

#include "tools/base/Output.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace NimaCtl {

/// A compressed tar archive ("ustar", with a pax header for a long name or a large file), written file by
/// file.
class Archive {
  public:
    explicit Archive(NimaPost::Output& out);
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;
    ~Archive();

    /// Begins a file; exactly `bytes` bytes must follow.
    void Begin(const std::string& name, std::uint64_t bytes, std::int64_t modifiedSeconds);
    void Write(std::string_view bytes);
    void End();
    void Add(const std::string& name, std::string_view content, std::int64_t modifiedSeconds);
    /// Ends the archive.
    void Finish();

  private:
    struct Compressor;

    void Header(const std::string& name, std::uint64_t bytes, std::int64_t modifiedSeconds, char kind);
    void Compress(std::string_view bytes, bool last);

    NimaPost::Output& out_;
    std::unique_ptr<Compressor> compressor_;
    std::uint64_t inFile_ = 0;
};

} // namespace NimaCtl
