#include "ctl/Progress.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace NimaCtl {

namespace {

constexpr std::size_t kWidth = 30;

std::int64_t Seconds(std::chrono::nanoseconds time) {
    return std::chrono::ceil<std::chrono::seconds>(time).count();
}

} // namespace

Progress::Progress(std::chrono::nanoseconds whole) : whole_(whole), terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (terminal_) {
        std::cerr << "\r\x1b[K" << std::flush;
    }
}

void Progress::Show(std::chrono::nanoseconds passed, std::uint32_t entries) {
    if (!terminal_) {
        return;
    }
    const auto full =
        static_cast<std::size_t>(static_cast<double>(passed.count()) / static_cast<double>(whole_.count()) *
                                 static_cast<double>(kWidth));
    std::string bar(kWidth, ' ');
    bar.replace(0, std::min(full, kWidth), std::min(full, kWidth), '#');
    std::cerr << "\r[" << bar << "] " << Seconds(passed) << " of " << Seconds(whole_) << " s, " << entries
              << " entries, Ctrl-C ends\x1b[K" << std::flush;
}

bool ParseTime(const std::string& text, std::chrono::nanoseconds& time) {
    constexpr double kMostSeconds = 86400;
    constexpr double kNanoseconds = 1e9;
    constexpr std::array<std::pair<std::string_view, double>, 5> kUnits{
        {{"ms", 1e-3}, {"s", 1}, {"m", 60}, {"h", 3600}, {"", 1}}};
    char* end = nullptr;
    const double number =
        text.empty() || text.find_first_of("xX") != std::string::npos ? 0 : std::strtod(text.c_str(), &end);
    for (const auto& [unit, factor] : kUnits) {
        if (end != nullptr && end != text.c_str() && unit == end) {
            const double seconds = number * factor;
            time = std::chrono::nanoseconds(
                std::llround(seconds > 0 && seconds <= kMostSeconds ? seconds * kNanoseconds : 0));
            return time.count() > 0;
        }
    }
    return false;
}

} // namespace NimaCtl
