#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/crash/CrashSummary.h"
#include "tools/report/ReportPage.h"
#include "tools/story/Timeline.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>

namespace NimaPost {

namespace {

/// What a browser opens at once and a mail carries.
constexpr std::size_t kDefaultRows = 50000;
/// A page's list cannot be scrolled beyond about this many rows.
constexpr std::size_t kMostRows = 500000;
constexpr std::size_t kLongestText = 2000;
constexpr std::size_t kMostActive = 12;

struct Options {
    std::string folder;
    std::string output;
    std::size_t rows = kDefaultRows;
};

/// Texts that occur again and again, as numbers.
class Index {
  public:
    std::int64_t Of(std::string_view text) {
        if (text.empty()) {
            return -1;
        }
        const auto [found, fresh] = numbers_.try_emplace(std::string(text), numbers_.size());
        if (fresh) {
            texts_.push_back(ToUtf8(text));
        }
        return static_cast<std::int64_t>(found->second);
    }
    Json Texts() const { return texts_; }

  private:
    std::map<std::string, std::size_t> numbers_;
    std::vector<std::string> texts_;
};

struct Row {
    std::int64_t time = 0;
    std::uint64_t order = 0;
    Sureness sureness = Sureness::kExact;
    std::size_t source = 0;
    std::int64_t thread = -1;
    std::int64_t level = -1;
    std::int64_t name = -1;
    std::string text;
    std::vector<std::uint32_t> arguments;
};

struct Thread {
    std::size_t number = 0;
    std::string tracer;
};

/// Gathers the newest events, and never many more than asked for.
class Rows {
  public:
    Rows(std::size_t most, const Names& dictionary) : most_(most), names_(dictionary) {}

    void Take(const TimelineEvent& event) {
        Row row;
        row.time = event.time;
        row.order = taken_++;
        row.sureness = event.sureness;
        row.source = event.source;
        row.level = levels.Of(event.kind == EventKind::kBinary ? LevelDigit(event.level) : event.level);
        row.name = names.Of(event.name);
        row.text = ToUtf8(event.text.substr(0, kLongestText));
        row.text += event.text.size() > kLongestText ? " ..." : "";
        row.text += event.mark.empty() ? "" : "  [" + std::string(event.mark) + "]";
        row.arguments.assign(event.arguments.begin(), event.arguments.end());
        if (row.arguments.size() > kMostArguments) {
            row.arguments.resize(kMostArguments);
        }
        if (event.thread) {
            Thread& thread = threads_.try_emplace(*event.thread, Thread{threads_.size(), {}}).first->second;
            if (thread.tracer.empty() && event.kind == EventKind::kText && event.level != "CAL") {
                thread.tracer = ToUtf8(event.name);
            }
            row.thread = static_cast<std::int64_t>(thread.number);
        }
        rows_.push_back(std::move(row));
        if (rows_.size() >= most_ * 2 + 1) {
            KeepNewest();
        }
    }

    /// The rows in the order of time. Call once.
    std::vector<Row>& Sorted() {
        KeepNewest();
        std::sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) { return Before(a, b); });
        return rows_;
    }

    std::uint64_t Omitted() const { return taken_ - rows_.size(); }

    Json ThreadsJson() const {
        Json json = Json::array();
        std::vector<Json> byNumber(threads_.size());
        for (const auto& [id, thread] : threads_) {
            const std::string name = names_.Thread(id);
            byNumber[thread.number] = {{"id", Hex32(id)},
                                       {"name", ToUtf8(name.empty() ? thread.tracer : name)}};
        }
        return byNumber;
    }

    Index levels;
    Index names;

  private:
    static constexpr std::size_t kMostArguments = 16;

    static bool Before(const Row& a, const Row& b) {
        return std::pair(a.time, a.order) < std::pair(b.time, b.order);
    }

    /// "level 2" stands as "2", a name of the dictionary as it is.
    static std::string_view LevelDigit(std::string_view level) {
        TakeLiteral(level, "level ");
        return level;
    }

    void KeepNewest() {
        if (rows_.size() > most_) {
            const auto cut = rows_.end() - static_cast<std::ptrdiff_t>(most_);
            std::nth_element(rows_.begin(), cut, rows_.end(), Before);
            rows_.erase(rows_.begin(), cut);
        }
    }

    std::size_t most_;
    const Names& names_;
    std::vector<Row> rows_;
    std::map<std::uint32_t, Thread> threads_;
    std::uint64_t taken_ = 0;
};

