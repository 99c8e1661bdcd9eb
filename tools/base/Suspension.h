#pragma once

namespace NimaPost {

/// During its lifetime Ctrl-Z only requests that the process be stopped, so that it can give the terminal
/// back before. One object at a time.
class Suspension {
  public:
    Suspension();
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;
    ~Suspension();

    bool Requested() const;
    /// Stops the process until it is continued.
    void Stop();
    /// Whether the process was continued since the last call: others have used the terminal meanwhile.
    bool TakeContinued();
};

} // namespace NimaPost
