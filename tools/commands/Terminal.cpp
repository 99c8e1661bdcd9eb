#include "tools/commands/Terminal.h"

#include "tools/base/Descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace NimaPost {

namespace {

std::string_view Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool IsTerminal(int descriptor) {
    return isatty(descriptor) == 1 && Variable("TERM") != "dumb";
}

} // namespace

bool WantsColour(const std::string& choice) {
    return choice == "always" ||
           (choice == "auto" && IsTerminal(STDOUT_FILENO) && Variable("NO_COLOR").empty());
}

void Pager::Start() {
    const bool chosen = std::getenv("PAGER") != nullptr;
    std::string command(Variable("PAGER"));
    if (!IsTerminal(STDOUT_FILENO) || (chosen && (command.empty() || command == "cat"))) {
        return;
    }
    if (!chosen) {
        command = "command -v less >/dev/null && exec less -FRX; exec cat";
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return;
    }
    // Where there is no such program, it has read nothing. A key that interrupts is the pager's, not the
    // shell's.
    command = "trap : INT\n" + command + "\ncase $? in 126|127) exec cat;; esac";
    const Descriptor from(ends[0]);
    const Descriptor into(ends[1]);
    setenv("LESS", "FRX", 0);
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, from.Number(), STDIN_FILENO);
    std::string shell = "sh";
    std::string option = "-c";
    const std::array<char*, 4> words{shell.data(), option.data(), command.data(), nullptr};
    pid_t child = -1;
    const int failed = posix_spawn(&child, "/bin/sh", &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        return;
    }
    child_ = child;
    // The pager is left by a key; an interrupt is for it alone.
    std::signal(SIGINT, SIG_IGN);
    if (IsTerminal(STDERR_FILENO)) {
        dup2(into.Number(), STDERR_FILENO);
    }
    dup2(into.Number(), STDOUT_FILENO);
}

void Pager::Finish() {
    if (child_ < 0) {
        return;
    }
    std::fclose(stdout);
    close(STDERR_FILENO);
    int status = 0;
    while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
    child_ = -1;
}

} // namespace NimaPost
