#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/commands/FolderCommand.h"
#include "tools/commands/Symbols.h"
#include "tools/report/PageData.h"
#include "tools/report/ReportPage.h"
#include "tools/report/Rows.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Story.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

namespace NimaPost {

namespace {

/// What a browser opens at once and fits in a mail.
constexpr std::size_t kDefaultRows = 50000;
/// A page's list cannot be scrolled beyond about this many rows.
constexpr std::size_t kMostRows = 500000;

struct Options {
    FolderOptions files;
    SymbolOptions symbols;
    std::size_t rows = kDefaultRows;
};

/// Keeps the page's data from closing its own element.
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

/// "2026-11-24T18:00:00Z"
std::string Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    const std::string text = WallTimeIso(seconds * kSecond);
    return text.substr(0, text.find('.')) + 'Z';
}

/// The folder's own name, even if it was given as "." or with a slash at its end.
std::string FolderName(const std::string& folder) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::canonical(folder, error);
    return ToUtf8(error ? folder : path.filename().string());
}

void WriteRows(Output& out, const std::vector<Row>& sorted, std::uint64_t omitted, std::int64_t origin) {
    out.Write("\"rows\":[");
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        out.Write(i == 0 ? "\n" : ",\n");
        WriteEscaped(out, RowJson(sorted[i], origin));
    }
    out.Write("],\n\"omitted\":");
    WriteEscaped(out, {{"rows", omitted},
                       {"statement", omitted == 0 ? std::string()
                                                  : Counted(omitted, "older record") +
                                                        " left out; --rows includes more of them."}});
}

/// The latest crash; one without a title where there is none.
Crash Headline(const Story& story) {
    return story.Crashes().empty() ? Crash() : story.Crashes().back();
}

/// What symbols say about the folder's stack traces.
StackSymbols Resolve(const Options& options, const Story& story, Findings& findings) {
    StackSymbols symbols;
    const auto* const source = story.Find<StackTraceSource>();
    if (source == nullptr) {
        return symbols;
    }
    std::vector<NamedStack> stacks;
    for (const auto& held : source->All()) {
        stacks.push_back({&held.content, story.Files()[held.file].plainName});
    }
    if (auto resolved = ResolveStacks(
            options.symbols, [&] { return story.Known(); }, stacks)) {
        resolved->AddTo(findings);
        for (std::size_t i = 0; i < stacks.size(); ++i) {
            symbols[source->All()[i].file] = {std::move(resolved->resolutions[i]),
                                              std::move(resolved->statements[i].remarks)};
        }
    }
    return symbols;
}

void WritePage(Output& out, const Options& options, const Story& story, Selection& selection,
               const Names& names, const StackSymbols& symbols) {
    Rows rows(options.rows, names);
    ForEachSelected(story, selection, [&](const TimelineEvent& event) { rows.Take(event); });
    const std::vector<Row>& sorted = rows.Sorted();
    const auto first = sorted.empty() ? std::nullopt : sorted.front().time;
    const std::int64_t origin = first ? *first : Headline(story).time.value_or(0);
    const PageData data(story, origin, selection, symbols);

    out.Write(PageHead());
    out.Write("{");
    const auto member = [&](const char* name, const Json& value) {
        out.Write(std::string("\"") + name + "\":");
        WriteEscaped(out, value);
        out.Write(",\n");
    };
    member("tool", "nima-post " NIMA_POST_VERSION);
    member("folder", FolderName(story.Where()));
    member("generated", Now());
    member("crashes", data.Crashes());
    member("clock", data.Clock());
    member("files", data.Files());
    member("rings", data.Rings());
    member("processes", data.Processes());
    member("threads", rows.ThreadsJson());
    member("sources", data.Sources());
    member("sourceKinds", data.SourceKinds());
    member("levels", rows.levels.Texts());
    member("names", rows.names.Texts());
    member("columns", {"t", "sure", "source", "thread", "level", "name", "text", "args", "process", "boot"});
    WriteRows(out, sorted, rows.Omitted(), origin);
    out.Write("}");
    out.Write(PageTail());
}

FolderResult WriteReport(const Options& options, const Story& story, Selection& selection, const Names& names,
                         Output& out) {
    Findings findings;
    WritePage(out, options, story, selection, names, Resolve(options, story, findings));
    const std::string title = Headline(story).title;
    return {{{"title", title.empty() ? Json() : Json(ToUtf8(title))}},
            (title.empty() ? "No crash in the folder" : title) + "; report in ",
            std::move(findings)};
}

} // namespace

void AddReportCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddFolderCommand(
        app, context, "report", "Everything in a folder as one page for a browser, which needs no network",
        "File to write", options->files);
    AddOption(*command, "--rows", options->rows, "How many of the newest records to include")
        .Between(std::size_t{1}, kMostRows)
        .ShowDefault();
    AddSymbols(*command, options->symbols);
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnFolder(c, options->files, [&](const Story& story, Selection& selection, Output& out) {
                return WriteReport(*options, story, selection, c.names, out);
            });
        };
    });
}

} // namespace NimaPost
