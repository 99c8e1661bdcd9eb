#include "tools/commands/WatchControl.h"

#include "catalogue/SysTrace.h"
#include "ctl/block/Journal.h"
#include "ctl/block/Snapshot.h"
#include "ctl/block/Steering.h"
#include "tools/base/LocalTime.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include <poll.h>
#include <sys/stat.h>

namespace NimaPost {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::size_t kMostWaiting = 16;

bool IsOpen(const NimaCtl::Filter& filter, std::uint32_t component, std::uint32_t level) {
    return (filter[Nima::Catalogue::FilterWord(level, component)] & Nima::Catalogue::FilterBit(component)) !=
           0;
}

/// The level to open next, or the one to close next; empty if all are open, or none is.
std::optional<std::uint32_t> NextLevel(const NimaCtl::Filter& filter, std::uint32_t component, bool raise) {
    constexpr std::uint32_t kLevels = Nima::Catalogue::kTraceLevels;
    for (std::uint32_t i = 0; i < kLevels; ++i) {
        const std::uint32_t level = raise ? i : kLevels - 1 - i;
        if (IsOpen(filter, component, level) != raise) {
            return level;
        }
    }
    return std::nullopt;
}

std::string ChangeLevel(const std::string& directory, const Names& names, std::uint32_t component,
                        bool raise) {
    std::string problem;
    const auto block = NimaCtl::TraceBlock::Open(directory, NimaCtl::Access::kWrite, problem);
    const auto turn = block ? NimaCtl::Turn::Take(*block, kPatience, problem) : std::nullopt;
    if (!turn) {
        return problem;
    }
    const std::string name = names.Component(component);
    const auto level = NextLevel(block->ReadFilters().Effective(), component, raise);
    if (!level) {
        return name + ": every level is " + (raise ? "open" : "closed") + " already";
    }
    NimaCtl::FilterChange change;
    raise ? change.Open(component, *level) : change.Close(component, *level);
    NimaCtl::StrikeFromNotes(directory, *block, change.Touched());
    const NimaCtl::SteeringResult result = NimaCtl::Steer(*block, change, kPatience);
    if (block->File().Lost()) {
        return block->File().LostText();
    }
    if (!result.done) {
        return name + ": a dump undid the change; try again";
    }
    return name + ": " + names.Level(*level) + (raise ? " is open" : " is closed") +
           (result.held ? ", but the saved filter lets more through than the live one: nima-ctl status" : "");
}

/// "SysTrace-20261125-144501.bin"; a name that is free.
std::string DumpName() {
    std::string name = WallTimeIso(LocalTimeNow()).substr(0, 19);
    std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
    std::replace(name.begin(), name.end(), 'T', '-');
    const std::string base = "SysTrace-" + name;
    struct stat status {};
    std::string path = base + ".bin";
    for (int i = 2; lstat(path.c_str(), &status) == 0; ++i) {
        path = base + "-" + std::to_string(i) + ".bin";
    }
    return path;
}

std::string Dump(const std::string& directory) {
    std::string problem;
    OutputFile file;
    const std::string path = DumpName();
    const auto block = NimaCtl::TraceBlock::Open(directory, NimaCtl::Access::kRead, problem);
    const auto snapshot = block ? NimaCtl::TakeSnapshot(*block, problem) : std::nullopt;
    if (!snapshot || !file.Create(path, {}, problem)) {
        return problem;
    }
    NimaCtl::WriteDump(file.Out(), *snapshot);
    return file.Finish(problem)
               ? "the trace is in " + path + ", " + Counted(snapshot->entries.size(), "entry")
               : problem;
}

std::string CloseWhatWasLeft(const std::string& directory, const Names& names) {
    Findings findings;
    NimaCtl::CloseAbandoned(directory, names, findings);
    std::string text;
    for (const Finding& remark : findings.remarks) {
        text += (text.empty() ? "" : " ") + remark.sentence;
    }
    return text.empty() ? "recordings that were killed have left nothing open" : text;
}

} // namespace

