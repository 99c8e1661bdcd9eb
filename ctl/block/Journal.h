#pragma once

#include "ctl/block/TraceBlock.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/Findings.h"
#include "tools/names/Names.h"

#include <optional>
#include <string>
#include <string_view>

namespace NimaCtl {

/// The levels that a recording has opened for its time, one bit each, and the segment that it did this to.
struct Note {
    NimaPost::FileIdentity segment;
    Filter levels{};
};
std::string NoteText(const Note& note);
/// Empty unless the text is a whole note.
std::optional<Note> ParseNote(std::string_view text);

/// A note in a file beside the segment, written before the levels are opened. Its file is locked while its
/// process lives, so that one which can be locked belongs to a recording that was killed. All but the
/// constructor's caller need the turn to look at it.
class Journal {
  public:
    /// Empty with a reason if it cannot be written; nothing is left then.
    static std::optional<Journal> Create(const std::string& directory, const Note& note,
                                         std::string& problem);

    /// As noted now: whoever opens or closes a level for good takes it out.
    Filter Levels() const;
    /// What other recordings that run have noted.
    Filter LevelsOfOthers() const;
    void Remove() const;

  private:
    Journal(std::string directory, std::string name, NimaPost::Descriptor file)
        : directory_(std::move(directory)), name_(std::move(name)), file_(std::move(file)) {}

    std::string directory_;
    std::string name_;
    NimaPost::Descriptor file_;
};

/// What recordings have noted about this block: those that run, and those that were killed.
Filter NotedLevels(const std::string& directory, const TraceBlock& block);

/// Takes levels out of every note about this block, so that nobody closes them any more. The turn must be
/// held. Returns false if a note could not be changed.
bool StrikeFromNotes(const std::string& directory, const TraceBlock& block, const Filter& levels);

/// Whether there is a note of a recording that was killed.
bool AnyAbandoned(const std::string& directory);

/// Closes the levels of recordings that were killed, and says so; also says what cannot be closed.
void CloseAbandoned(const std::string& directory, const NimaPost::Names& names, NimaPost::Findings& findings);

} // namespace NimaCtl
