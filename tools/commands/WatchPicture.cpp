#include "tools/commands/WatchPicture.h"

#include "catalogue/Rings.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/systrace/RecordText.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <span>
#include <utility>

namespace NimaPost {

namespace {

std::string Rate(double perSecond) {
    return std::to_string(std::llround(perSecond)) + "/s";
}

/// The components that have written since the last tick, the busiest first.
std::vector<std::uint32_t> Busy(const TraceLook& look) {
    std::vector<std::uint32_t> components;
    for (std::uint32_t i = 0; i < look.newOfComponent.size(); ++i) {
        if (look.newOfComponent[i] > 0) {
            components.push_back(i);
        }
    }
    std::stable_sort(components.begin(), components.end(), [&](std::uint32_t a, std::uint32_t b) {
        return look.newOfComponent[a] > look.newOfComponent[b];
    });
    return components;
}

std::span<const SysTraceRecord> LastRecords(const TraceLook& look, std::size_t most) {
    const std::span<const SysTraceRecord> all(look.newest.records);
    return all.last(std::min(most, all.size()));
}

Json RingJson(const WatchTick& tick, std::size_t index, const RingLook& ring, const Names& names) {
    Json json{{"index", index},
              {"name", Nima::Catalogue::kRings[index].name},
              {"used", ring.used},
              {"entries", ring.entries},
              {"new", ring.fresh ? Json(*ring.fresh) : Json()},
              {"all_new", ring.fresh && *ring.fresh == ring.entries},
              {"per_second", tick.PerSecond(ring.fresh.value_or(0))},
              {"newest", Json()}};
    if (ring.newest) {
        std::string text;
        AppendRingEvent(text, names, Nima::Catalogue::kRings[index].name, *ring.newest);
        json["newest"] = {{"counter", ring.newest->timestamp},
                          {"thread", Hex32(ring.newest->threadId)},
                          {"words", ring.newest->words},
                          {"text", ToUtf8(text)}};
    }
    return json;
}

} // namespace

void WatchPicture::Heading(const std::string& directory, const std::string& ending) {
    std::string line;
    AppendWallTime(line, tick_.time);
    line.resize(line.size() - 6);
    line += "  ";
    AppendPrintable(line, directory);
    lines_.push_back(line + ending);
}

void WatchPicture::TraceHead() {
    const TraceLook& look = *tick_.trace;
    const SysTraceHeader& header = look.header;
    if (!look.problem.empty()) {
        Line("SysTrace  ", look.problem);
        return;
    }
    lines_.push_back("SysTrace  " + CaptureInWords(header, false) + ", wraps " +
                     std::to_string(header.wrapCount) + ", write index " + std::to_string(header.writeIndex) +
                     " in " + std::to_string(header.entryCount) + " entries, thread words " +
                     ((header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0 ? "on" : "off"));
    if (!look.newEntries) {
        return;
    }
    lines_.push_back(
        "  new       " + Counted(*look.newEntries, "entry") + " (" + Rate(tick_.PerSecond(*look.newEntries)) +
        "), " + Counted(look.newRecords, "record") + " (" + Rate(tick_.PerSecond(look.newRecords)) + ")" +
        (look.notLookedAt > 0 ? ", " + std::to_string(look.notLookedAt) + " entries not looked at"
                              : std::string()));
    std::string line = "  from    ";
    for (const std::uint32_t component : Busy(look)) {
        line += "  ";
        AppendPrintable(line, names_.Component(component));
        line += ": " + std::to_string(look.newOfComponent[component]);
    }
    if (look.newRecords > 0) {
        lines_.push_back(line);
    }
}

void WatchPicture::Records(std::size_t most) {
    const TraceLook& look = *tick_.trace;
    const auto records = look.problem.empty() ? LastRecords(look, most) : std::span<const SysTraceRecord>();
    for (const SysTraceRecord& record : records) {
        std::string line = "  ";
        AppendSeconds(line, record.elapsed - records.back().elapsed);
        line += "  ";
        AppendRecord(line, look.newest, record, names_);
        lines_.push_back(std::move(line));
    }
}

void WatchPicture::Rings() {
    const RingsLook& look = *tick_.rings;
    if (!look.problem.empty()) {
        Line("Rings     ", look.problem);
        return;
    }
    std::string line = "Rings     laid out by process " + std::to_string(look.processId);
    if (look.process.lives) {
        line += " (";
        AppendPrintable(line, look.process.name);
        line += "), which is running";
    } else {
        line += ", which is gone";
    }
    lines_.push_back(line);
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        if (look.rings[i].used > 0) {
            RingLine(i, look.rings[i]);
        }
    }
}

void WatchPicture::Line(std::string label, std::string_view text) {
    AppendPrintable(label, text);
    lines_.push_back(std::move(label));
}

void WatchPicture::RingLine(std::size_t index, const RingLook& ring) {
    std::array<char, 80> row{};
    const std::string rate =
        ring.fresh ? (*ring.fresh == ring.entries ? ">" : "") + Rate(tick_.PerSecond(*ring.fresh))
                   : std::string();
    std::snprintf(row.data(), row.size(), "  %2zu %-17s%5u/%-5u%9s  ", index,
                  std::string(Nima::Catalogue::kRings[index].name).c_str(), ring.used, ring.entries,
                  rate.c_str());
    std::string line = row.data();
    if (ring.newest) {
        AppendRingEvent(line, names_, Nima::Catalogue::kRings[index].name, *ring.newest);
    }
    lines_.push_back(std::move(line));
}

Json TraceJson(const WatchTick& tick, const Names& names, std::size_t most) {
    const TraceLook& look = *tick.trace;
    if (!look.problem.empty()) {
        return {{"problem", ToUtf8(look.problem)}};
    }
    const SysTraceHeader& header = look.header;
    Json components = Json::array();
    for (const std::uint32_t component : Busy(look)) {
        components.push_back({{"component", component},
                              {"name", ToUtf8(names.Component(component))},
                              {"records", look.newOfComponent[component]}});
    }
    Json records = Json::array();
    const auto last = LastRecords(look, most);
    for (const SysTraceRecord& record : last) {
        Json json = RecordJson(look.newest, record, names);
        json.erase("elapsed_ns");
        json.erase("process");
        json["before_newest_ns"] = record.elapsed - last.back().elapsed;
        records.push_back(std::move(json));
    }
    return {{"problem", Json()},
            {"state", header.state},
            {"state_name", CaptureStateName(header.state)},
            {"tracing", TracingName(TracingOf(header, false))},
            {"wrap_count", header.wrapCount},
            {"write_index", header.writeIndex},
            {"entry_count", header.entryCount},
            {"new_entries", look.newEntries ? Json(*look.newEntries) : Json()},
            {"new_records", look.newRecords},
            {"not_looked_at", look.notLookedAt},
            {"entries_per_second", tick.PerSecond(look.newEntries.value_or(0))},
            {"records_per_second", tick.PerSecond(look.newRecords)},
            {"components", std::move(components)},
            {"records", std::move(records)}};
}

Json RingsJson(const WatchTick& tick, const Names& names) {
    const RingsLook& look = *tick.rings;
    if (!look.problem.empty()) {
        return {{"problem", ToUtf8(look.problem)}};
    }
    Json rings = Json::array();
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        if (look.rings[i].used > 0) {
            rings.push_back(RingJson(tick, i, look.rings[i], names));
        }
    }
    return {{"problem", Json()},
            {"process", look.processId},
            {"lives", look.process.lives},
            {"process_name", look.process.lives ? Json(ToUtf8(look.process.name)) : Json()},
            {"rings", std::move(rings)}};
}

} // namespace NimaPost
