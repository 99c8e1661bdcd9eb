/// Boost.Log with a synchronous sink over its text file backend.

#include "competitors/harness.h"

#include <memory>
#include <vector>

#include <boost/log/attributes.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>

namespace log_ = boost::log;
namespace expr = boost::log::expressions;
using bench::Job;
using Level = log_::trivial::severity_level;
using Logger = log_::sources::severity_channel_logger_mt<Level, std::string>;
using Sink = log_::sinks::synchronous_sink<log_::sinks::text_file_backend>;

namespace {

std::vector<std::unique_ptr<Logger>> loggers;
boost::shared_ptr<Sink> sink;

void Open(const std::string& path, int count) {
    constexpr unsigned kFarAway = 0x7fffffff;
    const auto backend = boost::make_shared<log_::sinks::text_file_backend>(
        log_::keywords::file_name = path, log_::keywords::rotation_size = kFarAway,
        log_::keywords::auto_flush = false);
    sink = boost::make_shared<Sink>(backend);
    sink->set_formatter(
        expr::stream << expr::attr<unsigned>("LineID") << " <"
                     << expr::attr<log_::attributes::current_thread_id::value_type>("ThreadID") << "> <"
                     << log_::trivial::severity << "> <" << expr::attr<std::string>("Channel") << "> "
                     << expr::smessage);
    log_::core::get()->add_sink(sink);
    loggers.clear();
    for (int i = 0; i < count; ++i) {
        loggers.push_back(std::make_unique<Logger>(log_::keywords::channel = bench::kName));
    }
}

void Close() {
    loggers.clear();
    log_::core::get()->remove_sink(sink);
    sink.reset();
}

void Write(Logger& logger, int calls) {
    for (int i = 0; i < calls; ++i) {
        BOOST_LOG_SEV(logger, log_::trivial::warning) << "page " << i << " of " << bench::kWhat;
    }
}

} // namespace

int main() {
    log_::add_common_attributes();
    log_::core::get()->set_filter(log_::trivial::severity >= log_::trivial::warning);
    const Job own{
        Open, [](int thread, int calls) { Write(*loggers[static_cast<std::size_t>(thread)], calls); }, Close};
    const Job shared{[](const std::string& path, int) { Open(path, 1); },
                     [](int, int calls) { Write(*loggers.front(), calls); }, Close};
    const Job filtered{[](const std::string& path, int) { Open(path, 1); },
                       [](int, int calls) {
                           for (int i = 0; i < calls; ++i) {
                               BOOST_LOG_SEV(*loggers.front(), log_::trivial::debug)
                                   << "page " << i << " of " << bench::kWhat;
                           }
                       },
                       Close};
    return bench::Serve({{"line-own", own}, {"line-shared", shared}, {"filtered", filtered}});
}
