#pragma once

#include "tools/commands/Commands.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Selection.h"

#include <string>

namespace NimaPost {

/// Prints what is selected of a folder, of all kinds of files or of some, in one order of time.
int RunView(Context& context, const std::string& folder, const SelectionOptions& options,
            const SelectedEvents::Admits& admits);

/// The same for some texts besides.
int RunView(Context& context, const std::string& folder, Selection& selection,
            const SelectedEvents::Admits& admits);

/// Reads a folder's story. Otherwise prints why there is none, and returns false; the exit code is then
/// `kExitUnusable`.
bool ReadStory(Context& context, Story& story, const std::string& folder);

/// Whether a path leads to a folder.
bool IsFolder(const std::string& path);

} // namespace NimaPost
