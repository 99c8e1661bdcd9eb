#include "tools/fleet/export/Exporter.h"

#include "tools/base/ContentHash.h"
#include "tools/base/Progress.h"
#include "tools/fleet/CaseReader.h"
#include "tools/fleet/PartDevices.h"
#include "tools/fleet/export/CaseTables.h"
#include "tools/fleet/export/ExportFolder.h"
#include "tools/fleet/export/Partitions.h"
#include "tools/input/EvidenceParts.h"

#include <cstddef>
#include <map>
#include <set>
#include <system_error>
#include <utility>

namespace NimaPost {

namespace {

/// Knows crashes again that an earlier case of the device held.
class CrashIds {
  public:
    std::string Of(const std::string& device, const CaseCrash& crash) {
        std::string id;
        for (const std::string& mark : crash.marks) {
            const auto known = ids_.find({device, mark});
            if (known != ids_.end()) {
                id = known->second;
                break;
            }
        }
        if (id.empty()) {
            ContentHash hash;
            hash.AddWhole(device);
            hash.AddWhole(crash.marks.empty() ? crash.title : crash.marks.front());
            id = hash.Hexadecimal();
            all_.insert(id);
        }
        for (const std::string& mark : crash.marks) {
            ids_.try_emplace({device, mark}, id);
        }
        return id;
    }

    std::size_t Count() const { return all_.size(); }

  private:
    std::map<std::pair<std::string, std::string>, std::string> ids_; ///< by device and mark
    std::set<std::string> all_;
};

class Exporting {
  public:
    Exporting(const ExportTask& task, const Names& names, const ExportFolder& folder, ExportResult& result)
        : task_(task), names_(names), folder_(folder), result_(result), deviceNames_(task.deviceFrom) {}

    /// False, with the reason, if something cannot be written.
    bool Run(std::string& problem) {
        const OwnFile own(AbsolutePath(task_.folder));
        std::vector<EvidencePart> parts;
        for (const std::string& path : task_.paths) {
            std::vector<EvidencePart> more = PartsOf(path, own);
            std::move(more.begin(), more.end(), std::back_inserter(parts));
        }
        for (std::size_t number = 0; number < parts.size() && problem_.empty(); ++number) {
            Progress::Note(parts[number].path, number, parts.size());
            ForEachDevice(parts[number], task_.limits, result_.findings, [&](Device& device) {
                Take(device, parts[number]);
                return problem_.empty();
            });
        }
        result_.crashes = crashIds_.Count();
        problem = problem_;
        return problem.empty();
    }

  private:
    void Take(Device& device, const EvidencePart& part) {
        CaseData data = CaseOf(device, part, deviceNames_);
        std::string unreadable;
        Story story(names_);
        if (!done_.emplace(data.device, data.content).second) {
            return;
        }
        if (!story.Read(device, data.path, unreadable)) {
            result_.findings.Damage("cannot-read", unreadable);
            return;
        }
        TellCase(story, data);
        try {
            Write(story, data);
        } catch (const std::system_error& failed) {
            problem_ = failed.what();
        }
    }

    void Write(const Story& story, const CaseData& data) {
        Partitions partitions(folder_.Path(), folder_.Unfinished(), data.device, data.content, task_.form);
        std::vector<std::string> crashIds;
        for (const CaseCrash& crash : data.crashes) {
            crashIds.push_back(crashIds_.Of(data.device, crash));
        }
        result_.events += CaseTables(story, data, task_.form, partitions).Write(crashIds);
        result_.files += partitions.Finish();
        ++result_.cases;
        result_.damagedCases += data.findings.damage.empty() ? 0 : 1;
    }

    const ExportTask& task_;
    const Names& names_;
    const ExportFolder& folder_;
    ExportResult& result_;
    DeviceNames deviceNames_;
    CrashIds crashIds_;
    std::set<std::pair<std::string, std::string>> done_; ///< device and content
    std::string problem_;
};

} // namespace

bool Export(const ExportTask& task, const Names& names, ExportResult& result, std::string& problem) {
    ExportFolder folder;
    return folder.Open(task.folder, task.form, problem) &&
           Exporting(task, names, folder, result).Run(problem);
}

} // namespace NimaPost
