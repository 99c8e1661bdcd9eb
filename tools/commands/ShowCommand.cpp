#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"

#include <memory>

namespace NimaPost {

namespace {

struct ShowOptions {
    InputOptions input;
    SelectionOptions selection;
};

} // namespace

void AddShowCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<ShowOptions>();
    CLI::App* command = AddCommand(
        app, context, "show", "Everything in a folder in one order of time, line by line", Prints::kList);
    AddInputOptions(*command, options->input, "FOLDER", "The folder that came back from the device");
    AddSelection(*command, options->selection, TakesLast::kYes);
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnDevices(c, options->input, false, [&](const DeviceInput& input, Findings& findings) {
                return RunView(c, input, findings, options->selection,
                               [](const TimelineEvent& /*event*/) { return true; });
            });
        };
    });
}

} // namespace NimaPost
