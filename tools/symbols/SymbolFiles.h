#pragma once

#include "tools/symbols/DebugLines.h"
#include "tools/symbols/ElfImage.h"
#include "tools/symbols/Known.h"
#include "tools/symbols/Resolution.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace NimaPost {

/// A program or a library with its debug file, as far as both are there.
class SymbolModule {
  public:
    explicit SymbolModule(ElfImage& image) : names_(&image) { Add(image); }

    void Add(ElfImage& image);

    /// The file whose functions are used: the one that names the most.
    ElfImage& Names() { return *names_; }
    /// The file with the places in the source; null without one.
    const ElfImage* Lines() const { return lines_; }
    const std::vector<ElfImage*>& Files() const { return files_; }
    const std::string& BuildId() const { return names_->BuildId(); }
    bool IsConfirmed() const { return confirmed_; }
    void Confirm() { confirmed_ = true; }

    /// The values of the functions with a plain name, of those that are `wanted`; the same set every time.
    const std::vector<std::uint64_t>& ValuesOf(const std::string& name,
                                               const std::unordered_set<std::string>& wanted);
    /// The functions at an address of the file, the innermost first.
    const std::vector<Call>& CallsAt(std::uint64_t address);

  private:
    ElfImage* names_;
    ElfImage* lines_ = nullptr;
    std::vector<ElfImage*> files_;
    bool confirmed_ = false;
    bool valuesRead_ = false;
    std::unordered_map<std::string, std::vector<std::uint64_t>> values_;
    std::unique_ptr<DebugLines> debug_;
    std::unordered_map<std::uint64_t, std::vector<Call>>
        calls_; ///< a recursion asks for few, again and again
};

/// Called before a file is used, so that a crash of the reader can be laid at its door.
using FileInUse = std::function<void(const std::string& path)>;

/// The files below some folders, put together to modules.
class SymbolFiles {
  public:
    /// Looks through the folders, or takes files that are named themselves, without those in `left`.
    SymbolFiles(const std::vector<std::string>& places, const std::unordered_set<std::string>& left,
                const FileInUse& inUse);

    /// Confirms the builds that the evidence names, and drops other builds of the same files.
    void Match(const std::vector<KnownBuild>& known);

    std::vector<std::unique_ptr<SymbolModule>>& Modules() { return modules_; }
    const std::vector<SymbolProblem>& Problems() const { return problems_; }
    std::size_t Count() const { return images_.size(); }

  private:
    void Look(const std::string& place);
    void Take(const std::string& path);
    void JoinModules();
    SymbolModule* FindModule(const ElfImage& image);

    const std::unordered_set<std::string>& left_;
    const FileInUse& inUse_;
    std::unordered_set<std::string> seen_;
    std::vector<std::unique_ptr<ElfImage>> images_;
    std::vector<std::unique_ptr<SymbolModule>> modules_;
    std::unordered_map<std::string, SymbolModule*> byId_;
    std::vector<SymbolModule*> withoutId_;
    std::vector<SymbolProblem> problems_;
};

} // namespace NimaPost
