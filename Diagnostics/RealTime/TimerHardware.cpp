#include "Diagnostics/RealTime/TimerHardware.h"

#include "platform/Clock.h"

#include <cerrno>
#include <cstdlib>

namespace Nima::Common::System::OS::Diagnostics {

TarnTraceHardware::~TarnTraceHardware() {
    active_ = false;
    word1_ = 0;
    word2_ = 0;
    std::free(buffer_);
    buffer_ = nullptr;
}

int TarnTraceHardware::Enable() {
    enabled_ = false;
    active_ = false;
    return 0;
}

void TarnTraceHardware::Disable() {
    active_ = false;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): other builds ask the device
int TarnTraceHardware::GetTraceInfo(TarnRegisterData* out) const {
    *out = TarnRegisterData{};
    return 0;
}

UserModeTimerHw::~UserModeTimerHw() {
    std::free(registers_);
    registers_ = nullptr;
}

int UserModeTimerHw::GetTimerInfo(NimaTimerHwStruct* /*out*/) const {
    return 0;
}

int UserModeTimerHw::GetTimerReg() const {
    return 0;
}

int GetUserModeTimerData(long* first, long* second) {
    if (first == nullptr || second == nullptr) {
        return 0;
    }
    NimaTimerHwStruct info{};
    const int result = g_UserModeTimer.GetTimerInfo(&info);
    if (result == 0) {
        return 0;
    }
    *first = static_cast<long>(info.words[4]);
    *second = static_cast<long>(info.words[3]);
    return result;
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

uint32_t ReadQPC32(void) {
    _LARGE_INTEGER counter;
    _query_performance_counter_helper(&counter);
    return static_cast<uint32_t>(counter.QuadPart);
}

uint32_t ReadTSC32(void) {
    return ReadQPC32();
}

int GetRTTraceRegisters(TarnRegisterData* out) {
    if (out == nullptr) {
        errno = EINVAL;
        return 0;
    }
    return gTarnTraceHardware.GetTraceInfo(out);
}

void GetRTTraceTimer(unsigned long* out) {
    if (out == nullptr) {
        errno = EINVAL;
        return;
    }
    errno = EOPNOTSUPP;
    *out = 0;
}

int GetRTTraceTimerInfo(NimaTimerHwStruct* out) {
    if (out == nullptr) {
        errno = EINVAL;
        return 0;
    }
    errno = EOPNOTSUPP;
    *out = NimaTimerHwStruct{};
    return 0;
}
