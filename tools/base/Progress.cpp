#include "tools/base/Progress.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <unistd.h>

namespace NimaPost::Progress {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(2);
constexpr std::chrono::milliseconds kPace(100);
constexpr std::uint64_t kWidth = 30;
constexpr std::string_view kErase = "\r\x1b[K";

struct State {
    bool allowed = false;
    std::thread::id thread; ///< which alone may draw
    bool shown = false;
    Clock::time_point next;
};

State state;

void WriteNow(std::string_view text) {
    // A bar that cannot be drawn is none.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

} // namespace

void Allow() {
    const char* const type = std::getenv("TERM");
    state.allowed = isatty(STDERR_FILENO) == 1 && type != nullptr && std::string_view(type) != "dumb";
    state.next = Clock::now() + kPatience;
    state.thread = std::this_thread::get_id();
}

void Note(std::string_view file, std::uint64_t done, std::uint64_t size) {
    if (!state.allowed || size == 0 || state.thread != std::this_thread::get_id() ||
        Clock::now() < state.next) {
        return;
    }
    state.next = Clock::now() + kPace;
    const std::uint64_t full = std::min(done, size) * kWidth / size;
    std::string bar(kErase);
    bar += '[';
    bar.append(full, '#');
    bar.append(kWidth - full, '.');
    bar += "] " + std::to_string(std::min(done, size) * 100 / size) + "% of ";
    AppendPrintable(bar, file.substr(file.rfind('/') + 1).substr(0, 32));
    WriteNow(bar);
    state.shown = true;
}

void Clear() {
    if (state.shown) {
        WriteNow(kErase);
        state.shown = false;
    }
}

} // namespace NimaPost::Progress
