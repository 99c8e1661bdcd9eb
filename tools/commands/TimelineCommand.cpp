#include "tools/base/Text.h"
#include "tools/commands/FolderCommand.h"
#include "tools/timeline/ChromeTrace.h"
#include "tools/timeline/PerfettoTrace.h"

#include <memory>
#include <string_view>

namespace NimaPost {

namespace {

bool IsPerfetto(std::string_view output) {
    return output.ends_with(".pftrace") || output.ends_with(".pftrace.gz");
}

} // namespace

void AddTimelineCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<FolderOptions>();
    CLI::App* command = AddFolderCommand(
        app, context, "timeline", "Everything in a folder on one time axis, for ui.perfetto.dev",
        "File to write: Perfetto's own format if its name ends in .pftrace, else Chrome trace-event JSON; "
        "compressed if its name ends in .gz",
        *options);
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            const auto write = IsPerfetto(options->output) ? WritePerfettoTrace : WriteChromeTrace;
            return RunOnFolder(c, *options, [&](const Story& story, Selection& selection, Output& out) {
                const std::uint64_t count = write(story, c.names, selection, out);
                return FolderResult{{{"events", count}}, Counted(count, "event") + " in ", {}};
            });
        };
    });
}

} // namespace NimaPost
