#include "tools/fleet/export/CaseTables.h"

#include "tools/base/BoundJson.h"
#include "tools/base/Certainty.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/WallClock.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace NimaPost {

namespace {

constexpr std::array<std::string_view, kEventKinds> kKinds{"text", "binary", "ring", "record"};
/// Of "2026-11-24T15:09:26.046886123".
constexpr std::size_t kDayWidth = 10;

OptionalNumber Bound(std::int64_t seconds) {
    return seconds == Certainty::kUnbounded ? OptionalNumber() : OptionalNumber(seconds);
}

template <class Value>
OptionalNumber NumberOf(const std::optional<Value>& value) {
    return value ? OptionalNumber(static_cast<std::int64_t>(*value)) : std::nullopt;
}

} // namespace

std::uint64_t CaseTables::Write(const Story& story) {
    std::uint64_t events = 0;
    story.ForEach([&](const TimelineEvent& event) {
        Event(story, event);
        ++events;
        return true;
    });
    for (std::size_t i = 0; i < data_.processes.size(); ++i) {
        Process(data_.processes[i], static_cast<std::int64_t>(i) + 1);
    }
    for (const CaseData::File& file : data_.files) {
        File(file);
    }
    FindingRows(data_.findings.damage, true);
    FindingRows(data_.findings.remarks, false);
    return events;
}

void CaseTables::WriteCrashes(const std::vector<std::string>& ids) {
    for (std::size_t i = 0; i < data_.crashes.size(); ++i) {
        Crash(data_.crashes[i], ids[i]);
    }
}

void CaseTables::Begin() {
    row_.Begin();
    row_.Text("case_id", data_.content);
}

void CaseTables::End(std::string_view table, const TimeText& time) {
    row_.End();
    partitions_.Add(table, time ? std::string_view(*time).substr(0, kDayWidth) : std::string_view(), row_);
}

void CaseTables::Bounds(const Certainty& certainty) {
    row_.Text("certainty", MarkOf(certainty).code);
    row_.Number("later_by_seconds", Bound(certainty.ProvenLater()));
    row_.Number("earlier_by_seconds", Bound(certainty.ProvenEarlier()));
    row_.Number("date_cut_ns", certainty.originLater);
}

void CaseTables::LikelyBounds(const Certainty& certainty) {
    const char* const premise = CodeOf(certainty.premise);
    row_.Number("likely_later_by_seconds", certainty.LikelyLater());
    row_.Text("assuming", certainty.LikelyLater() ? premise : "");
    row_.Number("likely_earlier_by_seconds", certainty.LikelyEarlier());
    row_.Text("earlier_assuming", certainty.LikelyEarlier() ? premise : "");
}

void CaseTables::Event(const Story& story, const TimelineEvent& event) {
    const bool hasWall = story.Time().HasWall();
    const TimeText time = event.time && hasWall ? TimeText(WallTimeIso(*event.time)) : std::nullopt;
    Begin();
    row_.MaybeText("time", time);
    row_.Number("elapsed_ns", event.time && !hasWall ? event.time : OptionalNumber());
    Bounds(event.certainty);
    LikelyBounds(event.certainty);
    row_.Text("kind", kKinds.at(static_cast<std::size_t>(event.kind)));
    row_.Text("file", story.Files()[event.file].name);
    row_.Number("boot", NumberOf(event.boot));
    row_.Number("process", NumberOf(event.process));
    row_.Number("thread", NumberOf(event.thread));
    row_.Text("level", event.level);
    row_.Text("name", event.name);
    row_.Text("text", event.text);
    row_.Numbers("arguments", event.arguments);
    row_.Text("state", event.mark);
    row_.Flag("continues", event.continued);
    End("events", time);
}

void CaseTables::Crash(const CaseCrash& crash, const std::string& id) {
    Begin();
    row_.Text("crash_id", id);
    row_.Number("marks", static_cast<std::int64_t>(crash.marks.size()));
    row_.Text("signature", crash.signature.text);
    row_.Text("title", crash.title);
    row_.MaybeText("time", crash.time);
    row_.Flag("assumed", crash.assumed);
    row_.Number("boot", crash.boot);
    row_.Number("process", crash.process);
    row_.Number("process_id", crash.processId);
    row_.MaybeText("code", crash.code);
    row_.MaybeText("file", crash.file);
    row_.MaybeText("line", crash.line);
    Bounds(crash.certainty);
    row_.Text("boot_doubt", crash.bootDoubt);
    row_.Text("process_doubt", crash.processDoubt);
    End("crashes", crash.time);
}

void CaseTables::Process(const CaseData::Process& process, std::int64_t number) {
    Begin();
    row_.Number("process", number);
    row_.Number("boot", process.boot);
    row_.MaybeText("first", process.first);
    row_.MaybeText("last", process.last);
    row_.Number("threads", process.threads);
    row_.Text("evidence", process.evidence);
    row_.Text("boot_doubt", process.bootDoubt);
    row_.Text("doubts", process.doubts);
    End("processes", process.first);
}

void CaseTables::File(const CaseData::File& file) {
    Begin();
    row_.Text("path", data_.path);
    row_.Text("member", data_.member);
    row_.Text("name", file.name);
    row_.Text("kind", file.kind);
    row_.Number("bytes", file.bytes);
    row_.Number("events", file.events);
    row_.Text("state", file.state);
    End("files", data_.last);
}

void CaseTables::FindingRows(const std::vector<Finding>& findings, bool damage) {
    for (const Finding& finding : findings) {
        Begin();
        row_.Flag("damage", damage);
        row_.Text("code", finding.code);
        row_.Text("sentence", finding.sentence);
        End("findings", data_.last);
    }
}

} // namespace NimaPost
