#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace NimaPages {

/// An option or an argument, as its program parses it.
struct Option {
    std::vector<std::string> names; ///< "-f" and "--follow"; none for an argument
    std::string value;              ///< what is given with it, such as "FILE"; empty for a flag
    std::string description;
    bool required = false;
    bool repeated = false;
};

struct Command {
    std::string name;
    std::string description;
    std::vector<Option> options;
    std::vector<Option> arguments;
};

struct Program {
    std::string name;
    std::string version;
    std::string description;
    std::string footer;
    std::vector<Option> options;
    std::vector<Command> commands;
};

/// The values that an option takes, separated by spaces; empty if it takes more than can be named.
std::string Choices(const Option& option);

/// What the table that a program parses with says.
Program ReadTable(const CLI::App& app);

} // namespace NimaPages
