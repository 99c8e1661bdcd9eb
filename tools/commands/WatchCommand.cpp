#include "tools/base/Interrupt.h"
#include "tools/base/LocalTime.h"
#include "tools/base/Screen.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/commands/Commands.h"
#include "tools/rings/LiveRings.h"
#include "tools/systrace/LiveTrace.h"
#include "tools/words/Wording.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <deque>
#include <filesystem>
#include <memory>

#include <poll.h>

namespace NimaPost {

namespace {

using Clock = std::chrono::steady_clock;

/// An interrupt that comes between the look for one and the wait is noticed after this time.
constexpr std::chrono::milliseconds kLongestWait(200);
constexpr std::size_t kUsualRecords = 10;
/// As many notices stay on the screen.
constexpr std::size_t kNotices = 4;

struct Options {
    std::string directory = ".";
    std::int64_t interval = 500;
    std::uint64_t count = 0;
    std::optional<std::size_t> last;
};

/// What one tick has found.
struct Tick {
    std::uint64_t number = 0;
    std::int64_t time = 0;
    double seconds = 0; ///< since the tick before
    const TraceLook* trace = nullptr;
    const RingsLook* rings = nullptr;
    std::vector<std::string> notices;

    double PerSecond(std::uint64_t count) const {
        return seconds > 0 ? static_cast<double>(count) / seconds : 0;
    }
};

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

/// Lines of printable text for one tick.
class Picture {
  public:
    Picture(const Tick& tick, const Names& names) : tick_(tick), names_(names) {}

    void Heading(const std::string& directory, const std::string& ending) {
        std::string line;
        AppendWallTime(line, tick_.time);
        line.resize(line.size() - 6);
        line += "  ";
        AppendPrintable(line, directory);
        lines_.push_back(line + ending);
    }

