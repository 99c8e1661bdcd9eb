#include "pages/Pages.h"

#include <string_view>

namespace NimaPages {

namespace {

/// Inside single quotes, where a colon and brackets end a field of what `_arguments` reads.
std::string Quoted(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\'') {
            result += "'\\''";
            continue;
        }
        if (std::string_view(":[]\\").find(character) != std::string_view::npos) {
            result += '\\';
        }
        result += character;
    }
    return result;
}

std::string Value(const Option& option) {
    if (option.value.empty()) {
        return "";
    }
    const std::string choices = Choices(option);
    return ":" + Quoted(option.value) + ":" + (choices.empty() ? "_files" : "(" + choices + ")");
}

/// One line of _arguments for each name of an option. Names of one option exclude each other, unless it is
/// repeated.
std::string Lines(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) {
        std::string others;
        for (const std::string& name : option.names) {
            others += (others.empty() ? "" : " ") + name;
        }
        for (const std::string& name : option.names) {
            text += " \\\n                '";
            text += option.repeated ? std::string("*") : "(" + others + ")";
            text += name;
            text += "[" + Quoted(option.description) + "]";
            text += Value(option);
            text += "'";
        }
    }
    return text;
}

} // namespace

std::string ZshCompletion(const Program& program) {
    std::string text =
        "#compdef " + program.name + "\n\nlocal context state state_descr line\ntypeset -A opt_args\n\n";
    text += "_arguments -C" + Lines(program.options) +
            " \\\n                '1:command:->command' \\\n                '*::argument:->argument'\n\n"
            "case $state in\n    command)\n        local -a commands=(\n";
    for (const Command& command : program.commands) {
        text += "            '" + command.name + ":" + Quoted(command.description) + "'\n";
    }
    text +=
        "        )\n        _describe command commands || _files\n        ;;\n    argument)\n"
        "        case $words[1] in\n";
    for (const Command& command : program.commands) {
        text += "            " + command.name + ")\n                _arguments" + Lines(command.options) +
                " \\\n                '*:file:_files'\n                ;;\n";
    }
    text += "        esac\n        ;;\nesac\n";
    return text;
}

} // namespace NimaPages
