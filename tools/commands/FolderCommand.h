#pragma once

#include "tools/base/Output.h"
#include "tools/commands/Commands.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <functional>
#include <string>

namespace NimaPost {

/// Commands that turn everything in a folder into one file.
struct FolderOptions {
    std::string folder;
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

/// Reads the folder and lets `write` produce the file, which appears under its name once it is complete.
int RunOnFolder(
    Context& context, const FolderOptions& options,
    const std::function<FolderResult(const Story& story, Selection& selection, Output& out)>& write);

} // namespace NimaPost
