#include "pages/Pages.h"

#include <cctype>
#include <sstream>

namespace NimaPages {

namespace {

/// As it is printed: no backslash, hyphen or leading dot that the formatter would take for its own.
std::string Roff(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\\') {
            result += "\\e";
        } else if (character == '-') {
            result += "\\-";
        } else if ((character == '.' || character == '\'') && (result.empty() || result.back() == '\n')) {
            result += "\\&";
            result += character;
        } else {
            result += character;
        }
    }
    return result;
}

/// Each line stays a line.
std::string Lines(const std::string& text) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        result += (result.empty() ? "" : ".br\n") + Roff(line) + "\n";
    }
    return result;
}

std::string Heading(const std::string& text) {
    return ".SH " + text + "\n";
}

std::string Term(const Option& option) {
    std::string term;
    for (const std::string& name : option.names) {
        term += (term.empty() ? "\\fB" : ", \\fB") + Roff(name) + "\\fR";
    }
    if (!option.value.empty()) {
        term += (term.empty() ? "\\fI" : " \\fI") + Roff(option.value) + "\\fR";
    }
    if (option.repeated) {
        term += "...";
    }
    return term;
}

std::string List(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) {
        text += ".TP\n" + Term(option) + "\n" + Roff(option.description) + "\n";
        if (option.required && !option.names.empty()) {
            text += "Required.\n";
        }
    }
    return text;
}

std::string Synopsis(const Command& command) {
    std::string text = "\\fB" + Roff(command.name) + "\\fR [\\fIOPTION\\fR]...";
    for (const Option& argument : command.arguments) {
        text += argument.required ? " " + Term(argument) : " [" + Term(argument) + "]";
    }
    return text;
}

std::string Upper(std::string text) {
    for (char& character : text) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    return text;
}

/// The description without its full stop, in small letters at its start.
std::string Purpose(const Program& program) {
    std::string text = program.description;
    text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
    while (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

} // namespace

std::string ManualPage(const Program& program) {
    std::string page =
        ".TH " + Upper(program.name) + " 1 \"\" \"" + program.version + "\" \"User Commands\"\n";
    page += Heading("NAME") + Roff(program.name) + " \\- " + Roff(Purpose(program)) + "\n";
    page +=
        Heading("SYNOPSIS") + "\\fB" + Roff(program.name) + "\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR]... ...\n";
    page += Heading("DESCRIPTION") + Roff(program.description) + "\n" + List(program.options);
    page += Heading("COMMANDS");
    for (const Command& command : program.commands) {
        page += ".SS " + Synopsis(command) + "\n" + Roff(command.description) + ".\n";
        page += List(command.arguments) + List(command.options);
    }
    page += Heading("NOTES") + Lines(program.footer);
    page += Heading("SEE ALSO") +
            "\\fBnima\\-post\\fR(1), \\fBnima\\-ctl\\fR(1), \\fBnima\\-diagnostics\\fR(7)\n";
    return page;
}

} // namespace NimaPages