/// Everything that is not a row.
class PageData {
  public:
    PageData(const Timeline& timeline, std::int64_t origin) : timeline_(timeline), origin_(origin) {}

    Json Failure() const {
        const CrashLog* crash = timeline_.Crash();
        if (crash == nullptr && timeline_.Stacks().empty()) {
            return nullptr;
        }
        Json json{
            {"title", crash != nullptr ? crash->Title() : "The native crash handler left stack traces"}};
        Json summary = Json::array();
        if (crash != nullptr) {
            for (const auto& [label, value] : FailureInWords(*crash)) {
                summary.push_back({ToUtf8(label), ToUtf8(value)});
            }
        }
        json["summary"] = summary;
        json["exception"] = crash == nullptr || crash->exception.empty() ? Json() : Pairs(crash->exception);
        json["extra"] = crash == nullptr ? Json::array() : Json(crash->extraData);
        json["stacks"] = Stacks();
        json["activeRings"] = crash == nullptr ? Json::array() : Active(*crash);
        const auto time = timeline_.CrashTime();
        json["time"] = time ? Json(*time - origin_) : Json();
        return json;
    }

    Json Clock() const {
        constexpr std::int64_t kMillisecond = 1'000'000;
        Json statement = Json::array();
        for (const std::string& sentence : timeline_.ClockStatement()) {
            statement.push_back(ToUtf8(sentence));
        }
        const bool wall = timeline_.HasWall();
        return {{"wall", wall},
                {"origin", wall ? Json(WallTimeIso(origin_)) : Json()},
                {"originMs", wall ? Json(static_cast<double>(origin_) / kMillisecond) : Json()},
                {"statement", statement}};
    }

    Json Files() const {
        Json json = Json::array();
        for (const FolderFile& file : timeline_.Files()) {
            Json notes = Json::array();
            for (const auto* sentences : {&file.findings.damage, &file.findings.remarks}) {
                for (const std::string& sentence : *sentences) {
                    notes.push_back(ToUtf8(sentence));
                }
            }
            json.push_back({{"name", ToUtf8(file.name)},
                            {"kind", KindName(file.kind)},
                            {"bytes", file.bytes},
                            {"state", file.unusable                   ? "unusable"
                                      : !file.findings.damage.empty() ? "damaged"
                                      : file.kind == FileKind::kOther ? "skipped"
                                                                      : "ok"},
                            {"notes", notes}});
        }
        return json;
    }

    Json Rings() const {
        Json json = Json::array();
        if (timeline_.Rings().empty()) {
            return json;
        }
        const auto& placed = timeline_.Rings().front();
        for (std::size_t i = 0; i < placed.set.rings.size(); ++i) {
            const Ring& ring = placed.set.rings[i];
            const bool empty = ring.records.empty();
            const std::int64_t newest = placed.newest[i] - origin_;
            json.push_back({{"name", ToUtf8(ring.name)},
                            {"entries", ring.entries},
                            {"used", ring.records.size()},
                            {"wrapped", ring.seam == Seam::kNone ? "no" : "perhaps"},
                            {"oldest", empty ? Json() : Json(newest - ring.records.back().elapsed)},
                            {"newest", empty ? Json() : Json(newest)}});
        }
        return json;
    }

    Json Sources() const {
        Json json = Json::array();
        for (const FolderFile& file : timeline_.Files()) {
            json.push_back(ToUtf8(file.name));
        }
        return json;
    }

    Json SourceKinds() const {
        Json json = Json::array();
        for (const FolderFile& file : timeline_.Files()) {
            const bool rings = file.kind == FileKind::kRingSegment || file.kind == FileKind::kRingText ||
                               file.kind == FileKind::kCrashLog;
            json.push_back(file.kind == FileKind::kSysTrace ? "systrace" : rings ? "ring" : "log");
        }
        return json;
    }

  private:
    static Json Pairs(const std::vector<std::pair<std::string, std::string>>& pairs) {
        Json json = Json::array();
        for (const auto& [label, value] : pairs) {
            json.push_back({ToUtf8(label), ToUtf8(value)});
        }
        return json;
    }

    Json Stacks() const {
        Json json = Json::array();
        for (const auto& [file, stack] : timeline_.Stacks()) {
            json.push_back({{"file", ToUtf8(file)}, {"header", stack.report}, {"frames", stack.frames}});
        }
        return json;
    }

