#include "tools/base/Suspension.h"

#include <csignal>

namespace NimaPost {

namespace {

volatile std::sig_atomic_t suspended = 0;
volatile std::sig_atomic_t continued = 0;
struct sigaction previousStop;
struct sigaction previousContinue;

void OnSignal(int signal) {
    (signal == SIGTSTP ? suspended : continued) = 1;
}

/// Without SA_RESTART, so that a wait returns.
struct sigaction Noting() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    return action;
}

} // namespace

Suspension::Suspension() {
    suspended = 0;
    continued = 0;
    const struct sigaction action = Noting();
    sigaction(SIGTSTP, &action, &previousStop);
    sigaction(SIGCONT, &action, &previousContinue);
}

Suspension::~Suspension() {
    sigaction(SIGTSTP, &previousStop, nullptr);
    sigaction(SIGCONT, &previousContinue, nullptr);
}

bool Suspension::Requested() const {
    return suspended != 0;
}

void Suspension::Stop() {
    suspended = 0;
    std::signal(SIGTSTP, SIG_DFL);
    raise(SIGTSTP);
    const struct sigaction action = Noting();
    sigaction(SIGTSTP, &action, nullptr);
}

bool Suspension::TakeContinued() {
    const bool result = continued != 0;
    continued = 0;
    return result;
}

} // namespace NimaPost
