#include "tools/story/Story.h"

#include "tools/story/Collection.h"
#include "tools/story/EventOrder.h"
#include "tools/story/Folder.h"

#include <algorithm>

namespace NimaPost {

bool Story::Read(Device& device, const std::string& where, std::string& problem) {
    where_ = where;
    // Sources keep the files' addresses.
    files_.resize(device.files.size());
    for (std::size_t i = 0; i < files_.size(); ++i) {
        files_[i].index = i;
        ReadFolderFile(device.files[i], files_[i], sources_, known_);
    }
    const ManifestSource* const manifests = Find<ManifestSource>();
    const bool hasManifest = manifests != nullptr && !manifests->All().empty();
    if (hasManifest) {
        ApplyManifest(manifests->All().front().content, files_, axis_);
    }
    std::vector<Source*> sources = sources_.All();
    std::stable_sort(sources.begin(), sources.end(),
                     [](const Source* a, const Source* b) { return a->PlacedAt() < b->PlacedAt(); });
    for (const Source* source : sources) {
        source->Announce(axis_.AllProcesses());
    }
    for (Source* source : sources) {
        source->Date(axis_);
    }
    for (Source* source : sources) {
        source->Place(axis_);
    }
    telling_.assign(sources.begin(), sources.end());
    std::stable_sort(telling_.begin(), telling_.end(),
                     [](const Source* a, const Source* b) { return a->Tells() < b->Tells(); });
    if (hasManifest) {
        ReportContradictions(axis_, files_[manifests->All().front().file]);
    }
    if (!EventOrder(axis_.AllProcesses()).IsThatOfTimes()) {
        axis_.State({"boots-out-of-order",
                     "By their dates, boots do not follow each other. Lists are in the order of boots; the "
                     "timeline and "
                     "the page, which draw dates, are not."});
    }
    crashes_ = FindCrashes(files_, sources_, FindLastEvents(), axis_);
    const bool any = std::any_of(files_.begin(), files_.end(), [](const FolderFile& file) {
        return file.row != nullptr && file.row->isEvidence && !file.unusable;
    });
    if (!any) {
        problem = where + ": nothing in it that the diagnostics library leaves behind";
    }
    return any;
}

void Story::ForEach(const EventVisitor& visitor) const {
    ForEach([](EventKind /*kind*/) { return true; }, visitor);
}

void Story::ForEach(const std::function<bool(EventKind)>& isWanted, const EventVisitor& visitor) const {
    for (const Source* source : telling_) {
        if (isWanted(source->Tells()) && !source->ForEach(visitor)) {
            return;
        }
    }
}

/// Needed only where something without a date comes after everything else: logs are read once more for it.
LastEvents Story::FindLastEvents() const {
    LastEvents last;
    if (Find<StackTraceSource>() == nullptr) {
        return last;
    }
    const EventOrder order(axis_.AllProcesses());
    ForEach([&](const TimelineEvent& event) {
        if (event.time) {
            const EventOrder::Key key = order.KeyOf(event.time, event.boot);
            std::int64_t& ofFile = last.ofFile.try_emplace(event.file, *event.time).first->second;
            // Lines of logs are told first and in their order, whatever their times are.
            const bool isLine = event.kind == EventKind::kText;
            ofFile = isLine ? *event.time : std::max(ofFile, *event.time);
            last.ofAll = isLine ? key : std::max(last.ofAll, std::optional(key));
        }
        return true;
    });
    return last;
}

Findings Story::AllDamage() const {
    Findings all;
    for (const FolderFile& file : files_) {
        Findings damage;
        damage.damage = file.findings.damage;
        all.Append(file.name, damage);
    }
    return all;
}

Findings Story::AllFindings() const {
    Findings all;
    for (const FolderFile& file : files_) {
        all.Append(file.name, file.findings);
    }
    const auto& statement = axis_.Statement();
    all.remarks.insert(all.remarks.end(), statement.begin(), statement.end());
    return all;
}

std::vector<FileIdentity> Story::Inputs() const {
    std::vector<FileIdentity> inputs;
    for (const FolderFile& file : files_) {
        if (!file.ownOutput) {
            inputs.push_back(file.identity);
        }
    }
    if (const auto dictionary = names_.File()) {
        inputs.push_back(*dictionary);
    }
    return inputs;
}

} // namespace NimaPost
