#include "platform/Clock.h"

#include <ctime>

void _get_local_time_helper(_SYSTEMTIME* out) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    ::localtime_r(&now.tv_sec, &local);
    out->wYear = static_cast<std::uint16_t>(local.tm_year);
    out->wMonth = static_cast<std::uint16_t>(local.tm_mon);
    out->wDayOfWeek = static_cast<std::uint16_t>(local.tm_wday);
    out->wDay = static_cast<std::uint16_t>(local.tm_mday);
    out->wHour = static_cast<std::uint16_t>(local.tm_hour);
    out->wMinute = static_cast<std::uint16_t>(local.tm_min);
    out->wSecond = static_cast<std::uint16_t>(local.tm_sec);
    out->wMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1000);
}

void _query_performance_frequency_helper(_LARGE_INTEGER* out) {
    out->QuadPart = 1000000;
}
