/// spdlog's rotating file sink, synchronous. The pattern uses the time format that is quickest to write.

#include "competitors/harness.h"

#include <memory>
#include <vector>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

using bench::Job;

namespace {

std::vector<std::unique_ptr<spdlog::logger>> loggers;

void Open(const std::string& path, int count) {
    constexpr std::size_t kFarAway = 0x7fffffff;
    const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, kFarAway, 1);
    loggers.clear();
    for (int i = 0; i < count; ++i) {
        loggers.push_back(std::make_unique<spdlog::logger>(bench::kName, sink));
        loggers.back()->set_level(spdlog::level::warn);
        loggers.back()->flush_on(spdlog::level::off);
        loggers.back()->set_pattern("%E%F <%t> <%l> <%n> %v");
    }
}

void Close() {
    loggers.clear();
}

void Write(spdlog::logger& logger, int calls) {
    for (int i = 0; i < calls; ++i) {
        logger.warn("page {} of {}", i, bench::kWhat);
    }
}

} // namespace

int main() {
    const Job own{
        Open, [](int thread, int calls) { Write(*loggers[static_cast<std::size_t>(thread)], calls); }, Close};
    const Job shared{[](const std::string& path, int) { Open(path, 1); },
                     [](int, int calls) { Write(*loggers.front(), calls); }, Close};
    const Job filtered{[](const std::string& path, int) { Open(path, 1); },
                       [](int, int calls) {
                           for (int i = 0; i < calls; ++i) {
                               loggers.front()->debug("page {} of {}", i, bench::kWhat);
                           }
                       },
                       Close};
    return bench::Serve({{"line-own", own}, {"line-shared", shared}, {"filtered", filtered}});
}
