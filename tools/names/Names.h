#pragma once

#include "tools/base/FileIdentity.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NimaPost {

/// An event in words: a name and, if given, a text with printf conversions for its 32-bit arguments.
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

    /// Adds the lines of a file to the dictionary. Returns false if the file cannot be read or a line is not
    /// understood; `problem` then names file and line.
    bool Load(const std::string& path, std::string& problem);
    bool AddLine(std::string_view line, std::string& problem);
    /// The identity of the file that was loaded last.
    std::optional<FileIdentity> File() const { return file_; }

    /// "Engine", or "component 2".
    std::string Component(std::uint32_t number) const;
    /// "level 1", or its name.
    std::string Level(std::uint32_t number) const;
    /// Empty if the thread has no name.
    std::string Thread(std::uint32_t id) const;
    /// By name or number, for filters.
    std::optional<std::uint32_t> FindComponent(std::string_view text) const;
    std::optional<std::uint32_t> FindLevel(std::string_view text) const;

    const EventName* Event(std::uint32_t component, std::uint32_t event) const;
    const EventName* RingEvent(std::string_view ring, std::uint32_t code) const;

  private:
    using Words = std::vector<std::string>;
    struct Kind;

    static const std::array<Kind, 5>& Kinds();
    static bool AddNumbered(std::map<std::uint32_t, std::string>& names, const Words& words,
                            std::uint32_t most);
    static bool TakeEvent(const Words& words, std::uint32_t most, std::uint32_t& number, EventName& event,
                          std::string& problem);
    bool AddComponent(const Words& words, std::string& problem);
    bool AddLevel(const Words& words, std::string& problem);
    bool AddThread(const Words& words, std::string& problem);
    bool AddEvent(const Words& words, std::string& problem);
    bool AddRingEvent(const Words& words, std::string& problem);

    std::optional<FileIdentity> file_;
    std::map<std::uint32_t, std::string> components_;
    std::map<std::uint32_t, std::string> levels_;
    std::map<std::uint32_t, std::string> threads_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, EventName> events_;
    std::map<std::pair<std::string, std::uint32_t>, EventName, std::less<>> ringEvents_;
};

} // namespace NimaPost
