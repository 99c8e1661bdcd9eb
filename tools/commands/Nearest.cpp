#include "tools/commands/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace NimaPost {

namespace {

/// How many letters are to be put in, left out, replaced or exchanged with the next one.
std::size_t Distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t same = a[i - 1] == b[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + same});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

} // namespace

std::string Nearest(const std::string& word, const std::vector<std::string>& names) {
    std::string nearest;
    // Beyond a third of its letters a word is another one.
    std::size_t least = std::max<std::size_t>(word.size() / 3, 1) + 1;
    for (const std::string& name : names) {
        const std::size_t distance = Distance(word, name);
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace NimaPost
