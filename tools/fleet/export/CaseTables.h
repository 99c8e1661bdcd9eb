#pragma once

#include "tools/fleet/CaseData.h"
#include "tools/fleet/export/Partitions.h"
#include "tools/fleet/export/TableRow.h"
#include "tools/story/Story.h"

#include <cstdint>
#include <string>
#include <vector>

namespace NimaPost {

/// Writes what a case tells as rows of the tables of doc/schema.md.
class CaseTables {
  public:
    CaseTables(const CaseData& data, TableForm form, Partitions& partitions)
        : data_(data), row_(form), partitions_(partitions) {}

    /// All but the crashes. Returns the number of events.
    std::uint64_t Write(const Story& story);
    /// `ids`: by what each of the case's crashes is known.
    void WriteCrashes(const std::vector<std::string>& ids);

  private:
    void Begin();
    void End(std::string_view table, const TimeText& time);
    void Bounds(const Certainty& certainty);
    void LikelyBounds(const Certainty& certainty);
    void Event(const Story& story, const TimelineEvent& event);
    void Crash(const CaseCrash& crash, const std::string& id);
    void Process(const CaseData::Process& process, std::int64_t number);
    void File(const CaseData::File& file);
    void FindingRows(const std::vector<Finding>& findings, bool damage);

    const CaseData& data_;
    TableRow row_;
    Partitions& partitions_;
};

} // namespace NimaPost
