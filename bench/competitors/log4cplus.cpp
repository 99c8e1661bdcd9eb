/// log4cplus' rolling file appender. Loggers are identified by name, so each name has a digit at its end.

#include "competitors/harness.h"

#include <memory>
#include <vector>

#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

using bench::Job;

namespace {

std::vector<log4cplus::Logger> loggers;

void Open(const std::string& path, int count) {
    constexpr long kFarAway = 0x7fffffff;
    constexpr bool kFlushEachLine = false;
    const log4cplus::SharedAppenderPtr appender(
        new log4cplus::RollingFileAppender(path, kFarAway, 1, kFlushEachLine));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%r <%t> <%p> <%c> %m%n"));
    loggers.clear();
    for (int i = 0; i < count; ++i) {
        loggers.push_back(log4cplus::Logger::getInstance(bench::kName + std::to_string(i)));
        loggers.back().setLogLevel(log4cplus::WARN_LOG_LEVEL);
        loggers.back().removeAllAppenders();
        loggers.back().addAppender(appender);
    }
}

void Close() {
    for (log4cplus::Logger& logger : loggers) {
        logger.removeAllAppenders();
    }
    loggers.clear();
}

void Write(const log4cplus::Logger& logger, int calls) {
    for (int i = 0; i < calls; ++i) {
        LOG4CPLUS_WARN_FMT(logger, "page %d of %s", i, bench::kWhat);
    }
}

} // namespace

int main() {
    const log4cplus::Initializer initializer;
    const Job own{
        Open, [](int thread, int calls) { Write(loggers[static_cast<std::size_t>(thread)], calls); }, Close};
    const Job shared{[](const std::string& path, int) { Open(path, 1); },
                     [](int, int calls) { Write(loggers.front(), calls); }, Close};
    const Job filtered{[](const std::string& path, int) { Open(path, 1); },
                       [](int, int calls) {
                           for (int i = 0; i < calls; ++i) {
                               LOG4CPLUS_DEBUG_FMT(loggers.front(), "page %d of %s", i, bench::kWhat);
                           }
                       },
                       Close};
    return bench::Serve({{"line-own", own}, {"line-shared", shared}, {"filtered", filtered}});
}
