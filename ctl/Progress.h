#pragma once

#include <chrono>
#include <cstdint>

namespace NimaCtl {

/// A bar on standard error that grows with the time, if that is a terminal. It is erased at its end.
class Progress {
  public:
    explicit Progress(std::chrono::nanoseconds whole);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    void Show(std::chrono::nanoseconds passed, std::uint64_t entries);

  private:
    std::chrono::nanoseconds whole_;
    bool terminal_;
};

} // namespace NimaCtl
