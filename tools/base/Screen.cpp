#include "tools/base/Screen.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace NimaPost {

namespace {

struct sigaction previousResize;

/// Switches to the other screen without a cursor; lines wider than the terminal are cut instead of wrapped.
constexpr std::string_view kTake = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[H\x1b[2J";
constexpr std::string_view kGiveBack = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";

void WriteNow(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// As much of a line as fits the columns, one character each.
std::string_view Cut(std::string_view line, std::size_t columns) {
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool begins = (static_cast<unsigned char>(line[i]) & 0xC0) != 0x80;
        if (begins && columns-- == 0) {
            return line.substr(0, i);
        }
    }
    return line;
}

} // namespace

Screen::Screen(Output& out) : out_(out) {
    TakeSize();
    // The handler only ends a wait; a write is restarted.
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGWINCH, &action, &previousResize);
    Take();
}

Screen::~Screen() {
    GiveBack();
    sigaction(SIGWINCH, &previousResize, nullptr);
}

void Screen::GiveBack() {
    out_.Flush();
    // Straight to the terminal, since a failed stream accepts nothing more.
    WriteNow(kGiveBack);
}

void Screen::Take() {
    out_.Write(kTake);
}

bool Screen::Possible() {
    const char* const type = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && (type == nullptr || std::string_view(type) != "dumb");
}

bool Screen::TakeSize() {
    winsize size{};
    std::size_t rows = 24;
    std::size_t columns = 80;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        rows = size.ws_row;
        columns = size.ws_col;
    }
    const bool changed = rows != rows_ || columns != columns_;
    rows_ = rows;
    columns_ = columns;
    return changed;
}

void Screen::Show(const std::vector<std::string>& lines) {
    out_.Write("\x1b[H");
    // Erased before it is written: after a line that fills the row, the cursor is still on the last
    // character.
    for (std::size_t i = 0; i < lines.size() && i < rows_; ++i) {
        out_.Write(i == 0 ? "\x1b[7m\x1b[K" : i == 1 ? "\x1b[0m\r\n\x1b[K" : "\r\n\x1b[K");
        out_.Write(Cut(lines[i], columns_));
    }
    out_.Write(lines.size() < rows_ ? "\x1b[0m\r\n\x1b[J" : "\x1b[0m");
    out_.Flush();
}

} // namespace NimaPost