    void TraceHead() {
        const TraceLook& look = *tick_.trace;
        const SysTraceHeader& header = look.header;
        if (!look.problem.empty()) {
            Line("SysTrace  ", look.problem);
            return;
        }
        lines_.push_back("SysTrace  " + std::string(CaptureStateName(header.state)) + ", wraps " +
                         std::to_string(header.wrapCount) + ", write index " +
                         std::to_string(header.writeIndex) + " in " + std::to_string(header.entryCount) +
                         " entries, thread words " +
                         ((header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0 ? "on" : "off"));
        if (!look.newEntries) {
            return;
        }
        lines_.push_back(
            "  new       " + Counted(*look.newEntries, "entry") + " (" +
            Rate(tick_.PerSecond(*look.newEntries)) + "), " + Counted(look.newRecords, "record") + " (" +
            Rate(tick_.PerSecond(look.newRecords)) + ")" +
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

    void Records(std::size_t most) {
        const TraceLook& look = *tick_.trace;
        const auto records =
            look.problem.empty() ? LastRecords(look, most) : std::span<const SysTraceRecord>();
        for (const SysTraceRecord& record : records) {
            std::string line = "  ";
            AppendSeconds(line, record.elapsed - records.back().elapsed);
            line += "  ";
            AppendRecord(line, look.newest, record, names_);
            lines_.push_back(std::move(line));
        }
    }

    void Rings() {
        const RingsLook& look = *tick_.rings;
        if (!look.problem.empty()) {
            Line("Rings     ", look.problem);
            return;
        }
        std::string line = "Rings     laid out by process " + std::to_string(look.processId);
        if (look.process.lives) {
            line += " (";
            AppendPrintable(line, look.process.name);
            line += "), which lives";
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

    template <typename Notices>
    void Remarks(const Notices& notices) {
        for (const std::string& notice : notices) {
            Line("note: ", notice);
        }
    }

    std::vector<std::string>& Lines() { return lines_; }

  private:
    void Line(std::string label, std::string_view text) {
        AppendPrintable(label, text);
        lines_.push_back(std::move(label));
    }

    void RingLine(std::size_t index, const RingLook& ring) {
        std::array<char, 80> row{};
        const std::string rate =
            ring.fresh ? (*ring.fresh == ring.entries ? ">" : "") + Rate(tick_.PerSecond(*ring.fresh))
                       : std::string();
        std::snprintf(row.data(), row.size(), "  %2zu %-17s%5u/%-5u%9s  ", index,
                      std::string(kRingNames[index]).c_str(), ring.used, ring.entries, rate.c_str());
        std::string line = row.data();
        if (ring.newest) {
            AppendRingWords(line, kRingNames[index], *ring.newest, names_);
        }
        lines_.push_back(std::move(line));
    }

    const Tick& tick_;
    const Names& names_;
    std::vector<std::string> lines_;
};

Json TraceJson(const Tick& tick, const Names& names, std::size_t most) {
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
        json["before_newest_ns"] = record.elapsed - last.back().elapsed;
        records.push_back(std::move(json));
    }
    return {{"problem", Json()},
            {"state", header.state},
            {"state_name", CaptureStateName(header.state)},
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

Json RingJson(const Tick& tick, std::size_t index, const RingLook& ring, const Names& names) {
    Json json{{"index", index},
              {"name", kRingNames[index]},
              {"used", ring.used},
              {"entries", ring.entries},
              {"new", ring.fresh ? Json(*ring.fresh) : Json()},
              {"all_new", ring.fresh && *ring.fresh == ring.entries},
              {"per_second", tick.PerSecond(ring.fresh.value_or(0))},
              {"newest", Json()}};
    if (ring.newest) {
        std::string text;
        AppendRingWords(text, kRingNames[index], *ring.newest, names);
        json["newest"] = {{"counter", ring.newest->timestamp},
                          {"thread", Hex32(ring.newest->threadId)},
                          {"words", ring.newest->words},
                          {"text", ToUtf8(text)}};
    }
    return json;
}

Json RingsJson(const Tick& tick, const Names& names) {
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

/// Looks at a folder's segments and shows what it saw, in one of three ways.
class Watch {
  public:
    Watch(Context& context, const Options& options)
        : context_(context), options_(options), trace_(options.directory), rings_(options.directory) {
        if (!context.json && Screen::Possible()) {
            screen_.emplace(context.out);
        }
    }

    void Look() {
        const Clock::time_point now = Clock::now();
        tick_.seconds = tick_.number > 0 ? std::chrono::duration<double>(now - looked_).count() : 0;
        looked_ = now;
        ++tick_.number;
        tick_.time = LocalTimeNow();
        tick_.notices.clear();
        tick_.trace = &trace_.Look(context_.names, tick_.notices);
        tick_.rings = &rings_.Look(tick_.notices);
        for (const std::string& notice : tick_.notices) {
            std::string dated;
            AppendWallTime(dated, tick_.time, false);
            dated.resize(dated.size() - 6);
            dated += "  ";
            dated += notice;
            notices_.push_back(std::move(dated));
        }
        while (notices_.size() > kNotices) {
            notices_.pop_front();
        }
    }

    void Show() {
        if (context_.json) {
            ShowJson();
        } else if (screen_) {
            ShowOnScreen();
        } else {
            ShowPlain();
        }
    }

    std::uint64_t Ticks() const { return tick_.number; }

    /// Waits for the next tick; what is shown follows the terminal's size meanwhile.
    void Wait(const Interrupt& interrupt) {
        const Clock::time_point next = looked_ + std::chrono::milliseconds(options_.interval);
        for (Clock::time_point now = Clock::now(); now < next && !interrupt.Requested(); now = Clock::now()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now);
            poll(nullptr, 0, static_cast<int>(std::min(left, kLongestWait).count()));
            if (screen_ && screen_->TakeSize()) {
                ShowOnScreen();
            }
        }
    }

  private:
    void ShowJson() {
        const std::size_t most = options_.last.value_or(kUsualRecords);
        Json notices = Json::array();
        for (const std::string& notice : tick_.notices) {
            notices.push_back(ToUtf8(notice));
        }
        context_.out.WriteJson({{"tick", tick_.number},
                                {"time", WallTimeIso(tick_.time)},
                                {"seconds", tick_.seconds},
                                {"systrace", TraceJson(tick_, context_.names, most)},
                                {"rings", RingsJson(tick_, context_.names)},
                                {"notices", std::move(notices)}});
        context_.out.Write("\n");
        context_.out.Flush();
    }

    void ShowPlain() {
        Picture picture(tick_, context_.names);
        picture.Heading(options_.directory, "");
        picture.TraceHead();
        picture.Records(options_.last.value_or(kUsualRecords));
        picture.Rings();
        picture.Remarks(tick_.notices);
        for (const std::string& line : picture.Lines()) {
            context_.out.Line(line);
        }
        context_.out.Line("");
        context_.out.Flush();
    }

    void ShowOnScreen() {
        // The records get the rows that everything else leaves.
        Picture rest(tick_, context_.names);
        rest.Rings();
        rest.Remarks(notices_);
        Picture picture(tick_, context_.names);
        picture.Heading(options_.directory,
                        "  every " + std::to_string(options_.interval) + " ms, Ctrl-C ends");
        picture.TraceHead();
        const std::size_t others = picture.Lines().size() + rest.Lines().size();
        const std::size_t room = screen_->Rows() > others ? screen_->Rows() - others : 0;
        picture.Records(options_.last.value_or(std::max<std::size_t>(room, 3)));
        std::move(rest.Lines().begin(), rest.Lines().end(), std::back_inserter(picture.Lines()));
        screen_->Show(picture.Lines());
    }

    Context& context_;
    const Options& options_;
    LiveTrace trace_;
    LiveRings rings_;
    Tick tick_;
    Clock::time_point looked_;
    std::deque<std::string> notices_;
    std::optional<Screen> screen_;
};

int RunWatch(Context& context, const Options& options) {
    std::error_code error;
    if (!std::filesystem::is_directory(options.directory, error)) {
        return ReportUnusable(
            context, options.directory + ": " + (error ? error.message() : std::string("not a directory")));
    }
    // A reader that has gone is to be reported like any other failure to write.
    std::signal(SIGPIPE, SIG_IGN);
    const Interrupt interrupt;
    Watch watch(context, options);
    for (;;) {
        watch.Look();
        watch.Show();
        if (!context.out.Flush() || (options.count > 0 && watch.Ticks() >= options.count)) {
            return kExitFine;
        }
        watch.Wait(interrupt);
        if (interrupt.Requested()) {
            return kExitFine;
        }
    }
}

} // namespace

void AddWatchCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(app, context, "watch",
                                   "The rings and the binary trace of a running process, live, until Ctrl-C");
    command->add_option("DIRECTORY", options->directory, "The working directory of the process (.)");
    command->add_option("--interval", options->interval, "Milliseconds from look to look (500)")
        ->type_name("MS")
        ->check(CLI::Range(10, 3600000));
    command->add_option("--count", options->count, "End after N looks; 0 never ends")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--last", options->last, "Show the last N records of the trace")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    command->callback([&run, options] { run = [options](Context& c) { return RunWatch(c, *options); }; });
}

} // namespace NimaPost
