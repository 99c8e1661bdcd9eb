#pragma once

#include "tools/input/Evidence.h"
#include "tools/input/InputLimits.h"

#include <string>
#include <vector>

namespace NimaPost {

/// What can be read by itself of all that an argument leads to: the files of one folder, without its folders
/// and archives, or one archive with all that is in it.
struct EvidencePart {
    std::string path;
    bool isArchive = false;
    bool holdsParts = false;        ///< a folder with folders or archives in it
    std::vector<std::string> files; ///< of a folder
    std::string problem;            ///< why it cannot be read; empty if nothing is known against it
};

/// A file or folder that is not evidence wherever it turns up: the program writes it. A file's side files
/// have its name and something after it.
struct OwnFile {
    explicit OwnFile(const std::string& path);

    bool IsIn(const std::string& folder) const;
    bool Owns(const std::string& file) const;

  private:
    FileIdentity folder_;
    std::string name_;
};

/// The parts of a folder, an archive, or a folder of these, in an order that does not change.
std::vector<EvidencePart> PartsOf(const std::string& argument, const OwnFile& own);

/// The devices in it: of a folder one without a name.
Evidence ReadPart(const EvidencePart& part, const InputLimits& limits);

} // namespace NimaPost
