#include "tools/axis/Owners.h"

#include "tools/axis/ProcessChange.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

namespace NimaPost {

namespace {

/// Whether a thread that is not among those of a process may be one of it all the same.
bool MayHave(const ProcessFacts& process, std::uint32_t thread) {
    const auto& threads = process.threads;
    if (threads.empty()) {
        return false;
    }
    // The nearest ones, on a circle.
    const auto next = threads.lower_bound(thread);
    const std::uint32_t after = next != threads.end() ? *next : *threads.begin();
    const std::uint32_t before = next != threads.begin() ? *std::prev(next) : *threads.rbegin();
    return MayBeOfOneProcess(after, thread) || MayBeOfOneProcess(before, thread);
}

/// Whether one of the threads may be of a process that is known.
bool IsNearAny(const Processes& processes, const std::set<std::uint32_t>& threads) {
    return std::any_of(processes.All().begin(), processes.All().end(), [&](const ProcessFacts& process) {
        return std::any_of(threads.begin(), threads.end(),
                           [&](std::uint32_t thread) { return MayHave(process, thread); });
    });
}

} // namespace

Owners::Owners(Processes& processes, const ProcessFacts& facts) : processes_(&processes) {
    const std::size_t known = processes.All().size();
    if (!facts.threads.empty()) {
        Find(facts);
    }
    if (processes.All().size() == known) {
        DoubtRecurring();
    }
}

void Owners::Find(const ProcessFacts& facts) {
    Processes& processes = *processes_;
    const std::vector<std::size_t> known = processes.AllWithAnyOf(facts.threads, facts.bootCycle);
    ofCycle_ = processes.WithAnyOf(facts.threads, facts.bootCycle);
    if (ofCycle_ && ofCycle_ == facts.notOf) {
        ofCycle_.reset();
        return;
    }
    if (ofCycle_) {
        processes.TakeBootCycle(*ofCycle_, facts.bootCycle);
    }
    if (ofCycle_ && known.size() == 1) {
        all_ = ofCycle_;
        processes.Widen(*all_, facts);
        for (const std::uint32_t thread : facts.threads) {
            if (!MayHave(processes[*all_], thread)) {
                each_[thread] = std::nullopt; // Of another process that shares the block.
            }
        }
        return;
    }
    // What one of an earlier boot cycle has left may be among them.
    for (const std::uint32_t thread : facts.threads) {
        const std::vector<std::size_t> having = processes.AllWithAnyOf({thread}, facts.bootCycle);
        if (!having.empty()) {
            const bool isOne = having.size() == 1 && !processes.IsOfAnotherCycle(having[0], facts.bootCycle);
            each_[thread] = isOne ? std::optional(having[0]) : std::nullopt;
        }
    }
    const bool anyOfCycle = std::any_of(known.begin(), known.end(), [&](std::size_t number) {
        return !processes.IsOfAnotherCycle(number, facts.bootCycle);
    });
    if (!anyOfCycle) {
        ProcessFacts added = facts;
        const bool others = !processes.AllWithAnyOf(facts.threads).empty();
        added.proof =
            others ? "its crash log is of another boot cycle than those with its threads" : kOnlyUndated;
        if (!others && IsNearAny(processes, facts.threads)) {
            added.proof += ", but one has threads near them, and may be the same";
        }
        added.doubtful = true;
        added.proof += "; its number does not tell when it ran";
        added.assumed = true;
        all_ = ofCycle_ = processes.Add(std::move(added));
    }
}

/// Of those that only threads tell the records to be of.
void Owners::DoubtRecurring() {
    std::set<std::size_t> told;
    told.insert(all_.value_or(0));
    for (const auto& [thread, process] : each_) {
        told.insert(process.value_or(0));
    }
    told.erase(0);
    for (const std::size_t process : told) {
        if (processes_->SharesThreads(process)) {
            processes_->DoubtRecords(process, "another process has some of its threads' identifiers");
        }
    }
}

std::optional<std::size_t> Owners::WriterOf(std::uint32_t thread) const {
    const auto process = ProcessOf(thread);
    return process ? process : ofCycle_;
}

std::optional<std::size_t> Owners::ProcessOf(std::optional<std::uint32_t> thread) const {
    if (!thread) {
        return each_.empty() ? all_ : std::nullopt;
    }
    const auto found = each_.find(*thread);
    return found != each_.end() ? found->second : all_;
}

std::optional<std::size_t> Owners::BootOf(std::optional<std::uint32_t> thread) const {
    const auto process = ProcessOf(thread);
    return process ? (*processes_)[*process].boot : std::nullopt;
}

} // namespace NimaPost
