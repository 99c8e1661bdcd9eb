#include "tools/report/CrashData.h"

#include "catalogue/Marks.h"
#include "tools/base/BoundJson.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/crash/CrashSummary.h"

namespace NimaPost {

namespace {

template <class Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json TimeJson(const Axis& axis, const std::optional<std::int64_t>& time) {
    return !time ? Json() : axis.HasWall() ? Json(WallTimeIso(*time)) : Json(MomentInWords(axis, *time));
}

Json FilesJson(const std::vector<std::size_t>& files, const Story& story) {
    Json names = Json::array();
    for (const std::size_t file : files) {
        names.push_back(ToUtf8(story.Files()[file].name));
    }
    return names;
}

} // namespace

std::string MomentInWords(const Axis& axis, std::int64_t time) {
    std::string text;
    if (axis.HasWall()) {
        AppendWallTime(text, time);
    } else {
        AppendSeconds(text, time);
    }
    return text;
}

std::string DoubtInWords(const Crash& crash, const Story& story) {
    std::string logs;
    for (const std::size_t file : crash.perhapsOf) {
        logs += (logs.empty() ? "perhaps one crash with " : " or ") + Printable(story.Files()[file].name);
    }
    return logs;
}

std::string TimeInWords(const Crash& crash, const Axis& axis) {
    if (!crash.time) {
        return "";
    }
    const std::string time = WithMark(MomentInWords(axis, *crash.time), crash.certainty);
    return crash.log == nullptr ? time : time + (crash.log->byLog ? kByLog : kByHead);
}

std::string ProcessOfCrash(const Crash& crash, const Story& story) {
    const ProcessFacts& facts = story.Time().AllProcesses()[*crash.process];
    return (facts.recordsProbable ? "probably " : "") + ProcessInWords(*crash.process, facts);
}

Json DoubtJson(const ProcessFacts& facts) {
    const std::string_view doubt = DoubtOf(facts);
    return doubt.empty() ? Json() : Json(doubt);
}

Json CrashJson(const Crash& crash, const Story& story) {
    const std::string_view after = EvidenceInWords(crash.after);
    const bool isProbable = crash.process && story.Time().AllProcesses()[*crash.process].recordsProbable;
    Json json{{"title", ToUtf8(crash.title)},
              {"files", FilesJson(crash.files, story)},
              {"perhaps_of", FilesJson(crash.perhapsOf, story)},
              {"time", TimeJson(story.Time(), crash.time)},
              {"certainty", MarkOf(crash.certainty).code},
              {"assumed", crash.certainty.assumed},
              {"dated_by", crash.log == nullptr || !crash.time ? Json()
                           : crash.log->byLog                  ? Json("log")
                                                               : Json("head")},
              {"after_by", after.empty() ? Json() : Json(after)},
              {"boot", OrNull(crash.boot)},
              {"boot_doubt", crash.process ? DoubtJson(story.Time().AllProcesses()[*crash.process]) : Json()},
              {"process", OrNull(crash.process)},
              {"process_doubt", isProbable ? Json("probably") : Json()},
              {"thread", crash.thread ? Json(Hex32(*crash.thread)) : Json()},
              {"process_id", OrNull(crash.processId)}};
    AddBounds(json, crash.certainty);
    if (crash.log != nullptr) {
        json["boot_cycle"] = OrNull(crash.log->log.BootCycle());
        json["error_code"] = ToUtf8(crash.log->log.Field(Nima::Catalogue::kErrorCode));
    }
    return json;
}

Json CrashesJson(const Story& story) {
    Json crashes = Json::array();
    for (const Crash& crash : story.Crashes()) {
        crashes.push_back(CrashJson(crash, story));
    }
    return crashes;
}

std::vector<std::string> CrashLines(const Story& story) {
    std::vector<std::string> lines;
    for (const Crash& crash : story.Crashes()) {
        std::string line = "crash " + std::to_string(lines.size() + 1) + " of " +
                           std::to_string(story.Crashes().size()) + ": ";
        if (crash.time) {
            line += MomentInWords(story.Time(), *crash.time);
            line += std::string(" ") + MarkOf(crash.certainty).sign + "  ";
        }
        line += crash.title;
        std::string more;
        if (crash.log != nullptr && crash.log->log.BootCycle()) {
            more += ", boot cycle " + std::to_string(*crash.log->log.BootCycle());
        }
        if (crash.process) {
            more += ", " + ProcessOfCrash(crash, story);
        }
        const std::string_view after = EvidenceInWords(crash.after);
        if (!after.empty()) {
            more += ", after the one before by ";
            more += crash.after == CrashEvidence::kAssumed ? "assumption" : after;
        }
        for (const std::size_t file : crash.files) {
            more += ", " + Printable(story.Files()[file].name);
        }
        more += crash.perhapsOf.empty() ? "" : ", " + DoubtInWords(crash, story);
        lines.push_back(line + " (" + more.substr(2) + ")");
    }
    return lines;
}

} // namespace NimaPost
