#include "tools/base/LocalTime.h"

#include "tools/base/CounterClock.h"

#include <ctime>

namespace NimaPost {

std::int64_t LocalTimeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    return (std::int64_t{now.tv_sec} + local.tm_gmtoff) * kSecond + now.tv_nsec;
}

} // namespace NimaPost
