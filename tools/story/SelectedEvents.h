#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/base/HeldLines.h"
#include "tools/story/KeptEvent.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <functional>
#include <string>
#include <utility>

namespace NimaPost {

/// Hands on the events that a selection takes. A message of a text log, which may be several events, is taken
/// as a whole.
class SelectedEvents {
  public:
    using Show = std::function<void(const TimelineEvent&)>;
    /// `admits` says which events are wanted at all; of a message, its first.
    using Admits = std::function<bool(const TimelineEvent&)>;

    SelectedEvents(Selection& selection, Admits admits, Show show)
        : selection_(selection),
          admits_(std::move(admits)),
          messages_([&selection, show = std::move(show)](const TimelineEvent& event) {
              if (selection.IsIn(event.time, event.certainty)) {
                  show(event);
              }
          }) {}

    void Take(const TimelineEvent& event);
    /// To be called when no event follows.
    void Finish() { messages_.Finish(); }

  private:
    TextFilter::Fate Judge(const TimelineEvent& event);

    Selection& selection_;
    Admits admits_;
    HeldLines<TimelineEvent, KeptEvent> messages_;
    std::string words_;
};

/// Goes through the events of a story, kind by kind.
void ForEachSelected(const Story& story, Selection& selection, const SelectedEvents::Show& visitor);

/// An event in words as expressions look at it: a text log's line as it stands there; else the name of its
/// component or ring, its level, and its text.
void AppendWords(std::string& words, const TimelineEvent& event);

} // namespace NimaPost
