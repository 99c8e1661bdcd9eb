#include "tools/story/SelectedEvents.h"

#include "tools/base/Text.h"

namespace NimaPost {

void AppendWords(std::string& words, const TimelineEvent& event) {
    if (event.kind == EventKind::kText) {
        words += event.line;
        return;
    }
    for (const std::string_view part : {event.name, event.level}) {
        AppendPrintable(words, part);
        words += part.empty() ? "" : "  ";
    }
    words += event.text;
}

void ForEachSelected(const Story& story, Selection& selection, const SelectedEvents::Show& visitor) {
    selection.BeginCount();
    SelectedEvents selected(
        selection, [](const TimelineEvent& /*event*/) { return true; }, visitor);
    story.ForEach([&](const TimelineEvent& event) {
        selected.Take(event);
        return true;
    });
    selected.Finish();
}

void SelectedEvents::Take(const TimelineEvent& event) {
    if (!event.continued) {
        Finish();
        kept_.clear();
    }
    if (!selection_.IsOf(event)) {
        return;
    }
    fate_ = Judge(event);
    if (fate_ == TextFilter::Fate::kHide) {
        kept_.clear();
    } else if (selection_.IsIn(event.time, event.certainty)) {
        if (fate_ == TextFilter::Fate::kShow) {
            ShowKept();
            show_(event);
            return;
        }
        if (kept_.size() == kMostWaiting) {
            Finish();
        }
        if (kept_.size() < kMostWaiting) {
            kept_.emplace_back(KeptEvent(event));
        }
    }
}

TextFilter::Fate SelectedEvents::Judge(const TimelineEvent& event) {
    if (!event.continued && !admits_(event)) {
        return TextFilter::Fate::kHide;
    }
    TextFilter& texts = selection_.Texts();
    if (texts.Empty() || (event.continued && fate_ == TextFilter::Fate::kHide)) {
        return event.continued ? fate_ : TextFilter::Fate::kShow;
    }
    words_.clear();
    AppendWords(words_, event);
    return event.continued ? texts.Continue(words_) : texts.Begin(words_);
}

void SelectedEvents::Finish() {
    if (fate_ == TextFilter::Fate::kUnlessBad) {
        ShowKept();
    }
}

void SelectedEvents::ShowKept() {
    for (const KeptEvent& each : kept_) {
        show_(each.Event());
    }
    kept_.clear();
}

} // namespace NimaPost
