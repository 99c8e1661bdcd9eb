#include "catalogue/OwnEvents.h"
#include "catalogue/SysTrace.h"
#include "ctl/FilterText.h"
#include "ctl/Verbs.h"
#include "ctl/block/TraceBlock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <string_view>
#include <vector>

#include <pthread.h>

namespace NimaCtl {

namespace {

constexpr std::size_t kMarkBytes = Nima::Catalogue::kMarkWords * sizeof(std::uint32_t);
constexpr std::size_t kMostMarkBytes = 50 * kMarkBytes;

struct MarkOptions {
    std::string text;
    std::string event;
};

/// The text in pieces of a record each, none of which ends inside a character.
std::vector<std::string_view> Pieces(std::string_view text) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        std::size_t length = std::min(kMarkBytes, text.size());
        const auto continues = [&](std::size_t at) {
            return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
        };
        while (length > kMarkBytes - 3 && continues(length)) {
            --length;
        }
        pieces.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return pieces;
}

/// As writers of the library stamp their records.
std::uint32_t Counter() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec) + static_cast<std::uint32_t>(now.tv_nsec);
}

SysTraceEntry& Claim(const TraceBlock& block) {
    SysTraceHeader& header = block.Header();
    const std::uint32_t slot = (SharedWord(header.writeIndex).fetch_add(1) + 1) & (kEntries - 1);
    if (slot == 0) {
        SharedWord(reinterpret_cast<std::uint32_t&>(header.wrapCount)).fetch_add(1);
    }
    return block.Entries()[slot];
}

void StoreEntry(const TraceBlock& block, std::uint32_t id, std::uint32_t value) {
    SysTraceEntry& entry = Claim(block);
    SharedWord(entry.id).store(id, std::memory_order_relaxed);
    SharedWord(entry.value).store(value, std::memory_order_relaxed);
}

void Record(const TraceBlock& block, std::uint32_t id, std::string_view piece) {
    std::array<std::uint32_t, Nima::Catalogue::kMarkWords> words{};
    for (std::size_t i = 0; i < piece.size(); ++i) {
        words[i / 4] |= std::uint32_t{static_cast<unsigned char>(piece[i])} << i % 4 * 8;
    }
    StoreEntry(block, id, Counter());
    for (const std::uint32_t word : words) {
        StoreEntry(block, id | SYSTRACE_CONTINUATION, word);
    }
    if ((Load(block.Header().flags) & SYSTRACE_FLAG_THREAD_RECORDS) != 0) {
        StoreEntry(block, id | SYSTRACE_CONTINUATION, static_cast<std::uint32_t>(pthread_self()));
    }
}

/// The id of "C:N", or of the event for marks.
bool FindEvent(const Names& names, const std::string& text, std::uint32_t& id, std::string& problem) {
    using namespace Nima::Catalogue;
    if (text.empty()) {
        id = kOwnComponent << SYSTRACE_COMPONENT_SHIFT | kMarkEvent.number;
        return true;
    }
    const std::size_t colon = text.rfind(':');
    std::uint64_t number = 0;
    const auto component =
        colon == std::string::npos ? std::nullopt : names.FindComponent(text.substr(0, colon));
    if (!component || !NimaPost::ParseNumber(text.substr(colon + 1), number) ||
        number > SYSTRACE_EVENT_MASK) {
        problem = "no event \"" + text + "\": a component and an event number, such as 5:77";
        return false;
    }
    id = *component << SYSTRACE_COMPONENT_SHIFT | static_cast<std::uint32_t>(number);
    return true;
}

int RunMark(Context& context, const MarkOptions& options) {
    std::string problem;
    std::uint32_t id = 0;
    if (options.text.empty() || options.text.size() > kMostMarkBytes ||
        options.text.find('\0') != std::string::npos) {
        return Refuse(context, "a mark has 1 to " + std::to_string(kMostMarkBytes) + " bytes of text");
    }
    if (!FindEvent(context.names, options.event, id, problem)) {
        return Refuse(context, problem);
    }
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    if (!block) {
        return Refuse(context, problem);
    }
    const std::uint32_t component = id >> SYSTRACE_COMPONENT_SHIFT & SYSTRACE_COMPONENT_MASK;
    const Filters filters = block->ReadFilters();
    if ((filters.live[Nima::Catalogue::FilterWord(0, component)] & Nima::Catalogue::FilterBit(component)) ==
        0) {
        return Refuse(context, "the filter lets no record of " + context.names.Component(component) + " at " +
                                   context.names.Level(0) + " through; tracing is " +
                                   std::string(FilteringText(filters.State())) +
                                   (filters.SetAside() ? ". " + SetAsideText() : ""));
    }
    const auto pieces = Pieces(options.text);
    for (const std::string_view piece : pieces) {
        Record(*block, id, piece);
    }
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    if (!context.json) {
        context.out.Line("marked, " + NimaPost::Counted(pieces.size(), "record"));
    }
    return Finish(context, {{"records", pieces.size()}});
}

} // namespace

void AddMarkVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<MarkOptions>();
    CLI::App* verb = AddVerb(app, context, "mark", "Writes a text into the binary trace");
    // With "-h", a text that begins so would show the help and seem written.
    NimaPost::OnlyLongHelp(*verb);
    AddOption(*verb, "TEXT", options->text,
              "20 bytes for each record, at most 1000; after \"--\" if it begins with \"-\"")
        .Required();
    AddOption(*verb, "--event", options->event, "As this event, at level 0, instead of 127:0x7540")
        .TypeName("COMPONENT:NUMBER");
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunMark(c, *options); }; });
}

} // namespace NimaCtl
