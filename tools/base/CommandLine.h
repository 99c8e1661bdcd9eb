#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace NimaPost {

// What a program takes on its command line, declared without the parser itself: its header alone takes
// longer to compile than most files that declare options.

/// An option or an argument that has been added: each call says more of it.
class Argument {
  public:
    explicit Argument(CLI::Option& option) : option_(&option) {}

    Argument& Required();
    /// What help shows for the value.
    Argument& TypeName(const std::string& name);
    /// Help shows what the value is now.
    Argument& ShowDefault();
    /// The heading in the help text.
    Argument& Group(const std::string& heading);
    Argument& Delimiter(char delimiter);
    /// The option stands before each value.
    Argument& OnePerUse();
    Argument& Times(int least, int most);

    Argument& OneOf(const std::vector<std::string>& words);
    Argument& Between(double least, double most);
    template <std::integral Whole>
    Argument& Between(Whole least, Whole most) {
        using Widest = std::conditional_t<std::signed_integral<Whole>, std::int64_t, std::uint64_t>;
        return BetweenWhole(static_cast<Widest>(least), static_cast<Widest>(most));
    }
    Argument& Positive();
    /// A file or folder that there is.
    Argument& Existing();
    /// Also with a unit: "8GiB".
    Argument& Size();
    /// `check` returns what is wrong with a value, or nothing.
    Argument& Check(std::function<std::string(const std::string&)> check);
    /// A whole number from 0 on.
    Argument& WholeNumber();

  private:
    Argument& BetweenWhole(std::int64_t least, std::int64_t most);
    Argument& BetweenWhole(std::uint64_t least, std::uint64_t most);

    CLI::Option* option_;
};

/// An option ("--output" or "-o,--output") or an argument ("FILE") whose value is stored in `value`. Defined
/// for the types of CommandLine.cpp.
template <class Value>
Argument AddOption(CLI::App& command, const std::string& names, Value& value, const std::string& description);
Argument AddOption(CLI::App& command, const std::string& name,
                   const std::function<void(const std::string&)>& take, const std::string& description);
Argument AddFlag(CLI::App& command, const std::string& names, bool& value, const std::string& description);
Argument AddFlag(CLI::App& command, const std::string& name, std::function<void()> given,
                 const std::string& description);

CLI::App* AddSubcommand(CLI::App& app, const std::string& name, const std::string& description);
/// Called when the command is; and before the options after it are read.
void OnCall(CLI::App& command, std::function<void()> action);
void BeforeOptions(CLI::App& command, std::function<void()> action);

/// "-h" is no longer an option.
void OnlyLongHelp(CLI::App& command);

/// What the program says of itself. It then needs a command.
void DescribeProgram(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& version, const std::string& footer);

} // namespace NimaPost
