#include "ctl/LevelWords.h"

#include "catalogue/SysTrace.h"

#include <utility>

namespace NimaCtl {

namespace {

std::string NoSuch(const std::string& kind, const std::string& text, std::uint32_t count) {
    return "no " + kind + " \"" + text + "\": a number from 0 to " + std::to_string(count - 1) +
           ", \"all\", or a name of the dictionary";
}

/// The numbers that a word means: one, or with "all" every one.
using Range = std::pair<std::uint32_t, std::uint32_t>;

bool FindComponents(const Names& names, const std::string& text, Range& found, std::string& problem) {
    const auto component = names.FindComponent(text);
    found = component ? Range(*component, *component + 1) : Range(0, Nima::Catalogue::kComponents);
    if (!component && text != "all") {
        problem = NoSuch("component", text, Nima::Catalogue::kComponents);
        return false;
    }
    return true;
}

bool FindLevels(const Names& names, const std::string& text, Range& found, std::string& problem) {
    const auto level = names.FindLevel(text);
    found = level ? Range(*level, *level + 1) : Range(0, Nima::Catalogue::kTraceLevels);
    if (!level && text != "all") {
        problem = NoSuch("level", text, Nima::Catalogue::kTraceLevels);
        return false;
    }
    return true;
}

} // namespace

bool AddLevel(const Names& names, const std::string& component, const std::string& level,
              FilterChange& change, bool off, std::string& problem) {
    Range components;
    Range levels;
    if (!FindComponents(names, component, components, problem) ||
        !FindLevels(names, level, levels, problem)) {
        return false;
    }
    for (std::uint32_t each = components.first; each < components.second; ++each) {
        for (std::uint32_t number = levels.first; number < levels.second; ++number) {
            off ? change.Close(each, number) : change.Open(each, number);
        }
    }
    return true;
}

bool OpenPairs(const Names& names, const std::vector<std::string>& words, FilterChange& change,
               std::string& problem) {
    for (const std::string& word : words) {
        // A name of the dictionary may contain a colon.
        const std::size_t colon = word.rfind(':');
        if (colon == std::string::npos) {
            problem = "\"" + word + "\" is no COMPONENT:LEVEL";
            return false;
        }
        if (!AddLevel(names, word.substr(0, colon), word.substr(colon + 1), change, false, problem)) {
            return false;
        }
    }
    return true;
}

} // namespace NimaCtl
