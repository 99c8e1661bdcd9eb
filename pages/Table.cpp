#include "pages/Table.h"

#include <algorithm>

#include <CLI/CLI.hpp>

namespace NimaPages {

namespace {

Option ReadOption(const CLI::Option& option) {
    Option result;
    for (const std::string& name : option.get_snames()) {
        result.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        result.names.push_back("--" + name);
    }
    if (option.get_positional()) {
        result.value = option.get_name(true);
    } else if (option.get_items_expected_max() > 0) {
        result.value = option.get_type_name();
    }
    result.description = option.get_description();
    result.required = option.get_required();
    result.repeated = option.get_expected_max() > 1;
    return result;
}

/// Those with a name, or those without one.
std::vector<Option> ReadOptions(const CLI::App& app, bool positional) {
    std::vector<Option> result;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional() == positional) {
            result.push_back(ReadOption(*option));
        }
    }
    return result;
}

} // namespace

// The parser shows them as "FORMAT:{text,json}".
std::string Choices(const Option& option) {
    const std::size_t begin = option.value.find('{');
    const std::size_t end = option.value.rfind('}');
    if (begin == std::string::npos || end == std::string::npos) {
        return {};
    }
    std::string words = option.value.substr(begin + 1, end - begin - 1);
    std::replace(words.begin(), words.end(), ',', ' ');
    return words;
}

Program ReadTable(const CLI::App& app) {
    Program program;
    program.name = app.get_name();
    program.version = app.version();
    program.description = app.get_description();
    program.footer = app.get_footer();
    program.options = ReadOptions(app, false);
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        Command read;
        read.name = command->get_name();
        read.description = command->get_description();
        read.options = ReadOptions(*command, false);
        read.arguments = ReadOptions(*command, true);
        program.commands.push_back(read);
    }
    return program;
}

} // namespace NimaPages
