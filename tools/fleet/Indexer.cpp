#include "tools/fleet/Indexer.h"

#include "tools/base/Progress.h"
#include "tools/base/Text.h"
#include "tools/fleet/CaseReader.h"
#include "tools/fleet/CaseWriter.h"
#include "tools/fleet/DeviceNames.h"
#include "tools/fleet/OrderedResults.h"
#include "tools/input/EvidenceParts.h"
#include "tools/story/Folder.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>
#include <variant>

namespace NimaPost {

namespace {

/// A thread reads at most so many parts before the one that is being written.
constexpr std::size_t kPartsAhead = 4;

using Result = std::variant<CaseData, PartFindings>;
/// Device and content of the cases that need not be read.
using KnownCases = std::set<std::pair<std::string, std::string>>;

/// As somebody finds it from another folder, too.
std::string Absolute(const std::string& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error).lexically_normal();
    if (absolute.filename().empty() && absolute.has_relative_path()) {
        absolute = absolute.parent_path();
    }
    return error ? path : absolute.string();
}

/// Whether it holds files none of which can be opened, so that nobody knows what it is.
bool IsClosed(const Device& device) {
    return !device.files.empty() && std::all_of(device.files.begin(), device.files.end(),
                                                [](const auto& file) { return !file.problem.empty(); });
}

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

    void Run() const {
        while (const auto number = results_.TakePiece()) {
            PartFindings found;
            found.path = Absolute(parts_[*number].path);
            try {
                Read(*number, found);
            } catch (const std::exception& error) {
                // One folder is to cost no other.
                found.findings.Damage("cannot-read", parts_[*number].path + ": " + error.what());
            }
            results_.Put(*number, std::move(found));
            results_.Finish(*number);
        }
    }

  private:
    void Read(std::size_t number, PartFindings& found) const {
        const EvidencePart& part = parts_[number];
        if (!part.problem.empty()) {
            found.findings.Damage("cannot-open", part.problem);
        }
        if (!part.isArchive && part.files.empty()) {
            return;
        }
        Evidence evidence = ReadPart(part, task_.limits);
        found.findings = Joined(std::move(found.findings), evidence.findings);
        for (Device& device : evidence.devices) {
            if (HoldsEvidence(device)) {
                if (!ReadDevice(number, device, found)) {
                    return;
                }
            } else if (IsClosed(device) && !part.holdsParts) {
                found.findings.Damage("cannot-open", device.files.front().problem);
            }
        }
    }

    /// False where nobody wants the rest.
    bool ReadDevice(std::size_t number, Device& device, PartFindings& found) const {
        CaseData data;
        data.path = found.path;
        data.member = device.name;
        data.device = deviceNames_.Of(parts_[number].path, device.name);
        data.content = ContentOf(device);
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

/// Lets threads work for as long as it lives.
class Crew {
  public:
    Crew(unsigned threads, OrderedResults<Result>& results, const Worker& worker) : results_(results) {
        for (unsigned i = 0; i < threads; ++i) {
            threads_.emplace_back([worker] { worker.Run(); });
        }
    }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    ~Crew() {
        results_.Stop();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

  private:
    OrderedResults<Result>& results_;
    std::vector<std::thread> threads_;
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
    explicit Writing(Database& database) : writer_(database) {}

    void Take(const CaseData& data) {
        const CaseWriter::Outcome outcome = writer_.Write(data);
        ++result_.cases;
        result_.newCases += outcome.isNew ? 1 : 0;
        result_.damagedCases += outcome.damaged ? 1 : 0;
        result_.newCrashes += outcome.newCrashes;
    }
    void Take(const PartFindings& found) {
        writer_.Write(found);
        result_.findings = Joined(std::move(result_.findings), found.findings);
    }
    IndexResult Take() { return std::move(result_); }

  private:
    CaseWriter writer_;
    IndexResult result_;
};

} // namespace

IndexResult Index(const IndexTask& task, const Names& names, Database& database) {
    const OwnFile own(task.database);
    std::vector<EvidencePart> parts;
    for (const std::string& path : task.paths) {
        std::vector<EvidencePart> more = PartsOf(path, own);
        std::move(more.begin(), more.end(), std::back_inserter(parts));
    }
    const KnownCases known = KnownIn(database);
    const DeviceNames deviceNames(task.deviceFrom);
    Writing writing(database);
    OrderedResults<Result> results(parts.size(), std::size_t{task.threads} * kPartsAhead);
    const Crew crew(task.threads, results, Worker(parts, task, names, deviceNames, known, results));
    for (std::size_t number = 0; number < parts.size(); ++number) {
        Progress::Note(parts[number].path, number, parts.size());
        while (const auto result = results.Get(number)) {
            std::visit([&](const auto& each) { writing.Take(each); }, *result);
        }
    }
    return writing.Take();
}

} // namespace NimaPost
