#pragma once

namespace NimaPost {

/// While it lives, SIGINT and SIGTERM ask for an end instead of being one. One at a time.
class Interrupt {
  public:
    Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

    bool Requested() const;
};

} // namespace NimaPost
