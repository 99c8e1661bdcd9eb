#include "tools/commands/SelectionTable.h"

#include "tools/base/Text.h"

namespace NimaPost {

namespace {

/// What is wrong with it, or nothing.
std::string CheckBootNumber(const std::string& text) {
    std::string_view rest = text;
    std::int64_t number = 0;
    return TakeDecimal(rest, number) && rest.empty() ? std::string()
                                                     : "\"" + text + "\" is no number of a boot";
}

/// As from a variable of the shell that is not set.
std::string CheckNotEmpty(const std::string& text) {
    return text.empty() ? "empty" : "";
}

} // namespace

void AddSelection(CLI::App& command, SelectionOptions& options, TakesLast last) {
    const std::string group = "Which part";
    const auto text = [&](const char* name, std::string& value, const char* description, const char* type) {
        AddOption(command, name, value, description).TypeName(type).Check(CheckNotEmpty).Group(group);
    };
    text("--since", options.since, "From this time on: a date, a time of day, crash-30s, boot+5m, end-1m",
         "TIME");
    text("--until", options.until, "Before this time", "TIME");
    text("--around", options.around, "Near this time: crash, crash=2, 15:09:26", "TIME");
    text("--within", options.within, "How near, 10s if not given", "LENGTH");
    AddOption(command, "--boot", options.boot,
              "Only what is known to be of this boot; 0 is the last, -1 the one before")
        .TypeName("N")
        .Check(CheckBootNumber)
        .Group(group);
    AddOption(command, "--process", options.process, "Only what is known to be of this process")
        .TypeName("N")
        .Positive()
        .Group(group);
    AddOption(command, "--grep", options.wanted, "Only what this regular expression finds (again for more)")
        .TypeName("RE")
        .OnePerUse()
        .Group(group);
    AddOption(command, "--not", options.refused, "Only what this one does not find (again for more)")
        .TypeName("RE")
        .OnePerUse()
        .Group(group);
    AddFlag(command, "-i,--ignore-case", options.ignoreCase, "Upper and lower case are the same")
        .Group(group);
    if (last == TakesLast::kYes) {
        AddOption(command, "--last", options.last, "Only the last N of what remains")
            .TypeName("N")
            .WholeNumber()
            .Group(group);
    }
}

} // namespace NimaPost
