#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/FolderCommand.h"
#include "tools/commands/PageText.h"
#include "tools/commands/Symbols.h"
#include "tools/report/PageData.h"
#include "tools/report/ReportPage.h"
#include "tools/report/Rows.h"
#include "tools/story/MergedStory.h"
#include "tools/story/Story.h"

#include <filesystem>
#include <memory>
#include <utility>

namespace NimaPost {

namespace {

/// What a browser opens at once and fits in a mail.
constexpr std::size_t kDefaultRows = 200000;
/// What a browser opens within two seconds.
constexpr std::size_t kMostRows = 1000000;

struct ReportOptions {
    FolderOptions files;
    SymbolOptions symbols;
    std::size_t rows = kDefaultRows;
};

/// The folder's own name, even if it was given as "." or with a slash at its end.
std::string FolderName(const std::string& folder) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::canonical(folder, error);
    return ToUtf8(error ? folder : path.filename().string());
}

Json OmittedJson(std::uint64_t omitted) {
    return {{"rows", omitted},
            {"statement",
             omitted == 0 ? std::string()
                          : Counted(omitted, "older record") + " left out; --rows includes more of them."}};
}

/// Takes the rows, and finds out which of them are the crashes.
CrashRows TakeRows(const Story& story, Selection& selection, Rows& rows) {
    CrashRows places(story.Crashes().size());
    MergedStory merged(story, selection, [](const TimelineEvent& /*event*/) { return true; });
    merged.ForEach([&](const TimelineEvent& event) {
        for (std::size_t i = 0; event.level == kCrashLevel && i < places.size(); ++i) {
            const Crash& crash = story.Crashes()[i];
            if (!places[i] && crash.time == event.time && crash.files.front() == event.file &&
                crash.title == event.text) {
                places[i] = rows.Taken();
                break;
            }
        }
        rows.Take(event);
    });
    rows.Finish();
    for (auto& place : places) {
        place = place ? rows.RowOf(*place) : std::nullopt;
    }
    return places;
}

/// The latest crash; one without a title where there is none.
Crash Headline(const Story& story) {
    return story.Crashes().empty() ? Crash() : story.Crashes().back();
}

/// What symbols say about the folder's stack traces.
StackSymbols Resolve(const ReportOptions& options, const Story& story, Findings& findings) {
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

void WritePage(Output& out, const ReportOptions& options, const Story& story, Selection& selection,
               const Names& names, const StackSymbols& symbols) {
    Rows rows(options.rows, names);
    const CrashRows crashRows = TakeRows(story, selection, rows);
    const std::int64_t origin = rows.FirstTime().value_or(Headline(story).time.value_or(0));
    const PageData data(story, origin, selection, symbols, crashRows);

    out.Write(ReportPageHead());
    out.Write("<script type=\"application/json\" id=\"data\">\n{");
    const auto member = [&](const char* name, const Json& value) {
        out.Write(std::string("\"") + name + "\":");
        WriteForPage(out, value);
        out.Write(",\n");
    };
    member("tool", "nima-post " NIMA_POST_VERSION);
    member("folder", FolderName(story.Where()));
    member("generated", NowForPage());
    member("crashes", data.Crashes());
    member("clock", data.Clock());
    member("files", data.Files());
    member("rings", data.Rings());
    member("boots", data.Boots());
    member("processes", data.Processes());
    member("threads", rows.ThreadsJson());
    member("sources", data.Sources());
    member("sourceKinds", data.SourceKinds());
    member("levels", rows.LevelsJson());
    member("names", rows.NamesJson());
    member("omitted", OmittedJson(rows.Omitted()));
    out.Write("\"rows\":");
    WriteForPage(out, rows.Count());
    out.Write("}\n</script>\n");
    rows.Write(out, origin);
    out.Write(ReportPageTail());
}

FolderResult WriteReport(const ReportOptions& options, const Story& story, Selection& selection,
                         const Names& names, Output& out) {
    Findings findings;
    WritePage(out, options, story, selection, names, Resolve(options, story, findings));
    const std::string title = Headline(story).title;
    return {{{"title", title.empty() ? Json() : Json(ToUtf8(title))}},
            (title.empty() ? "No crash in the folder" : title) + "; report in ",
            std::move(findings)};
}

} // namespace

void AddReportCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<ReportOptions>();
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
