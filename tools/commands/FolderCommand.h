#pragma once

#include "tools/base/Json.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <functional>
#include <string>

namespace NimaPost {

/// Commands that turn everything of a device into one file.
struct FolderOptions {
    InputOptions input;
    std::string output;
    SelectionOptions selection;
};

/// A subcommand that takes these options; `fileUse` says what the file is for.
CLI::App* AddFolderCommand(CLI::App& app, Context& context, const std::string& name,
                           const std::string& description, const std::string& fileUse,
                           FolderOptions& options);

/// What is printed about a file that was written.
struct FolderResult {
    Json members;         ///< of the JSON object, besides "output" and "findings"
    std::string sentence; ///< for people, before the file's name
    Findings findings;    ///< besides the folder's own
};

/// Reads the device and lets `write` produce the file, which appears under its name once it is complete. With
/// several devices, each has a file of its own, whose name has the device's in it.
int RunOnFolder(
    Context& context, const FolderOptions& options,
    const std::function<FolderResult(const Story& story, Selection& selection, Output& out)>& write);

} // namespace NimaPost
