#include "ctl/Progress.h"

#include <algorithm>
#include <iostream>
#include <string>

#include <unistd.h>

namespace NimaCtl {

namespace {

constexpr std::size_t kBarWidth = 30;

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

void Progress::Show(std::chrono::nanoseconds passed, std::uint64_t entries) {
    if (!terminal_) {
        return;
    }
    const auto full =
        static_cast<std::size_t>(static_cast<double>(passed.count()) / static_cast<double>(whole_.count()) *
                                 static_cast<double>(kBarWidth));
    std::string bar(kBarWidth, ' ');
    bar.replace(0, std::min(full, kBarWidth), std::min(full, kBarWidth), '#');
    std::cerr << "\r[" << bar << "] " << Seconds(passed) << " of " << Seconds(whole_) << " s, " << entries
              << " entries, Ctrl-C ends\x1b[K" << std::flush;
}

} // namespace NimaCtl
