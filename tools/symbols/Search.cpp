#include "tools/symbols/Search.h"

#include "tools/base/Descriptor.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <unordered_set>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace NimaPost {

namespace {

/// Large symbol tables take seconds; a damaged one may lead in circles, and a file server may not answer.
constexpr rlim_t kMostProcessorSeconds = 60;
constexpr unsigned kMostSeconds = 600;
/// After so many files that end the search there is something else wrong.
constexpr std::size_t kMostLeftOut = 16;

/// What the copy sends: lines with the path of the file in use, then this and the result.
constexpr std::string_view kResultMark{"\0", 1};
constexpr char kPathEnd = '\n';

void Send(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return;
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

Resolutions Run(const SymbolRequest& request, const std::unordered_set<std::string>& left,
                const FileInUse& inUse) {
    Resolutions result;
    elf_version(EV_CURRENT);
    SymbolFiles files(request.places, left, inUse);
    files.Match(request.known.Builds());
    std::unordered_set<std::string> wanted;
    for (const TraceFrames& trace : request.traces) {
        for (const FrameLine& frame : trace.frames) {
            if (frame.offset) {
                wanted.insert(frame.function);
            }
        }
    }
    Resolver resolver(files, request.known, wanted, inUse);
    for (const TraceFrames& trace : request.traces) {
        result.traces.push_back(resolver.Resolve(trace));
    }
    result.problems = files.Problems();
    result.files = files.Count();
    return result;
}

[[noreturn]] void RunInCopy(const SymbolRequest& request, const std::unordered_set<std::string>& left,
                            int descriptor) {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    const rlimit time{kMostProcessorSeconds, kMostProcessorSeconds};
    ::setrlimit(RLIMIT_CPU, &time);
    ::alarm(kMostSeconds);
    std::string last;
    const FileInUse inUse = [&](const std::string& path) {
        if (path != last) {
            last = path;
            Send(descriptor, path + kPathEnd);
        }
    };
    try {
        Send(descriptor, std::string(kResultMark) + Packed(Run(request, left, inUse)));
    } catch (const std::exception&) {
        ::_exit(1);
    }
    ::_exit(0);
}

std::string ReceiveAll(int descriptor) {
    std::string text;
    std::array<char, 1 << 16> piece{};
    for (;;) {
        const ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return text;
        }
        text.append(piece.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

/// The path that was sent last.
std::string LastPath(std::string_view text) {
    text = text.substr(0, text.rfind(kPathEnd));
    const std::size_t before = text.rfind(kPathEnd);
    return std::string(text.substr(before == std::string_view::npos ? 0 : before + 1));
}

/// Empty if the copy did not come to its end; `inUse` is then the file that it used last.
std::optional<Resolutions> Attempt(const SymbolRequest& request, const std::unordered_set<std::string>& left,
                                   std::string& inUse) {
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    const Descriptor from(ends[0]);
    Descriptor into(ends[1]);
    std::fflush(nullptr);
    const pid_t copy = ::fork();
    if (copy == 0) {
        RunInCopy(request, left, into.Number());
    }
    into = Descriptor();
    if (copy < 0) {
        return std::nullopt;
    }
    const std::string text = ReceiveAll(from.Number());
    int status = 0;
    while (::waitpid(copy, &status, 0) < 0 && errno == EINTR) {
    }
    const std::size_t result = text.find(kResultMark);
    inUse = LastPath(std::string_view(text).substr(0, result));
    return result != std::string::npos ? Unpacked(text.substr(result + 1)) : std::nullopt;
}

} // namespace

Resolutions SearchSymbols(const SymbolRequest& request) {
    std::unordered_set<std::string> left;
    std::vector<SymbolProblem> ended;
    while (left.size() <= kMostLeftOut) {
        std::string inUse;
        if (auto result = Attempt(request, left, inUse)) {
            result->problems.insert(result->problems.begin(), ended.begin(), ended.end());
            return std::move(*result);
        }
        if (inUse.empty() || !left.insert(inUse).second) {
            break;
        }
        ended.push_back({SymbolProblem::Kind::kDamaged, inUse, "reading it failed; it is damaged"});
    }
    Resolutions nothing;
    nothing.traces.resize(request.traces.size());
    for (std::size_t i = 0; i < request.traces.size(); ++i) {
        nothing.traces[i].frames.resize(request.traces[i].frames.size());
    }
    nothing.problems = std::move(ended);
    nothing.problems.push_back({SymbolProblem::Kind::kDamaged, "", "The search for symbols failed."});
    return nothing;
}

} // namespace NimaPost
