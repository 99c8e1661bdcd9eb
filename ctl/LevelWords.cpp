#include "ctl/LevelWords.h"

#include "catalogue/SysTrace.h"

#include <optional>
#include <utility>

namespace NimaCtl {

namespace {

/// The numbers that a word means: one, or with "all" every one.
using Range = std::pair<std::uint32_t, std::uint32_t>;

/// `named` is what a dictionary knows the word as, of `count` numbers of its kind.
bool FindNumbers(std::optional<std::uint32_t> named, const std::string& kind, const std::string& text,
                 std::uint32_t count, Range& found, std::string& problem) {
    found = named ? Range(*named, *named + 1) : Range(0, count);
    if (!named && text != "all") {
        problem = "no " + kind + " \"" + text + "\": a number from 0 to " + std::to_string(count - 1) +
                  ", \"all\", or a name of the dictionary";
        return false;
    }
    return true;
}

bool FindComponents(const Names& names, const std::string& text, Range& found, std::string& problem) {
    return FindNumbers(names.FindComponent(text), "component", text, Nima::Catalogue::kComponents, found,
                       problem);
}

bool FindLevels(const Names& names, const std::string& text, Range& found, std::string& problem) {
    return FindNumbers(names.FindLevel(text), "level", text, Nima::Catalogue::kTraceLevels, found, problem);
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
