#pragma once

namespace NimaPost {

/// During its lifetime, SIGINT, SIGTERM and SIGHUP only request an end instead of ending the process. One
/// object at a time. From then on, if the reader of the output has gone, that is reported like any other
/// failed write.
class Interrupt {
  public:
    Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

    bool Requested() const;
};

} // namespace NimaPost
