#pragma once

#include "tools/base/TextFilter.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

namespace NimaPost {

/// Holds the first lines of a message back for as long as a later one may decide whether it is shown. `Kept`
/// takes a line over with `Assign` and gives it back with `Get`.
template <class Line, class Kept>
class HeldLines {
  public:
    using Fate = TextFilter::Fate;
    using Show = std::function<void(const Line&)>;

    explicit HeldLines(Show show) : show_(std::move(show)) {}

    /// No line follows of the message before.
    void Begin() {
        Finish();
        waiting_ = 0;
    }
    /// What is known of the message with one more line, to be told before that line is taken.
    void Decide(Fate fate) {
        fate_ = fate;
        if (fate == Fate::kHide) {
            waiting_ = 0;
        }
    }
    Fate Decision() const { return fate_; }

    void Take(const Line& line) {
        if (fate_ == Fate::kShow) {
            ShowKept();
            show_(line);
        } else if (fate_ != Fate::kHide) {
            if (waiting_ == kMostWaiting) {
                Finish();
            }
            Keep(line);
        }
    }

    /// To be called when no line follows, or none has for a while.
    void Finish() {
        if (fate_ == Fate::kUnlessBad) {
            ShowKept();
        }
    }

  private:
    /// Beyond so many lines a message's later ones are shown without those in front.
    static constexpr std::size_t kMostWaiting = 256;

    void ShowKept() {
        for (std::size_t i = 0; i < waiting_; ++i) {
            show_(kept_[i].Get());
        }
        waiting_ = 0;
    }

    void Keep(const Line& line) {
        if (waiting_ == kMostWaiting) {
            return;
        }
        if (waiting_ == kept_.size()) {
            kept_.emplace_back();
        }
        kept_[waiting_++].Assign(line);
    }

    Show show_;
    std::deque<Kept> kept_; ///< used again; not moved when it grows, since lines look at their texts
    std::size_t waiting_ = 0;
    Fate fate_ = Fate::kShow;
};

} // namespace NimaPost
