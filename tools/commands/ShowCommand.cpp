#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"

#include <memory>

namespace NimaPost {

namespace {

struct Options {
    std::string folder;
    SelectionOptions selection;
};

} // namespace

void AddShowCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(
        app, context, "show", "Everything in a folder in one order of time, line by line", Prints::kList);
    command->add_option("FOLDER", options->folder, "The folder that came back from the device")->required();
    AddSelection(*command, options->selection, TakesLast::kYes);
    command->callback([&run, options] {
        run = [options](Context& c) {
            return RunView(c, options->folder, options->selection,
                           [](const TimelineEvent& /*event*/) { return true; });
        };
    });
}

} // namespace NimaPost
