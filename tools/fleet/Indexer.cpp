#include "tools/fleet/Indexer.h"

#include "tools/base/Progress.h"
#include "tools/base/Text.h"
#include "tools/fleet/CaseReader.h"
#include "tools/fleet/CaseWriter.h"
#include "tools/fleet/Crew.h"
#include "tools/fleet/DeviceNames.h"
#include "tools/fleet/PartDevices.h"
#include "tools/input/EvidenceParts.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <utility>
#include <variant>

namespace NimaPost {

namespace {

using Result = std::variant<CaseData, PartFindings>;
/// Device and content of the cases that need not be read.
using KnownCases = std::set<std::pair<std::string, std::string>>;

class Worker {
  public:
    Worker(const std::vector<EvidencePart>& parts, const IndexTask& task, const Names& names,
           const DeviceNames& deviceNames, const KnownCases& known, OrderedResults<Result>& results)
        : parts_(parts),
          task_(task),
          names_(names),
          deviceNames_(deviceNames),
          known_(known),
          results_(results) {}

    void Read(std::size_t number) const {
        PartFindings found;
        found.path = AbsolutePath(parts_[number].path);
        ForEachDevice(parts_[number], task_.limits, found.findings,
                      [&](Device& device) { return ReadDevice(number, device, found); });
        results_.Put(number, std::move(found));
    }

  private:
    /// False where nobody wants the rest.
    bool ReadDevice(std::size_t number, Device& device, PartFindings& found) const {
        CaseData data = CaseOf(device, parts_[number], deviceNames_);
        data.known = known_.contains({data.device, data.content});
        std::string problem;
        if (!data.known && !ReadCase(device, names_, data, problem)) {
            found.findings.Damage("cannot-read", problem);
            return true;
        }
        return results_.Put(number, std::move(data));
    }

    const std::vector<EvidencePart>& parts_;
    const IndexTask& task_;
    const Names& names_;
    const DeviceNames& deviceNames_;
    const KnownCases& known_;
    OrderedResults<Result>& results_;
};

KnownCases KnownIn(Database& database) {
    KnownCases known;
    Statement all(database,
                  "SELECT devices.name, cases.content FROM cases JOIN devices ON devices.id = "
                  "cases.device_id");
    for (all.Start(); all.Next();) {
        known.emplace(all.Text(0).value_or(""), all.Text(1).value_or(""));
    }
    return known;
}

class Writing {
  public:
    explicit Writing(std::string path) : path_(std::move(path)) {
        std::error_code error;
        if (std::filesystem::exists(path_, error)) {
            Open();
        }
    }

    KnownCases Known() { return database_ ? KnownIn(*database_) : KnownCases(); }

    void Take(const CaseData& data) {
        if (!database_) {
            Open();
        }
        const CaseWriter::Outcome outcome = writer_->Write(data);
        ++result_.cases;
        result_.newCases += outcome.isNew ? 1 : 0;
        result_.damagedCases += outcome.damaged ? 1 : 0;
        result_.newCrashes += outcome.newCrashes;
    }
    void Take(const PartFindings& found) {
        writer_ ? writer_->Write(found) : waiting_.push_back(found);
        result_.findings = Joined(std::move(result_.findings), found.findings);
    }
    IndexResult Finish() {
        writer_.reset();
        if (database_) {
            database_->Settle();
        }
        return std::move(result_);
    }

  private:
    void Open() {
        database_.emplace(Database::ForWriting(path_));
        writer_.emplace(*database_);
        for (const PartFindings& found : std::exchange(waiting_, {})) {
            writer_->Write(found);
        }
    }

    std::string path_;
    std::optional<Database> database_;
    std::optional<CaseWriter> writer_;
    std::vector<PartFindings> waiting_; ///< while there is no database
    IndexResult result_;
};

} // namespace

IndexResult Index(const IndexTask& task, const Names& names) {
    const OwnFile own(task.database);
    std::vector<EvidencePart> parts;
    for (const std::string& path : task.paths) {
        std::vector<EvidencePart> more = PartsOf(path, own);
        std::move(more.begin(), more.end(), std::back_inserter(parts));
    }
    Writing writing(task.database);
    const KnownCases known = writing.Known();
    const DeviceNames deviceNames(task.deviceFrom);
    OrderedResults<Result> results(parts.size(), task.threads);
    const Worker worker(parts, task, names, deviceNames, known, results);
    const Crew<Result> crew(task.threads, results, [&](std::size_t number) { worker.Read(number); });
    for (std::size_t number = 0; number < parts.size(); ++number) {
        Progress::Note(parts[number].path, number, parts.size());
        while (const auto result = results.Get(number)) {
            std::visit([&](const auto& each) { writing.Take(each); }, *result);
        }
    }
    return writing.Finish();
}

} // namespace NimaPost