WatchControl::WatchControl(std::string directory, const Names& names)
    : directory_(std::move(directory)), names_(names) {
    if (NimaCtl::AnyAbandoned(directory_)) {
        Do([this] { return CloseWhatWasLeft(directory_, names_); });
    }
}

bool WatchControl::Wait(std::chrono::milliseconds time, const TraceLook& look,
                        std::vector<std::string>& notices) {
    BeginNext();
    std::array<pollfd, 2> inputs{
        {{STDIN_FILENO, POLLIN, 0}, {running_ ? running_->Number() : -1, POLLIN, 0}}};
    // Work that could not begin has its result at once, and nothing to wait for.
    const bool failed = running_ && running_->Number() < 0;
    if (!failed && poll(inputs.data(), inputs.size(), static_cast<int>(time.count())) <= 0) {
        return false;
    }
    for (const int key : keyboard_.Keys()) {
        Obey(key, look);
    }
    if (running_ && (failed || inputs[1].revents != 0)) {
        if (const auto result = running_->TakeResult()) {
            notices.push_back(*result);
            running_.reset();
        }
    }
    BeginNext();
    return true;
}

std::vector<std::string> WatchControl::Lines(const TraceLook& look) const {
    std::string line = "Control   " + Printable(names_.Component(component_));
    if (look.problem.empty()) {
        const NimaCtl::Filters filters{std::to_array(look.header.liveFilter),
                                       std::to_array(look.header.savedFilter)};
        std::string open;
        for (std::uint32_t level = 0; level < Nima::Catalogue::kTraceLevels; ++level) {
            if (IsOpen(filters.Effective(), component_, level)) {
                open += (open.empty() ? "" : ", ") + Printable(names_.Level(level));
            }
        }
        line += ": " + (open.empty() ? "closed" : open);
    }
    return {line + (running_ ? " ..." : ""),
            "  keys      up, down, a number, Tab pick; + raises, - lowers, d dumps, q ends"};
}

void WatchControl::Obey(int key, const TraceLook& look) {
    constexpr std::uint32_t kComponents = Nima::Catalogue::kComponents;
    if (key >= '0' && key <= '9') {
        PickDigit(static_cast<std::uint32_t>(key - '0'));
        return;
    }
    typing_ = false;
    switch (key) {
        case Keyboard::kUp:
        case 'k':
            component_ = (component_ + kComponents - 1) % kComponents;
            break;
        case Keyboard::kDown:
        case 'j':
            component_ = (component_ + 1) % kComponents;
            break;
        case '\t':
            PickNextBusy(look);
            break;
        case '+':
        case '-':
            Do([this, component = component_, raise = key == '+'] {
                return ChangeLevel(directory_, names_, component, raise);
            });
            break;
        case 'd':
            Do([this] { return Dump(directory_); });
            break;
        case 'q':
        case Keyboard::kEnd:
            end_ = true;
            break;
        default:
            break;
    }
}

void WatchControl::PickDigit(std::uint32_t digit) {
    constexpr std::uint32_t kTen = 10;
    const std::uint32_t longer = component_ * kTen + digit;
    component_ = typing_ && longer < Nima::Catalogue::kComponents ? longer : digit;
    typing_ = true;
}

void WatchControl::PickNextBusy(const TraceLook& look) {
    constexpr std::uint32_t kComponents = Nima::Catalogue::kComponents;
    for (std::uint32_t i = 1; i < kComponents; ++i) {
        const std::uint32_t next = (component_ + i) % kComponents;
        if (look.problem.empty() && look.newOfComponent[next] > 0) {
            component_ = next;
            return;
        }
    }
}

void WatchControl::BeginNext() {
    if (!running_ && !waiting_.empty()) {
        running_ = std::make_unique<Background>(waiting_.front());
        waiting_.pop_front();
    }
}

void WatchControl::Do(Work work) {
    if (waiting_.size() < kMostWaiting) {
        waiting_.push_back(std::move(work));
    }
}

} // namespace NimaPost
