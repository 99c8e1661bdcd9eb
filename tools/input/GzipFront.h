#pragma once

#include "tools/base/InputFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace NimaPost {

/// What a gzip file holds up to the place where it ends or is damaged, to the last byte.
class GzipFront {
  public:
    /// The file must outlive it.
    explicit GzipFront(const InputFile& file);
    GzipFront(const GzipFront&) = delete;
    GzipFront& operator=(const GzipFront&) = delete;
    ~GzipFront();

    /// Fills as much as there is; 0 at the end.
    std::size_t Read(std::span<char> bytes);
    /// How many bytes of the file that took so far.
    std::uint64_t Consumed() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace NimaPost
