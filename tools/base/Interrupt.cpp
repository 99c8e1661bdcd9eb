#include "tools/base/Interrupt.h"

#include <csignal>

namespace NimaPost {

namespace {

volatile std::sig_atomic_t requested = 0;
struct sigaction previousInterrupt;
struct sigaction previousTermination;
struct sigaction previousHangup;

void Request(int /*signal*/) {
    requested = 1;
}

} // namespace

Interrupt::Interrupt() {
    requested = 0;
    // No SA_RESTART: a wait must return and look.
    struct sigaction action {};
    action.sa_handler = Request;
    sigaction(SIGINT, &action, &previousInterrupt);
    sigaction(SIGTERM, &action, &previousTermination);
    sigaction(SIGHUP, &action, &previousHangup);
    if (previousHangup.sa_handler == SIG_IGN) {
        // As nohup wants it.
        sigaction(SIGHUP, &previousHangup, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

Interrupt::~Interrupt() {
    sigaction(SIGINT, &previousInterrupt, nullptr);
    sigaction(SIGTERM, &previousTermination, nullptr);
    sigaction(SIGHUP, &previousHangup, nullptr);
}

bool Interrupt::Requested() const {
    return requested != 0;
}

} // namespace NimaPost
