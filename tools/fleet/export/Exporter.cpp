#include "tools/fleet/export/Exporter.h"

#include "tools/base/ContentHash.h"
#include "tools/base/Progress.h"
#include "tools/fleet/CaseReader.h"
#include "tools/fleet/Crew.h"
#include "tools/fleet/PartDevices.h"
#include "tools/fleet/export/CaseTables.h"
#include "tools/fleet/export/ExportFolder.h"
#include "tools/fleet/export/Partitions.h"
#include "tools/input/EvidenceParts.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>
#include <variant>

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

/// What has been written of a case: all but its crashes.
struct Written {
    CaseData data;
    std::unique_ptr<Partitions> partitions;
    std::uint64_t events = 0;
    std::string problem; ///< why it could not be written
};

using Exported = std::variant<Written, Findings>;

/// Which cases need not be written again, by device and content.
class DoneCases {
  public:
    bool Has(const CaseData& data) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return done_.contains({data.device, data.content});
    }
    /// False for one that is there.
    bool Add(const CaseData& data) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return done_.emplace(data.device, data.content).second;
    }

  private:
    mutable std::mutex mutex_;
    std::set<std::pair<std::string, std::string>> done_;
};

class ExportWorker {
  public:
    ExportWorker(const std::vector<EvidencePart>& parts, const ExportTask& task, const Names& names,
                 const ExportFolder& folder, const DoneCases& done, OrderedResults<Exported>& results)
        : parts_(parts),
          task_(task),
          names_(names),
          folder_(folder),
          deviceNames_(task.deviceFrom),
          done_(done),
          results_(results) {}

    void Read(std::size_t number) const {
        Findings found;
        std::size_t devices = 0;
        ForEachDevice(parts_[number], task_.limits, found, [&](Device& device) {
            const std::string prefix = "/" + std::to_string(number) + "-" + std::to_string(++devices) + "-";
            return ReadDevice(number, device, folder_.Unfinished() + prefix, found);
        });
        results_.Put(number, std::move(found));
    }

  private:
    /// False where nobody wants the rest.
    bool ReadDevice(std::size_t number, Device& device, const std::string& unfinished,
                    Findings& found) const {
        Written written;
        CaseData& data = written.data = CaseOf(device, parts_[number], deviceNames_);
        if (done_.Has(data)) {
            return true;
        }
        std::string problem;
        Story story(names_);
        if (!story.Read(device, data.path, problem)) {
            found.Damage("cannot-read", problem);
            return true;
        }
        TellCase(story, data);
        written.partitions =
            std::make_unique<Partitions>(folder_.Path(), unfinished, data.device, data.content, task_.form);
        try {
            written.events = CaseTables(data, task_.form, *written.partitions).Write(story);
            written.partitions->Close();
        } catch (const std::system_error& failed) {
            written.problem = failed.what();
        }
        return results_.Put(number, std::move(written));
    }

    const std::vector<EvidencePart>& parts_;
    const ExportTask& task_;
    const Names& names_;
    const ExportFolder& folder_;
    DeviceNames deviceNames_;
    const DoneCases& done_;
    OrderedResults<Exported>& results_;
};

class Exporting {
  public:
    Exporting(const ExportTask& task, const Names& names, const ExportFolder& folder, ExportResult& result)
        : task_(task), names_(names), folder_(folder), result_(result) {}

    /// False, with the reason, if something cannot be written.
    bool Run(std::string& problem) {
        const OwnFile own(AbsolutePath(task_.folder));
        std::vector<EvidencePart> parts;
        for (const std::string& path : task_.paths) {
            std::vector<EvidencePart> more = PartsOf(path, own);
            std::move(more.begin(), more.end(), std::back_inserter(parts));
        }
        OrderedResults<Exported> results(parts.size(), task_.threads);
        const ExportWorker worker(parts, task_, names_, folder_, done_, results);
        const Crew<Exported> crew(task_.threads, results, [&](std::size_t number) { worker.Read(number); });
        for (std::size_t number = 0; number < parts.size() && problem_.empty(); ++number) {
            Progress::Note(parts[number].path, number, parts.size());
            Take(results, number);
        }
        result_.crashes = crashIds_.Count();
        problem = problem_;
        return problem.empty();
    }

  private:
    void Take(OrderedResults<Exported>& results, std::size_t number) {
        while (problem_.empty()) {
            auto result = results.Get(number);
            if (!result) {
                return;
            }
            std::visit([&](auto& each) { Take(each); }, *result);
        }
    }

    void Take(const Findings& found) { result_.findings = Joined(std::move(result_.findings), found); }

    void Take(Written& written) {
        // A copy may have been written before this was known.
        if (!done_.Add(written.data)) {
            return;
        }
        problem_ = written.problem;
        if (!problem_.empty()) {
            return;
        }
        try {
            Finish(written);
        } catch (const std::system_error& failed) {
            problem_ = failed.what();
        }
    }

    void Finish(Written& written) {
        std::vector<std::string> crashIds;
        for (const CaseCrash& crash : written.data.crashes) {
            crashIds.push_back(crashIds_.Of(written.data.device, crash));
        }
        CaseTables(written.data, task_.form, *written.partitions).WriteCrashes(crashIds);
        result_.files += written.partitions->Finish();
        result_.events += written.events;
        ++result_.cases;
        result_.damagedCases += written.data.findings.damage.empty() ? 0 : 1;
    }

    const ExportTask& task_;
    const Names& names_;
    const ExportFolder& folder_;
    ExportResult& result_;
    CrashIds crashIds_;
    DoneCases done_;
    std::string problem_;
};

} // namespace

bool Export(const ExportTask& task, const Names& names, ExportResult& result, std::string& problem) {
    ExportFolder folder;
    return folder.Open(task.folder, task.form, problem) &&
           Exporting(task, names, folder, result).Run(problem);
}

} // namespace NimaPost
