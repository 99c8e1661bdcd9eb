#include "tools/base/FindingsJson.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/LocalTime.h"
#include "tools/base/Screen.h"
#include "tools/base/Suspension.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/commands/Commands.h"
#include "tools/commands/WatchControl.h"
#include "tools/commands/WatchPicture.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>

namespace NimaPost {

namespace {

using Clock = std::chrono::steady_clock;

/// An interrupt that comes between the check for one and the wait is noticed after this time.
constexpr std::chrono::milliseconds kLongestPause(200);
constexpr std::size_t kUsualRecords = 10;
/// How many notices stay on the screen.
constexpr std::size_t kNotices = 4;

struct WatchOptions {
    std::string directory = ".";
    std::int64_t interval = 500;
    std::uint64_t count = 0;
    std::optional<std::size_t> last;
    bool control = false;
};

/// Looks at a folder's segments and shows the result in one of three ways.
class Watch {
  public:
    Watch(Context& context, const WatchOptions& options)
        : context_(context), options_(options), trace_(options.directory), rings_(options.directory) {
        if (!context.json && Screen::Possible()) {
            screen_.emplace(context.out);
            suspension_.emplace();
        }
        if (options.control) {
            control_.emplace(options.directory, context.names);
        }
    }

    /// Keys need a picture and a keyboard.
    static bool ControlPossible(const Context& context) {
        return !context.json && Screen::Possible() && Keyboard::Possible();
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
        for (const Finding& notice : tick_.notices) {
            Keep(notice.sentence);
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

    /// Waits for the next tick; meanwhile the picture follows the terminal's size and the keys.
    void Wait(const Interrupt& interrupt) {
        const Clock::time_point next = looked_ + std::chrono::milliseconds(options_.interval);
        for (Clock::time_point now = Clock::now(); now < next && !interrupt.Requested() && !EndRequested();
             now = Clock::now()) {
            const auto left =
                std::min(std::chrono::ceil<std::chrono::milliseconds>(next - now), kLongestPause);
            bool changed = false;
            if (control_) {
                std::vector<std::string> done;
                changed = control_->Wait(left, *tick_.trace, done);
                for (const std::string& notice : done) {
                    Keep(notice);
                }
                if (!done.empty()) {
                    return; // what was done is to be seen at once
                }
            } else {
                poll(nullptr, 0, static_cast<int>(left.count()));
            }
            changed = Suspend() || changed;
            if (screen_ && (screen_->TakeSize() || changed)) {
                ShowOnScreen();
            }
        }
    }

    bool EndRequested() const { return control_ && control_->EndRequested(); }

  private:
    /// Keeps a notice on the screen for a while.
    void Keep(std::string_view notice) {
        std::string dated;
        AppendWallTime(dated, LocalTimeNow(), false);
        dated.resize(dated.size() - 6);
        dated += "  ";
        dated += notice;
        notices_.push_back(std::move(dated));
        if (notices_.size() > kNotices) {
            notices_.pop_front();
        }
    }

    /// Gives the terminal back while the process is stopped, and takes it again. Returns whether there is
    /// anything to draw.
    bool Suspend() {
        if (suspension_ && suspension_->Requested()) {
            if (control_) {
                control_->Keys().GiveBack();
            }
            screen_->GiveBack();
            suspension_->Stop();
            TakeTerminal();
            suspension_->TakeContinued();
            return true;
        }
        if (suspension_ && suspension_->TakeContinued()) {
            // It was stopped by a signal that no process can notice.
            if (control_) {
                control_->Keys().GiveBack();
            }
            TakeTerminal();
            return true;
        }
        return false;
    }

    void TakeTerminal() {
        if (control_) {
            control_->Keys().Take();
        }
        screen_->Take();
    }

    void ShowJson() {
        const std::size_t most = options_.last.value_or(kUsualRecords);
        PrintObject(context_, {{"tick", tick_.number},
                               {"time", WallTimeIso(tick_.time)},
                               {"seconds", tick_.seconds},
                               {"systrace", TraceJson(tick_, context_.names, most)},
                               {"rings", RingsJson(tick_, context_.names)},
                               {"notices", FindingsJson(tick_.notices)}});
        context_.out.Flush();
    }

    void ShowPlain() {
        WatchPicture picture(tick_, context_.names);
        picture.Heading(options_.directory, "");
        picture.TraceHead();
        picture.Records(options_.last.value_or(kUsualRecords));
        picture.Rings();
        for (const Finding& notice : tick_.notices) {
            picture.Remark(notice.sentence);
        }
        for (const std::string& line : picture.Lines()) {
            context_.out.Line(line);
        }
        context_.out.Line("");
        context_.out.Flush();
    }

    void ShowOnScreen() {
        // The records get the rows that everything else leaves.
        WatchPicture rest(tick_, context_.names);
        rest.Rings();
        for (const std::string& notice : notices_) {
            rest.Remark(notice);
        }
        WatchPicture picture(tick_, context_.names);
        picture.Heading(options_.directory,
                        "  every " + std::to_string(options_.interval) + " ms, Ctrl-C ends");
        if (control_) {
            picture.Plain(control_->Lines(*tick_.trace));
        }
        picture.TraceHead();
        const std::size_t others = picture.Lines().size() + rest.Lines().size();
        const std::size_t room = screen_->Rows() > others ? screen_->Rows() - others : 0;
        picture.Records(options_.last.value_or(std::max<std::size_t>(room, 3)));
        std::move(rest.Lines().begin(), rest.Lines().end(), std::back_inserter(picture.Lines()));
        screen_->Show(picture.Lines());
    }

    Context& context_;
    const WatchOptions& options_;
    LiveTrace trace_;
    LiveRings rings_;
    WatchTick tick_;
    Clock::time_point looked_;
    std::deque<std::string> notices_;
    std::optional<Screen> screen_;
    std::optional<Suspension> suspension_;
    std::optional<WatchControl> control_;
};

int RunWatch(Context& context, const WatchOptions& options) {
    std::error_code error;
    if (!std::filesystem::is_directory(options.directory, error)) {
        return ReportUnusable(
            context, options.directory + ": " + (error ? error.message() : std::string("not a directory")));
    }
    if (options.control && !Watch::ControlPossible(context)) {
        return ReportUnusable(context, "--control needs a terminal to show the picture and to take the keys");
    }
    const Interrupt interrupt;
    Watch watch(context, options);
    for (;;) {
        watch.Look();
        watch.Show();
        if (!context.out.Flush() || (options.count > 0 && watch.Ticks() >= options.count)) {
            return kExitFine;
        }
        watch.Wait(interrupt);
        if (interrupt.Requested() || watch.EndRequested()) {
            return kExitFine;
        }
    }
}

} // namespace

void AddWatchCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* command = AddCommand(app, context, "watch",
                                   "The rings and the binary trace of a running process, live, until Ctrl-C",
                                   Prints::kAsItComes);
    AddOption(*command, "DIRECTORY", options->directory, "The working directory of the process (.)");
    AddOption(*command, "--interval", options->interval, "Milliseconds between looks (500)")
        .TypeName("MS")
        .Between(10, 3600000);
    AddCountOption(*command, options->count, "looks");
    AddOption(*command, "--last", options->last, "Show the last N records of the trace")
        .TypeName("N")
        .WholeNumber();
    AddFlag(*command, "--control", options->control, "Take keys that steer the binary trace");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunWatch(c, *options); }; });
}

} // namespace NimaPost
