#include "pages/Pages.h"

#include <algorithm>

namespace NimaPages {

namespace {

std::string FunctionName(const Program& program) {
    std::string name = "_" + program.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

std::string Words(const std::vector<Option>& options) {
    std::string words;
    for (const Option& option : options) {
        for (const std::string& name : option.names) {
            words += (words.empty() ? "" : " ") + name;
        }
    }
    return words;
}

/// A command's case: its options, or the values of the one that stands before.
std::string Case(const Command& command) {
    std::string text =
        "            " + command.name + ")\n                words='" + Words(command.options) + "'\n";
    std::string values;
    for (const Option& option : command.options) {
        const std::string choices = Choices(option);
        for (const std::string& name : option.names) {
            if (!choices.empty()) {
                values += "                    ";
                values += name;
                values += ") words='";
                values += choices;
                values += "' given=yes ;;\n";
            }
        }
    }
    if (!values.empty()) {
        text += "                case $before in\n" + values + "                esac\n";
    }
    return text + "                ;;\n";
}

std::string CommandWords(const Program& program) {
    std::string words = Words(program.options);
    for (const Command& command : program.commands) {
        words += " " + command.name;
    }
    return words;
}

} // namespace

// Where nothing is offered, bash completes the names of files.
std::string BashCompletion(const Program& program) {
    const std::string function = FunctionName(program);
    std::string text = "# bash completion for " + program.name + "\n\n" + function + "() {\n";
    text +=
        "    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} given=''\n"
        "    local words='" +
        CommandWords(program) +
        "'\n"
        "    COMPREPLY=()\n"
        "    if ((COMP_CWORD > 1)); then\n"
        "        case ${COMP_WORDS[1]} in\n";
    for (const Command& command : program.commands) {
        text += Case(command);
    }
    text +=
        "            *) return ;;\n"
        "        esac\n"
        "        [[ $current == -* || $given ]] || return\n"
        "    fi\n"
        "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
        "}\n"
        "complete -o bashdefault -o default -F " +
        function + " " + program.name + "\n";
    return text;
}

} // namespace NimaPages
