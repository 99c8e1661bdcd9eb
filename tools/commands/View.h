#pragma once

#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Selection.h"

namespace NimaPost {

/// Prints what is selected of a device, of all kinds of files or of some, in one order of time. `inherited`
/// is what was found about the archives that it comes from.
int RunView(Context& context, const DeviceInput& input, const Findings& inherited,
            const SelectionOptions& options, const SelectedEvents::Admits& admits);

/// The same for some texts besides.
int RunView(Context& context, const DeviceInput& input, const Findings& inherited, Selection& selection,
            const SelectedEvents::Admits& admits);

/// Reads a device's story. Otherwise prints why there is none, and returns false; the exit code is then
/// `kExitUnusable`.
bool ReadStory(Context& context, Story& story, const DeviceInput& input, const Findings& inherited);

} // namespace NimaPost
