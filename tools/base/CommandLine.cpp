#include "tools/base/CommandLine.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>

namespace NimaPost {

namespace {

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}

/// "512", "512M", "8 GiB": a unit stands for the next power of 1024, however it is spelt.
std::optional<std::uint64_t> ParseSize(std::string_view text) {
    constexpr std::string_view kUnits = "bkmgtpe";
    std::int64_t number = 0;
    if (!TakeDecimal(text, number) || number <= 0) {
        return std::nullopt;
    }
    std::string unit;
    for (const char each : text.substr(std::min(text.find_first_not_of(' '), text.size()))) {
        unit += static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
    }
    const std::size_t power = unit.empty() ? 0 : kUnits.find(unit.front());
    const bool known =
        unit.size() < 2 ||
        (power > 0 && (unit.substr(1) == "b" || unit.substr(1) == "i" || unit.substr(1) == "ib"));
    const auto size = static_cast<std::uint64_t>(number);
    if (power == std::string_view::npos || !known || size > (UINT64_MAX >> (10 * power))) {
        return std::nullopt;
    }
    return size << (10 * power);
}

} // namespace

Argument& Argument::Required() {
    option_->required();
    return *this;
}
Argument& Argument::TypeName(const std::string& name) {
    option_->type_name(name);
    return *this;
}
Argument& Argument::ShowDefault() {
    option_->capture_default_str();
    return *this;
}
Argument& Argument::Group(const std::string& heading) {
    option_->group(heading);
    return *this;
}
Argument& Argument::Delimiter(char delimiter) {
    option_->delimiter(delimiter);
    return *this;
}
Argument& Argument::OnePerUse() {
    option_->allow_extra_args(false);
    return *this;
}
Argument& Argument::Times(int least, int most) {
    option_->expected(least, most);
    return *this;
}
Argument& Argument::OneOf(const std::vector<std::string>& words) {
    option_->check(CLI::IsMember(words));
    return *this;
}
Argument& Argument::BetweenWhole(std::int64_t least, std::int64_t most) {
    option_->check(CLI::Range(least, most));
    return *this;
}
Argument& Argument::BetweenWhole(std::uint64_t least, std::uint64_t most) {
    option_->check(CLI::Range(least, most));
    return *this;
}
Argument& Argument::Between(double least, double most) {
    option_->check(CLI::Range(least, most));
    return *this;
}
Argument& Argument::Positive() {
    return Check([](const std::string& text) {
        std::uint64_t number = 0;
        return ParseNumber(text, number) && number > 0 ? std::string()
                                                       : Quoted(text) + " is not a whole number above 0";
    });
}
Argument& Argument::Existing() {
    option_->check(CLI::ExistingPath);
    return *this;
}
Argument& Argument::Size() {
    option_->transform(CLI::Validator(
        [](std::string& text) {
            const auto size = ParseSize(text);
            std::string problem = size ? std::string() : Quoted(text) + " is no size, such as 512M or 8GiB";
            text = std::to_string(size.value_or(0));
            return problem;
        },
        ""));
    return *this;
}
Argument& Argument::Check(std::function<std::string(const std::string&)> check) {
    option_->check(
        CLI::Validator([check = std::move(check)](const std::string& text) { return check(text); }, ""));
    return *this;
}
Argument& Argument::WholeNumber() {
    return Check([](const std::string& text) {
        std::uint64_t number = 0;
        return ParseNumber(text, number) ? std::string() : Quoted(text) + " is not a whole number";
    });
}

template <class Value>
Argument AddOption(CLI::App& command, const std::string& names, Value& value,
                   const std::string& description) {
    return Argument(*command.add_option(names, value, description));
}
// Both word sizes have other names for the same sizes.
template Argument AddOption(CLI::App&, const std::string&, std::string&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::vector<std::string>&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::uint16_t&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, int&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, unsigned&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, long&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, unsigned long&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, long long&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, unsigned long long&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, double&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::optional<std::int64_t>&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::optional<std::uint64_t>&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::optional<unsigned>&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::vector<std::uint64_t>&, const std::string&);
template Argument AddOption(CLI::App&, const std::string&, std::vector<unsigned>&, const std::string&);

Argument AddOption(CLI::App& command, const std::string& name,
                   const std::function<void(const std::string&)>& take, const std::string& description) {
    return Argument(*command.add_option_function<std::string>(name, take, description));
}
Argument AddFlag(CLI::App& command, const std::string& names, bool& value, const std::string& description) {
    return Argument(*command.add_flag(names, value, description));
}
Argument AddFlag(CLI::App& command, const std::string& name, std::function<void()> given,
                 const std::string& description) {
    return Argument(*command.add_flag_callback(name, std::move(given), description));
}

CLI::App* AddSubcommand(CLI::App& app, const std::string& name, const std::string& description) {
    return app.add_subcommand(name, description);
}
void OnCall(CLI::App& command, std::function<void()> action) {
    command.callback(std::move(action));
}
void BeforeOptions(CLI::App& command, std::function<void()> action) {
    command.preparse_callback([action = std::move(action)](std::size_t /*words*/) { action(); });
}

void OnlyLongHelp(CLI::App& command) {
    command.set_help_flag("--help", "Print this help message and exit");
}

void DescribeProgram(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& version, const std::string& footer) {
    app.name(name);
    app.description(description);
    app.require_subcommand(1);
    app.set_version_flag("--version", name + " " + version);
    app.footer(footer);
}

} // namespace NimaPost
