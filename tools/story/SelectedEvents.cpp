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
        messages_.Begin();
    }
    if (!selection_.IsOf(event)) {
        return;
    }
    messages_.Decide(Judge(event));
    if (messages_.Decision() != TextFilter::Fate::kHide && selection_.MayBeIn(event.time, event.certainty)) {
        messages_.Take(event);
    }
}

TextFilter::Fate SelectedEvents::Judge(const TimelineEvent& event) {
    if (!event.continued && !admits_(event)) {
        return TextFilter::Fate::kHide;
    }
    const TextFilter::Fate before = messages_.Decision();
    TextFilter& texts = selection_.Texts();
    if (texts.Empty() || (event.continued && before == TextFilter::Fate::kHide)) {
        return event.continued ? before : TextFilter::Fate::kShow;
    }
    words_.clear();
    AppendWords(words_, event);
    return event.continued ? texts.Continue(words_) : texts.Begin(words_);
}

} // namespace NimaPost
