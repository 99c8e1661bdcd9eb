#pragma once

#include "tools/base/Background.h"
#include "tools/base/Keyboard.h"
#include "tools/names/Names.h"
#include "tools/systrace/LiveTrace.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace NimaPost {

/// Keys that steer the watched process's binary trace: one picks a component, raises and lowers what is
/// traced of it, and copies the trace to a file. The changes are those of nima-ctl.
class WatchControl {
  public:
    /// Begins with closing what a recording that was killed has left open.
    WatchControl(std::string directory, const Names& names);

    Keyboard& Keys() { return keyboard_; }
    bool EndRequested() const { return end_; }

    /// Waits at most that long for keys and results and obeys the keys. Returns whether there is anything new
    /// to show; what was done is added to the notices.
    bool Wait(std::chrono::milliseconds time, const TraceLook& look, std::vector<std::string>& notices);

    /// The picked component, what is open of it, and the keys.
    std::vector<std::string> Lines(const TraceLook& look) const;

  private:
    using Work = std::function<std::string()>;

    void Obey(int key, const TraceLook& look);
    void PickDigit(std::uint32_t digit);
    void PickNextBusy(const TraceLook& look);
    void Do(Work work);
    void BeginNext();

    std::string directory_;
    const Names& names_;
    Keyboard keyboard_;
    std::uint32_t component_ = 0;
    bool typing_ = false; ///< a number
    bool end_ = false;
    std::unique_ptr<Background> running_;
    std::deque<Work> waiting_;
};

} // namespace NimaPost
