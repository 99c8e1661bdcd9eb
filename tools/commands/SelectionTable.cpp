#include "tools/commands/SelectionTable.h"

#include "tools/base/Text.h"

namespace NimaPost {

namespace {

CLI::Validator BootNumber() {
    return CLI::Validator(
        [](const std::string& text) {
            std::string_view rest = text;
            std::int64_t number = 0;
            return TakeDecimal(rest, number) && rest.empty() ? std::string()
                                                             : "\"" + text + "\" is no number of a boot";
        },
        "");
}

} // namespace

void AddSelection(CLI::App& command, SelectionOptions& options, TakesLast last) {
    const std::string group = "Which part";
    const auto text = [&](const char* name, std::string& value, const char* description, const char* type) {
        command.add_option(name, value, description)->type_name(type)->group(group);
    };
    text("--since", options.since, "From this time on: a date, a time of day, crash-30s, boot+5m, end-1m",
         "TIME");
    text("--until", options.until, "Before this time", "TIME");
    text("--around", options.around, "Near this time: crash, crash=2, 15:09:26", "TIME");
    text("--within", options.within, "How near, 10s if not given", "LENGTH");
    command
        .add_option("--boot", options.boot,
                    "Only what is known to be of this boot; 0 is the last, -1 the one before")
        ->type_name("N")
        ->check(BootNumber())
        ->group(group);
    command.add_option("--process", options.process, "Only what is known to be of this process")
        ->type_name("N")
        ->group(group);
    command.add_option("--grep", options.wanted, "Only what this regular expression finds (again for more)")
        ->type_name("RE")
        ->allow_extra_args(false)
        ->group(group);
    command.add_option("--not", options.refused, "Only what this one does not find (again for more)")
        ->type_name("RE")
        ->allow_extra_args(false)
        ->group(group);
    command.add_flag("-i,--ignore-case", options.ignoreCase, "Upper and lower case are the same")
        ->group(group);
    if (last == TakesLast::kYes) {
        command.add_option("--last", options.last, "Only the last N of what remains")
            ->type_name("N")
            ->check(WholeNumber())
            ->group(group);
    }
}

} // namespace NimaPost
