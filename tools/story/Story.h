#pragma once

#include "tools/axis/Axis.h"
#include "tools/axis/Source.h"
#include "tools/base/FileIdentity.h"
#include "tools/input/Evidence.h"
#include "tools/names/Names.h"
#include "tools/story/Crashes.h"
#include "tools/symbols/Known.h"

#include <functional>
#include <string>
#include <vector>

namespace NimaPost {

/// Everything in a folder on one axis of time.
class Story {
  public:
    explicit Story(const Names& names) : names_(names), sources_(names) {}

    /// Reads the files of a device, all but the text logs into memory, and places what they tell. False, with
    /// the reason, where there is nothing; `where` names the folder in it.
    bool Read(Device& device, const std::string& where, std::string& problem);

    /// Hands over all events, kind by kind and source by source, in the order of time within each, until the
    /// visitor returns false.
    void ForEach(const EventVisitor& visitor) const;
    /// The same for some of the kinds.
    void ForEach(const std::function<bool(EventKind)>& isWanted, const EventVisitor& visitor) const;

    /// The folder or archive that was read.
    const std::string& Where() const { return where_; }
    const KnownModules& Known() const { return known_; }
    /// The oldest first.
    const std::vector<Crash>& Crashes() const { return crashes_; }
    const Axis& Time() const { return axis_; }
    const std::vector<FolderFile>& Files() const { return files_; }
    /// The source of this kind; null where no file is of it.
    template <class Kind>
    const Kind* Find() const {
        return sources_.Find<Kind>();
    }

    /// What is damaged, with the files' names.
    Findings AllDamage() const;
    /// That, what is remarkable about the files, and how times were recovered.
    Findings AllFindings() const;
    /// The files that must not be written over: all of them, and the dictionary, but for what the program has
    /// written itself.
    std::vector<FileIdentity> Inputs() const;

  private:
    LastEvents FindLastEvents() const;

    const Names& names_;
    std::string where_;
    KnownModules known_;
    std::vector<FolderFile> files_;
    SourceSet sources_;
    std::vector<const Source*> telling_; ///< in the order in which they are told
    Axis axis_;
    std::vector<Crash> crashes_;
};

} // namespace NimaPost
