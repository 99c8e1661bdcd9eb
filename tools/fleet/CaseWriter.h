#pragma once

#include "tools/fleet/CaseData.h"
#include "tools/fleet/Database.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace NimaPost {

/// What a part of the input has beside its cases: what was wrong with it as such.
struct PartFindings {
    std::string path;
    Findings findings;
};

/// Puts cases into a database, each in a transaction of its own.
class CaseWriter {
  public:
    explicit CaseWriter(Database& database);

    /// What became of a case.
    struct Outcome {
        bool isNew = false;
        bool damaged = false;         ///< as it was when it was read
        std::uint64_t newCrashes = 0; ///< that no earlier bundle of the device held
    };
    Outcome Write(const CaseData& data);
    /// In the place of what was found at the same path before.
    void Write(const PartFindings& part);

  private:
    std::int64_t DeviceOf(const std::string& name);
    /// The number of the case; 0 where the database does not have it.
    std::int64_t Find(std::int64_t device, const CaseData& data);
    void WriteNew(std::int64_t device, const CaseData& data, Outcome& outcome);
    void WriteFindings(std::optional<std::int64_t> number, const std::string& path, const Findings& findings);
    /// Whether the crash is new.
    bool WriteCrash(std::int64_t device, std::int64_t number, const CaseCrash& crash);
    /// The number of a crash that the database has under any of the marks; 0 for a new one. Where the marks
    /// are those of several, these turn out to be one, and become it.
    std::int64_t FindCrash(std::int64_t device, const CaseCrash& crash);
    void UniteCrashes(std::int64_t device, std::int64_t kept, std::int64_t other);
    /// Whether this tells at least as much of a known crash as all bundles before.
    bool KnowsAll(std::int64_t device, std::int64_t known, const CaseCrash& crash);
    void WriteDetails(std::int64_t crashId, const CaseCrash& crash);
    std::int64_t MessageOf(const MessageKey& key);

    Database& database_;
    Statement addDevice_;
    Statement findDevice_;
    Statement findCase_;
    Statement casePath_;
    Statement moveCase_;
    Statement addCase_;
    Statement isDamaged_;
    Statement addFile_;
    Statement addBoot_;
    Statement addProcess_;
    Statement addCount_;
    Statement addFinding_;
    Statement dropFindings_;
    Statement findMark_;
    Statement countMarks_;
    Statement addMark_;
    Statement addCrash_;
    Statement dateCrash_;
    Statement describeCrash_;
    Statement moveMarks_;
    Statement moveCaseCrashes_;
    Statement dropCaseCrashes_;
    Statement dropFrames_;
    Statement dropCrashMessages_;
    Statement dropCrash_;
    Statement addCaseCrash_;
    Statement addFrame_;
    Statement addMessage_;
    Statement findMessage_;
    Statement addCaseMessage_;
    Statement addCrashMessage_;
};

} // namespace NimaPost
