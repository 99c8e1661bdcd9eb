#pragma once

namespace NimaPost {

/// While it lives, SIGINT and SIGTERM ask for an end instead of being one. One at a time. A reader that has
/// gone is, from then on, a failure to write that is reported like any other.
class Interrupt {
  public:
    Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

    bool Requested() const;
};

} // namespace NimaPost
