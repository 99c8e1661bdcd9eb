/// glog. Its name field is the source file's name, and its debugging output is `VLOG`.

#include "competitors/harness.h"

#include <glog/logging.h>

using bench::Job;

namespace {

void Open(const std::string& path, int) {
    // A new destination closes the previous file.
    google::SetLogDestination(google::GLOG_WARNING, path.c_str());
}

void Close() {
    google::FlushLogFiles(google::GLOG_INFO);
}

} // namespace

int main(int, char** argv) {
    google::InitGoogleLogging(argv[0]);
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    FLAGS_logbuflevel = google::GLOG_ERROR;
    FLAGS_logbufsecs = 3600;
    FLAGS_max_log_size = 2047;
    google::SetLogDestination(google::GLOG_INFO, "");
    for (const auto severity : {google::GLOG_INFO, google::GLOG_WARNING}) {
        google::SetLogSymlink(severity, "");
    }
    const Job line{Open,
                   [](int, int calls) {
                       for (int i = 0; i < calls; ++i) {
                           LOG(WARNING) << "page " << i << " of " << bench::kWhat;
                       }
                   },
                   Close};
    const Job filtered{nullptr,
                       [](int, int calls) {
                           for (int i = 0; i < calls; ++i) {
                               VLOG(1) << "page " << i << " of " << bench::kWhat;
                           }
                       },
                       nullptr};
    return bench::Serve({{"line-own", line}, {"line-shared", line}, {"filtered", filtered}});
}
