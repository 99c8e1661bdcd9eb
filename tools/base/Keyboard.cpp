#include "tools/base/Keyboard.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <poll.h>
#include <unistd.h>

namespace NimaPost {

bool Keyboard::Possible() {
    return isatty(STDIN_FILENO) == 1;
}

void Keyboard::Take() {
    if (taken_ || tcgetattr(STDIN_FILENO, &before_) != 0) {
        return;
    }
    termios wanted = before_;
    wanted.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    wanted.c_cc[VMIN] = 1;
    wanted.c_cc[VTIME] = 0;
    taken_ = tcsetattr(STDIN_FILENO, TCSADRAIN, &wanted) == 0;
}

void Keyboard::GiveBack() {
    if (taken_) {
        tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
        taken_ = false;
    }
}

std::vector<int> Keyboard::Keys() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    std::vector<int> keys;
    if (poll(&input, 1, 0) <= 0) {
        return keys;
    }
    std::array<char, 64> bytes{};
    const ssize_t got = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
        keys.push_back(kEnd);
    }
    for (std::string_view rest(bytes.data(), got > 0 ? static_cast<std::size_t>(got) : 0); !rest.empty();) {
        const bool arrow = rest.size() >= 3 && rest[0] == '\x1b' && (rest[1] == '[' || rest[1] == 'O');
        if (!arrow) {
            keys.push_back(static_cast<unsigned char>(rest[0]));
        } else if (rest[2] == 'A' || rest[2] == 'B') {
            keys.push_back(rest[2] == 'A' ? kUp : kDown);
        }
        rest.remove_prefix(arrow ? 3 : 1);
    }
    return keys;
}

} // namespace NimaPost
