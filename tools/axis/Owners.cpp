#include "tools/axis/Owners.h"

#include "tools/axis/ProcessChange.h"

#include <algorithm>
#include <iterator>
#include <utility>

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

} // namespace

Owners::Owners(Processes& processes, const ProcessFacts& facts) : processes_(&processes) {
    if (facts.threads.empty()) {
        return;
    }
    all_ = processes.WithAnyOf(facts.threads);
    if (all_) {
        processes.Widen(*all_, facts);
        for (const std::uint32_t thread : facts.threads) {
            if (!MayHave(processes[*all_], thread)) {
                each_[thread] = std::nullopt; // Of another process that shares the block.
            }
        }
        return;
    }
    for (const std::uint32_t thread : facts.threads) {
        const auto& known = processes.All();
        if (std::any_of(known.begin(), known.end(),
                        [&](const ProcessFacts& each) { return each.threads.contains(thread); })) {
            each_[thread] = processes.WithAnyOf({thread});
        }
    }
    if (each_.empty()) {
        ProcessFacts added = facts;
        added.proof = kOnlyUndated;
        added.assumed = true;
        all_ = processes.Add(std::move(added));
    }
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
