#include "tools/base/Background.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace NimaPost {

namespace {

[[noreturn]] void Work(const std::function<std::string()>& work, int pipe) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGPIPE}) {
        std::signal(signal, SIG_IGN);
    }
    std::string text;
    try {
        text = work();
    } catch (const std::exception& error) {
        text = error.what();
    }
    const ssize_t ignored = write(pipe, text.data(), text.size());
    _exit(ignored < 0 ? 1 : 0);
}

} // namespace

Background::Background(const std::function<std::string()>& work) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        text_ = std::strerror(errno);
        return;
    }
    pipe_ = Descriptor(ends[0]);
    const Descriptor writer(ends[1]);
    child_ = fork();
    if (child_ == 0) {
        Work(work, writer.Number());
    }
    if (child_ < 0) {
        text_ = std::strerror(errno);
    }
}

Background::~Background() {
    if (child_ > 0) {
        waitpid(child_, nullptr, WNOHANG);
    }
}

std::optional<std::string> Background::TakeResult() {
    std::array<char, 512> bytes{};
    ssize_t got = 0;
    while (pipe_ && (got = read(pipe_.Number(), bytes.data(), bytes.size())) > 0) {
        text_.append(bytes.data(), static_cast<std::size_t>(got));
    }
    if (got < 0 && errno == EINTR) {
        return std::nullopt;
    }
    if (child_ > 0) {
        waitpid(child_, nullptr, 0);
        child_ = -1;
    }
    return text_.empty() ? "the work ended without a result" : text_;
}

} // namespace NimaPost
