#include "tools/log/Copies.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <numeric>
#include <string>

namespace NimaPost {

namespace {

/// Nearly all files that differ do so here: a log begins with a counter.
constexpr std::size_t kFront = 32;
constexpr std::size_t kComparedAtOnce = 1 << 16;

bool BeginsWith(const InputFile& file, const InputFile& other) {
    std::vector<char> ofFile(kComparedAtOnce);
    std::vector<char> ofOther(kComparedAtOnce);
    for (std::uint64_t at = 0; at < other.Size();) {
        const std::size_t size = other.ReadAt(at, ofOther);
        if (size == 0 || file.ReadAt(at, ofFile) < size ||
            std::memcmp(ofOther.data(), ofFile.data(), size) != 0) {
            return false;
        }
        at += size;
    }
    return true;
}

} // namespace

std::vector<std::optional<std::size_t>> FindCopies(const std::vector<const LogFile*>& files) {
    std::vector<std::size_t> order(files.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return files[a]->file.Size() > files[b]->file.Size();
    });
    std::vector<std::optional<std::size_t>> copies(files.size());
    std::map<std::string, std::vector<std::size_t>> kept; ///< by what they begin with
    for (const std::size_t i : order) {
        const InputFile& file = files[i]->file;
        std::vector<std::size_t>& alike = kept[file.ReadAll(kFront)];
        const auto longer = std::find_if(alike.begin(), alike.end(), [&](std::size_t other) {
            return files[other]->kind == files[i]->kind && BeginsWith(files[other]->file, file);
        });
        if (longer != alike.end()) {
            copies[i] = *longer;
        } else {
            alike.push_back(i);
        }
    }
    return copies;
}

} // namespace NimaPost
