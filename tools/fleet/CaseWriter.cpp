#include "tools/fleet/CaseWriter.h"

#include "tools/base/Text.h"

#include <filesystem>
#include <system_error>

namespace NimaPost {

CaseWriter::CaseWriter(Database& database)
    : database_(database),
      addDevice_(database, "INSERT OR IGNORE INTO devices (name) VALUES (?)"),
      findDevice_(database, "SELECT id FROM devices WHERE name = ?"),
      findCase_(database, "SELECT id FROM cases WHERE device_id = ? AND content = ?"),
      casePath_(database, "SELECT path FROM cases WHERE id = ?"),
      moveCase_(database, "UPDATE cases SET path = ?, member = ? WHERE id = ?"),
      addCase_(database,
               "INSERT INTO cases (device_id, content, path, member, first, last) VALUES (?, ?, ?, ?, ?, ?)"),
      isDamaged_(database, "SELECT 1 FROM findings WHERE case_id = ? AND damage LIMIT 1"),
      addFile_(database, "INSERT OR REPLACE INTO files VALUES (?, ?, ?, ?, ?, ?)"),
      addBoot_(database, "INSERT INTO boots VALUES (?, ?, ?, ?, ?)"),
      addProcess_(database, "INSERT INTO processes VALUES (?, ?, ?, ?, ?, ?, ?)"),
      addCount_(database, "INSERT INTO counts VALUES (?, ?, ?, ?, ?)"),
      addFinding_(database, "INSERT INTO findings VALUES (?, ?, ?, ?, ?)"),
      dropFindings_(database, "DELETE FROM findings WHERE case_id IS NULL AND path = ?"),
      findMark_(database, "SELECT crash_id FROM crash_marks WHERE device_id = ? AND mark = ?"),
      countMarks_(database, "SELECT count(*) FROM crash_marks WHERE device_id = ? AND crash_id = ?"),
      addMark_(database, "INSERT OR IGNORE INTO crash_marks VALUES (?, ?, ?)"),
      addCrash_(database,
                "INSERT INTO crashes (device_id, case_id, signature, title, time, assumed, boot, process, "
                "process_id, code, file, line) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      dateCrash_(database,
                 "UPDATE crashes SET time = ?1, assumed = ?2 WHERE id = ?3 AND (time IS NULL OR "
                 "assumed > ?2 OR (assumed = 1 AND ?2 = 1 AND time > ?1))"),
      describeCrash_(database,
                     "UPDATE crashes SET signature = ?, title = ?, process_id = coalesce(?, process_id), "
                     "code = ?, file = ?, line = ? WHERE id = ?"),
      moveMarks_(database, "UPDATE crash_marks SET crash_id = ? WHERE device_id = ? AND crash_id = ?"),
      moveCaseCrashes_(database, "UPDATE OR IGNORE case_crashes SET crash_id = ? WHERE crash_id = ?"),
      dropCaseCrashes_(database, "DELETE FROM case_crashes WHERE crash_id = ?"),
      dropFrames_(database, "DELETE FROM frames WHERE crash_id = ?"),
      dropCrashMessages_(database, "DELETE FROM crash_messages WHERE crash_id = ?"),
      dropCrash_(database, "DELETE FROM crashes WHERE id = ?"),
      addCaseCrash_(database, "INSERT OR IGNORE INTO case_crashes VALUES (?, ?)"),
      addFrame_(database, "INSERT INTO frames VALUES (?, ?, ?, ?, ?, ?)"),
      addMessage_(database, "INSERT OR IGNORE INTO messages (level, name, text) VALUES (?, ?, ?)"),
      findMessage_(database, "SELECT id FROM messages WHERE level = ? AND name = ? AND text = ?"),
      addCaseMessage_(database, "INSERT INTO case_messages VALUES (?, ?, ?, ?, ?)"),
      addCrashMessage_(database, "INSERT OR IGNORE INTO crash_messages VALUES (?, ?)") {}

std::int64_t CaseWriter::DeviceOf(const std::string& name) {
    addDevice_.Run(name);
    return findDevice_.First(name).value_or(0);
}

std::int64_t CaseWriter::Find(std::int64_t device, const CaseData& data) {
    const std::int64_t number = findCase_.First(device, data.content).value_or(0);
    std::string path = data.path;
    for (casePath_.Start(number); casePath_.Next();) {
        path = casePath_.Text(0).value_or("");
    }
    // Somebody has moved it.
    std::error_code error;
    if (path != data.path && !std::filesystem::exists(path, error)) {
        moveCase_.Run(data.path, data.member, number);
    }
    return number;
}

CaseWriter::Outcome CaseWriter::Write(const CaseData& data) {
    Outcome outcome;
    Transaction transaction(database_);
    const std::int64_t device = DeviceOf(data.device);
    const std::int64_t number = Find(device, data);
    if (number != 0) {
        outcome.damaged = isDamaged_.First(number).has_value();
    } else if (!data.known) {
        WriteNew(device, data, outcome);
    }
    transaction.Commit();
    return outcome;
}

void CaseWriter::WriteNew(std::int64_t device, const CaseData& data, Outcome& outcome) {
    addCase_.Run(device, data.content, data.path, data.member, data.first, data.last);
    const std::int64_t number = database_.LastId();
    for (const CaseData::File& file : data.files) {
        addFile_.Run(number, file.name, file.kind, file.bytes, file.events, file.state);
    }
    for (const auto& [boot, facts] : data.boots) {
        addBoot_.Run(number, boot, facts.first, facts.last, facts.processes);
    }
    std::int64_t process = 0;
    for (const CaseData::Process& facts : data.processes) {
        addProcess_.Run(number, ++process, facts.boot, facts.first, facts.last, facts.threads,
                        facts.evidence);
    }
    for (const CaseData::Count& count : data.counts) {
        addCount_.Run(number, count.kind, count.name, count.level, count.count);
    }
    for (const auto& [key, said] : data.messages) {
        addCaseMessage_.Run(number, key.first, MessageOf(key.second), said.count, said.example);
    }
    for (const CaseCrash& crash : data.crashes) {
        outcome.newCrashes += WriteCrash(device, number, crash) ? 1 : 0;
    }
    WriteFindings(number, data.path, data.findings);
    outcome.isNew = true;
    outcome.damaged = !data.findings.damage.empty();
}

void CaseWriter::WriteFindings(std::optional<std::int64_t> number, const std::string& path,
                               const Findings& findings) {
    for (const Finding& finding : findings.damage) {
        addFinding_.Run(number, path, std::int64_t{1}, finding.code, ToUtf8(finding.sentence));
    }
    for (const Finding& finding : findings.remarks) {
        addFinding_.Run(number, path, std::int64_t{0}, finding.code, ToUtf8(finding.sentence));
    }
}

void CaseWriter::Write(const PartFindings& part) {
    Transaction transaction(database_);
    dropFindings_.Run(part.path);
    WriteFindings({}, part.path, part.findings);
    transaction.Commit();
}

bool CaseWriter::WriteCrash(std::int64_t device, std::int64_t number, const CaseCrash& crash) {
    const std::int64_t known = FindCrash(device, crash);
    const std::int64_t assumed = crash.assumed ? 1 : 0;
    std::int64_t id = known;
    if (known == 0) {
        addCrash_.Run(device, number, crash.signature.text, crash.title, crash.time, assumed, crash.boot,
                      crash.process, crash.processId, crash.code, crash.file, crash.line);
        id = database_.LastId();
        WriteDetails(id, crash);
    } else if (KnowsAll(device, known, crash)) {
        describeCrash_.Run(crash.signature.text, crash.title, crash.processId, crash.code, crash.file,
                           crash.line, id);
        WriteDetails(id, crash);
    }
    if (known != 0 && crash.time) {
        // The surest date of all bundles; of assumed ones the first, since each rests on what came later.
        dateCrash_.Run(crash.time, assumed, id);
    }
    for (const std::string& mark : crash.marks) {
        addMark_.Run(device, mark, id);
    }
    addCaseCrash_.Run(number, id);
    return known == 0;
}

std::int64_t CaseWriter::FindCrash(std::int64_t device, const CaseCrash& crash) {
    std::int64_t known = 0;
    for (const std::string& mark : crash.marks) {
        const std::int64_t found = findMark_.First(device, mark).value_or(0);
        if (known == 0) {
            known = found;
        } else if (found != 0 && found != known) {
            UniteCrashes(device, known, found);
        }
    }
    return known;
}

bool CaseWriter::KnowsAll(std::int64_t device, std::int64_t known, const CaseCrash& crash) {
    std::int64_t shared = 0;
    for (const std::string& mark : crash.marks) {
        shared += findMark_.First(device, mark) == known ? 1 : 0;
    }
    return shared == countMarks_.First(device, known);
}

void CaseWriter::UniteCrashes(std::int64_t device, std::int64_t kept, std::int64_t other) {
    moveMarks_.Run(kept, device, other);
    moveCaseCrashes_.Run(kept, other);
    dropCaseCrashes_.Run(other);
    dropFrames_.Run(other);
    dropCrashMessages_.Run(other);
    dropCrash_.Run(other);
}

void CaseWriter::WriteDetails(std::int64_t crashId, const CaseCrash& crash) {
    dropFrames_.Run(crashId);
    for (std::size_t i = 0; i < crash.lines.size() && i < crash.signature.frames.size(); ++i) {
        const SignatureFrame& frame = crash.signature.frames[i];
        const auto function = frame.function.empty() ? std::nullopt : std::optional(ToUtf8(frame.function));
        addFrame_.Run(crashId, static_cast<std::int64_t>(i + 1), crash.lines[i], function,
                      std::int64_t{frame.foreign ? 1 : 0}, std::int64_t{frame.chosen ? 1 : 0});
    }
    for (const MessageKey& key : crash.messages) {
        addCrashMessage_.Run(crashId, MessageOf(key));
    }
}

std::int64_t CaseWriter::MessageOf(const MessageKey& key) {
    if (const auto known = findMessage_.First(key.level, key.name, key.text)) {
        return *known;
    }
    addMessage_.Run(key.level, key.name, key.text);
    return database_.LastId();
}

} // namespace NimaPost
