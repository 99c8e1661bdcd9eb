#pragma once

#include <cstdint>

#include <Diagnostics/RealTimeTraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Trace hardware. This build has none.
class TarnTraceHardware {
  public:
    constexpr TarnTraceHardware() = default;
    TarnTraceHardware(const TarnTraceHardware&) = delete;
    TarnTraceHardware& operator=(const TarnTraceHardware&) = delete;
    ~TarnTraceHardware();

    /// Returns 0.
    int Enable();
    void Disable();
    /// Zeroes the record and returns 0. Safe at any time, even after the object's end.
    int GetTraceInfo(TarnRegisterData* out) const;

  private:
    void* buffer_ = nullptr;
    bool enabled_ = false;
    bool active_ = false;
    std::uint32_t word1_ = 0;
    std::uint32_t word2_ = 0;
};

/// Timer hardware. This build has none.
class UserModeTimerHw {
  public:
    constexpr UserModeTimerHw() = default;
    UserModeTimerHw(const UserModeTimerHw&) = delete;
    UserModeTimerHw& operator=(const UserModeTimerHw&) = delete;
    ~UserModeTimerHw();

    bool init() const { return registers_ != nullptr; }
    /// Both return 0 and are safe at any time.
    int GetTimerInfo(NimaTimerHwStruct* out) const;
    int GetTimerReg() const;

  private:
    void* registers_ = nullptr;
};

extern TarnTraceHardware gTarnTraceHardware;
extern UserModeTimerHw g_UserModeTimer;

/// Two values of the timer's description, its words 4 and 3. Returns 0 if there is no timer or a pointer is
/// null.
int GetUserModeTimerData(long* first, long* second);

} // namespace Nima::Common::System::OS::Diagnostics