    Json Active(const CrashLog& crash) const {
        Json json = Json::array();
        for (const ActiveRing& active : ActiveRings(crash.rings)) {
            if (json.size() == kMostActive) {
                break;
            }
            const auto time = timeline_.CrashTime();
            json.push_back({{"ring", ToUtf8(active.ring->name)},
                            {"newest", time ? Json(*time - origin_ + active.newest) : Json()},
                            {"events", active.ring->records.size()}});
        }
        return json;
    }

    const Timeline& timeline_;
    std::int64_t origin_;
};

Json RowJson(const Row& row, std::int64_t origin) {
    Json arguments = Json::array();
    for (const std::uint32_t value : row.arguments) {
        arguments.push_back(Hex(value));
    }
    return Json::array({row.time - origin, static_cast<int>(row.sureness), row.source, row.thread, row.level,
                        row.name, row.text, arguments});
}

/// Keeps the page's data from ending its element.
void WriteEscaped(Output& out, const Json& json) {
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string_view rest = text;
    for (std::size_t at = rest.find('<'); at != std::string_view::npos; at = rest.find('<')) {
        out.Write(rest.substr(0, at));
        out.Write("\\u003c");
        rest.remove_prefix(at + 1);
    }
    out.Write(rest);
}

std::string Now() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

/// The folder's own name, also where it was given as "." or with a slash at its end.
std::string FolderName(const std::string& folder) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::canonical(folder, error);
    return ToUtf8(error ? folder : path.filename().string());
}

void WritePage(Output& out, const Options& options, const Timeline& timeline, const Names& names) {
    Rows rows(options.rows, names);
    timeline.ForEach([&](const TimelineEvent& event) {
        rows.Take(event);
        return true;
    });
    const std::vector<Row>& sorted = rows.Sorted();
    const std::int64_t origin = !sorted.empty() ? sorted.front().time : timeline.CrashTime().value_or(0);
    const PageData data(timeline, origin);

    out.Write(PageHead());
    out.Write("{");
    const auto member = [&](const char* name, const Json& value) {
        out.Write(std::string("\"") + name + "\":");
        WriteEscaped(out, value);
        out.Write(",\n");
    };
    member("tool", "nima-post " NIMA_POST_VERSION);
    member("folder", FolderName(options.folder));
    member("generated", Now());
    member("failure", data.Failure());
    member("clock", data.Clock());
    member("files", data.Files());
    member("rings", data.Rings());
    member("threads", rows.ThreadsJson());
    member("sources", data.Sources());
    member("sourceKinds", data.SourceKinds());
    member("levels", rows.levels.Texts());
    member("names", rows.names.Texts());
    member("columns", {"t", "sure", "source", "thread", "level", "name", "text", "args"});
    out.Write("\"rows\":[");
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        out.Write(i == 0 ? "\n" : ",\n");
        WriteEscaped(out, RowJson(sorted[i], origin));
    }
    out.Write("],\n\"omitted\":");
    const std::uint64_t omitted = rows.Omitted();
    WriteEscaped(out, {{"rows", omitted},
                       {"statement", omitted == 0 ? std::string()
                                                  : Counted(omitted, "older record") +
                                                        " left out; --rows takes more of them in."}});
    out.Write("}");
    out.Write(PageTail());
}

int RunReport(Context& context, const Options& options) {
    Timeline timeline;
    std::string problem;
    if (!timeline.Read(options.folder, context.names, problem)) {
        return ReportUnusable(context, problem);
    }
    OutputFile file;
    if (!file.Create(options.output, problem)) {
        return ReportUnusable(context, problem);
    }
    WritePage(file.Out(), options, timeline, context.names);
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    const Findings findings = timeline.AllFindings();
    if (context.json) {
        context.out.WriteJson(
            Json{{"output", ToUtf8(options.output)},
                 {"title", timeline.Crash() != nullptr ? Json(timeline.Crash()->Title()) : Json()},
                 {"findings", FindingsJson(findings)}});
        context.out.Write("\n");
    } else {
        context.out.Line(
            (timeline.Crash() != nullptr ? timeline.Crash()->Title() : "No crash log in the folder") +
            "; report in " + options.output);
        PrintFindings(context.out, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

void AddReportCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(
        app, context, "report", "Everything in a folder as one page for a browser, which needs no network");
    command->add_option("FOLDER", options->folder, "What came back from the device")->required();
    command->add_option("-o,--output", options->output, "File to write")->required()->type_name("FILE");
    command->add_option("--rows", options->rows, "How many of the newest records to take in")
        ->check(CLI::Range(std::size_t{1}, kMostRows))
        ->capture_default_str();
    command->callback([&run, options] { run = [options](Context& c) { return RunReport(c, *options); }; });
}

} // namespace NimaPost
