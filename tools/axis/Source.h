#pragma once

#include "tools/axis/Axis.h"
#include "tools/axis/TimelineEvent.h"
#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/names/Names.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeindex>
#include <utility>
#include <vector>

namespace NimaPost {

struct SourceRow;

/// A file of the folder.
struct FolderFile {
    std::string name;
    std::string plainName; ///< without the ending of a compressed file; numbers of backups stand in it
    std::size_t index = 0;
    std::uint64_t bytes = 0;
    FileIdentity identity;
    std::optional<std::int64_t> modified; ///< nanoseconds since 1970
    const SourceRow* row = nullptr;       ///< what it was recognised as; null if it is not one of ours
    Findings findings;
    bool unusable = false;
    bool ownOutput = false; ///< written by this program, so that it may be written over
};

/// When a source is placed: dated sources come first, since the others are tied to them.
enum class Stage : unsigned char { kLogs, kCrashes, kRings, kTraces, kRecords };

class SourceSet;

/// The events in the files of one kind. Each kind has a class of its own and a row in the table of
/// tools/story/Sources.cpp; nothing else knows about it.
class Source {
  public:
    Source(SourceSet& set, Stage stage, EventKind kind) : set_(set), stage_(stage), kind_(kind) {}
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    Stage PlacedAt() const { return stage_; }
    EventKind Tells() const { return kind_; }

    /// Reads a file, which it may take over and keep open, and adds to the findings. `file` stays where it is
    /// for as long as the source lives.
    virtual void Read(FolderFile& file, InputFile& input) = 0;
    /// Called when all files have been read: tells which processes wrote one after the other.
    virtual void Announce(Processes& /*processes*/) const {}
    /// Called after that: passes what it knows about dates to the axis.
    virtual void Date(Axis& /*axis*/) {}
    /// Called when all sources have done so: puts its events on the axis.
    virtual void Place(Axis& /*axis*/) {}
    /// Hands over its events in the order of time. Returns false if the visitor wanted no more.
    virtual bool ForEach(const EventVisitor& /*visitor*/) const { return true; }

  protected:
    SourceSet& Set() const { return set_; }

  private:
    SourceSet& set_;
    Stage stage_;
    EventKind kind_;
};

/// A source that reads each file into a content of its own. The derived class says how a file is read and
/// which events it holds; contents without a place in time have none.
template <class Content, Stage kStage, EventKind kKind>
class FileSource : public Source {
  public:
    explicit FileSource(SourceSet& set) : Source(set, kStage, kKind) {}

    struct Held {
        std::size_t file; ///< in the folder's files
        Content content;
    };
    /// In the order in which their events are handed over.
    const std::vector<Held>& All() const { return held_; }

    void Take(const FolderFile& file, Content content) { held_.push_back({file.index, std::move(content)}); }

    void Read(FolderFile& file, InputFile& input) final {
        auto content = ReadContent(file, input);
        file.unusable = !content;
        if (content) {
            Take(file, std::move(*content));
        }
    }
    bool ForEach(const EventVisitor& visitor) const final {
        return std::all_of(held_.begin(), held_.end(), [&](const Held& held) { return Tell(held, visitor); });
    }

  protected:
    std::vector<Held>& AllHeld() { return held_; }

  private:
    /// Empty if there is nothing to use; the file's findings then say why.
    virtual std::optional<Content> ReadContent(FolderFile& file, InputFile& input) = 0;
    virtual bool Tell(const Held& /*held*/, const EventVisitor& /*visitor*/) const { return true; }

    std::vector<Held> held_;
};

/// The sources of one folder, each made when it is first asked for.
class SourceSet {
  public:
    explicit SourceSet(const Names& names) : names_(names) {}

    const Names& Dictionary() const { return names_; }

    template <class Kind>
    Kind& Get() {
        if (Kind* known = const_cast<Kind*>(std::as_const(*this).Find<Kind>())) {
            return *known;
        }
        auto made = std::make_unique<Kind>(*this);
        Kind& source = *made;
        sources_.emplace_back(std::type_index(typeid(Kind)), std::move(made));
        return source;
    }
    template <class Kind>
    const Kind* Find() const {
        for (const auto& [type, source] : sources_) {
            if (type == typeid(Kind)) {
                return static_cast<const Kind*>(source.get());
            }
        }
        return nullptr;
    }

    std::vector<Source*> All() const {
        std::vector<Source*> all;
        for (const auto& [type, source] : sources_) {
            all.push_back(source.get());
        }
        return all;
    }

  private:
    const Names& names_;
    std::vector<std::pair<std::type_index, std::unique_ptr<Source>>> sources_;
};

/// How a kind of file is recognised and who reads it.
struct SourceRow {
    std::string_view kind; ///< as people are told
    std::string_view lane; ///< as the page draws it: "log", "systrace" or "ring"
    /// By what the file begins with and its size.
    bool (*recognise)(std::string_view front, std::uint64_t size);
    Source& (*source)(SourceSet& set);
    bool isEvidence = true; ///< whether a folder with nothing else tells anything
};

/// For the table's last column: where others ask for the source by its class.
template <class Kind>
Source& SourceOf(SourceSet& set) {
    return set.Get<Kind>();
}

} // namespace NimaPost
