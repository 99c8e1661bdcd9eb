#include "ctl/TemporaryLevels.h"

#include <algorithm>
#include <utility>

#include <sys/stat.h>

namespace NimaCtl {

namespace {

/// How long the closing waits where the opening has waited in vain for the end of a dump.
constexpr std::chrono::seconds kShort{1};

} // namespace

TemporaryLevels::~TemporaryLevels() {
    std::string ignored;
    Close(ignored);
}

bool TemporaryLevels::Open(const Filter& wanted, std::string& problem) {
    const auto turn = Turn::Take(block_, Turn::kPatience, problem, isToEnd_);
    if (!turn) {
        return false;
    }
    const Filter open = block_.ReadFilters().Effective();
    const Filter noted = NotedLevels(directory_, block_);
    struct stat status {};
    fstat(block_.File().Number(), &status);
    Note note{NimaPost::IdentityOf(status), {}};
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        note.levels[i] = wanted[i] & (~open[i] | noted[i]);
    }
    journal_ = Journal::Create(directory_, note, problem);
    if (!journal_) {
        return false;
    }
    opened_ = note.levels;
    FilterChange change;
    change.set = note.levels;
    held_ = Steer(block_, change, patience_, isToEnd_).held;
    return true;
}

bool TemporaryLevels::AreOpen() const {
    const Filter levels = journal_->Levels();
    const Filters filters = block_.ReadFilters();
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if ((levels[i] & ~filters.Lasting()[i]) != 0) {
            return false;
        }
    }
    return true;
}

bool TemporaryLevels::Close(std::string& problem) {
    if (!journal_) {
        return true;
    }
    const Journal journal = std::move(*journal_);
    journal_.reset();
    const auto turn = Turn::Take(block_, Turn::kPatience, problem);
    if (!turn) {
        return false;
    }
    const Filter levels = journal.Levels();
    const Filter others = journal.LevelsOfOthers();
    FilterChange change;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        change.clear[i] = levels[i] & ~others[i];
    }
    const auto patience = held_ ? std::min<std::chrono::nanoseconds>(patience_, kShort) : patience_;
    const bool closed = Steer(block_, change, patience).done;
    if (block_.File().Lost()) {
        problem = block_.File().LostText();
        return false;
    }
    if (!closed) {
        problem = "a dump opened the levels again";
        return false;
    }
    journal.Remove();
    return true;
}

} // namespace NimaCtl
