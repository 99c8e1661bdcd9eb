#pragma once

#include "tools/base/Output.h"
#include "tools/commands/Commands.h"
#include "tools/story/Story.h"

#include <functional>
#include <string>

namespace NimaPost {

/// Commands that make one file of all that is in a folder.
struct FolderOptions {
    std::string folder;
    std::string output;
};

/// A subcommand that takes these options; `fileUse` says what the file is for.
CLI::App* AddFolderCommand(CLI::App& app, Context& context, const std::string& name,
                           const std::string& description, const std::string& fileUse,
                           FolderOptions& options);

/// What is printed of a file that was written.
struct FolderResult {
    Json members;         ///< of the JSON object, beside "output" and "findings"
    std::string sentence; ///< for people, in front of the file's name
};

/// Reads the folder and has `write` put the file together, which stands under its name once it is whole.
int RunOnFolder(Context& context, const FolderOptions& options,
                const std::function<FolderResult(const Story& story, Output& out)>& write);

} // namespace NimaPost
