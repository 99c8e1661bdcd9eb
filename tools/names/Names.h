#pragma once

#include "tools/base/InputFile.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace NimaPost {

/// An event in words: a name and, where given, a text with printf conversions for its 32-bit arguments.
struct EventName {
    std::string name;
    std::string format;
    /// How many arguments the format takes; empty without a format.
    std::optional<std::size_t> arguments;
};

/// The dictionary that turns numbers into words, doc/nima-post.md. It knows the library's own events from the
/// start.
class Names {
  public:
    Names();

    /// Adds the lines of a file to the dictionary. False where the file cannot be read or a line is not
    /// understood; `problem` then names file and line.
    bool Load(const std::string& path, std::string& problem);
    bool AddLine(std::string_view line, std::string& problem);

    /// "Engine", or "component 2".
    std::string Component(std::uint32_t number) const;
    /// "level 1", or its name.
    std::string Level(std::uint32_t number) const;
    /// Empty where the thread has no name.
    std::string Thread(std::uint32_t id) const;
    /// By name or number, for filters.
    std::optional<std::uint32_t> FindComponent(std::string_view text) const;
    std::optional<std::uint32_t> FindLevel(std::string_view text) const;

    const EventName* Event(std::uint32_t component, std::uint32_t event) const;
    const EventName* RingEvent(std::string_view ring, std::uint32_t code) const;

  private:
    struct Line;

    std::map<std::uint32_t, std::string> components_;
    std::map<std::uint32_t, std::string> levels_;
    std::map<std::uint32_t, std::string> threads_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, EventName> events_;
    std::map<std::pair<std::string, std::uint32_t>, EventName, std::less<>> ringEvents_;
};

/// Puts arguments into a format of the dictionary. Arguments that the format does not take follow in
/// hexadecimal, missing ones show as "?".
void AppendFormatted(std::string& out, const EventName& event, std::span<const std::uint32_t> arguments);

} // namespace NimaPost
