#include "ctl/block/Journal.h"

#include "catalogue/Files.h"
#include "ctl/block/Steering.h"
#include "tools/base/Text.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

using NimaPost::Descriptor;

constexpr std::string_view kPrefix = "nima-ctl.";
constexpr std::string_view kSuffix = ".record";
constexpr std::string_view kTitle = "nima-ctl record 1\n";
constexpr std::size_t kMostBytes = 4096;
constexpr std::size_t kWordsInLine = 4;
/// A verb that only reads should not wait long.
constexpr std::chrono::seconds kPatience{2};

std::string PathIn(const std::string& directory, const std::string& name) {
    return (std::filesystem::path(directory) / name).string();
}

std::vector<std::string> NamesIn(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator each(directory, error), end; !error && each != end;
         each.increment(error)) {
        std::string name = each->path().filename();
        if (name.starts_with(kPrefix) && name.ends_with(kSuffix) &&
            name.size() > kPrefix.size() + kSuffix.size()) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

/// Whatever else may have the name of a note is none.
Descriptor OpenNote(const std::string& path, int flags) {
    Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct stat status {};
    return file && fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) ? std::move(file)
                                                                                 : Descriptor();
}

std::string ReadText(int file) {
    std::string text(kMostBytes, '\0');
    const ssize_t got = pread(file, text.data(), text.size(), 0);
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return text;
}

bool WriteAll(int file, const std::string& text) {
    return pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) && fsync(file) == 0;
}

/// Whether nobody holds the note. The lock that finds this out is given back at once: a recording that is
/// about to begin waits for it.
bool IsAbandoned(int file) {
    if (flock(file, LOCK_SH | LOCK_NB) != 0) {
        return false;
    }
    flock(file, LOCK_UN);
    return true;
}

/// Waits only for those who look whether the note is abandoned.
bool Lock(int file) {
    int result = flock(file, LOCK_EX);
    while (result != 0 && errno == EINTR) {
        result = flock(file, LOCK_EX);
    }
    return result == 0;
}

/// A file with the name of a note.
struct FoundNote {
    std::string name;
    std::string text;
    bool abandoned = false;
    std::optional<Note> note; ///< empty unless the text is a whole one
};

std::vector<FoundNote> FindNotes(const std::string& directory) {
    std::vector<FoundNote> notes;
    for (std::string& name : NamesIn(directory)) {
        const Descriptor file = OpenNote(PathIn(directory, name), O_RDONLY);
        if (file) {
            std::string text = ReadText(file.Number());
            auto note = ParseNote(text);
            notes.push_back({std::move(name), std::move(text), IsAbandoned(file.Number()), note});
        }
    }
    return notes;
}

void Add(Filter& levels, const Filter& others) {
    for (std::size_t i = 0; i < levels.size(); ++i) {
        levels[i] |= others[i];
    }
}

bool TakeHexWord(std::string_view& text, std::size_t digits, std::uint64_t& value) {
    std::string_view word = text.substr(0, digits);
    if (word.size() != digits || !NimaPost::TakeHex(word, value) || !word.empty()) {
        return false;
    }
    text.remove_prefix(digits);
    return true;
}

bool IsThere(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 || errno != ENOENT;
}

bool IsSet(const Filter& filter) {
    return std::any_of(filter.begin(), filter.end(), [](auto word) { return word != 0; });
}

NimaPost::FileIdentity IdentityOf(const TraceBlock& block) {
    struct stat status {};
    fstat(block.File().Number(), &status);
    return NimaPost::IdentityOf(status);
}

/// The notes that are abandoned, and what they say together.
struct Abandoned {
    std::vector<std::string> paths;
    Filter levels{};
};

/// With the turn held: nobody begins a recording meanwhile.
Abandoned Collect(const std::string& directory, const NimaPost::FileIdentity& segment,
                  NimaPost::Findings& findings) {
    Abandoned abandoned;
    for (const FoundNote& found : FindNotes(directory)) {
        if (!found.abandoned) {
            continue;
        }
        const std::string path = PathIn(directory, found.name);
        if (found.note && found.note->segment == segment) {
            Add(abandoned.levels, found.note->levels);
        } else if (!found.text.empty()) {
            findings.Remark("foreign-note",
                            path + ": is left alone: " +
                                (found.note ? "it is about another segment"
                                            : "it is no note of a recording, or a damaged one"));
            continue;
        }
        // An empty one was killed before it had opened anything.
        abandoned.paths.push_back(path);
    }
    return abandoned;
}

Filter LivingLevels(const std::string& directory, const NimaPost::FileIdentity& segment,
                    const std::string& except = {}) {
    Filter levels{};
    for (const FoundNote& found : FindNotes(directory)) {
        if (!found.abandoned && found.note && found.note->segment == segment && found.name != except) {
            Add(levels, found.note->levels);
        }
    }
    return levels;
}

void Close(const TraceBlock& block, const std::string& directory, const NimaPost::Names& names,
           NimaPost::Findings& findings) {
    const Abandoned abandoned = Collect(directory, IdentityOf(block), findings);
    const Filter living = LivingLevels(directory, IdentityOf(block));
    const Filter open = block.ReadFilters().Effective();
    FilterChange change;
    for (std::size_t i = 0; i < open.size(); ++i) {
        change.clear[i] = abandoned.levels[i] & ~living[i];
    }
    if (IsSet(change.clear) && !Steer(block, change, {}).done) {
        findings.Remark("levels-open",
                        "A dump opened again what a recording that was killed had opened; call "
                        "this again.");
        return;
    }
    for (const std::string& path : abandoned.paths) {
        if (unlink(path.c_str()) != 0) {
            findings.Remark("note-stays", path + ": cannot be removed: " + std::strerror(errno));
        }
    }
    Filter closed{};
    for (std::size_t i = 0; i < open.size(); ++i) {
        closed[i] = open[i] & change.clear[i];
    }
    if (IsSet(closed)) {
        findings.Remark("levels-closed", "Closed what a recording that was killed had left open: " +
                                             NimaPost::OpenLevelsInWords(closed, names) + ".");
    }
}

} // namespace

std::string NoteText(const Note& note) {
    char line[80];
    std::snprintf(line, sizeof(line), "segment %016llx %016llx\n",
                  static_cast<unsigned long long>(note.segment.device),
                  static_cast<unsigned long long>(note.segment.inode));
    std::string text = std::string(kTitle) + line;
    for (std::size_t i = 0; i < note.levels.size(); ++i) {
        std::snprintf(line, sizeof(line), "%08x%c", note.levels[i], (i + 1) % kWordsInLine == 0 ? '\n' : ' ');
        text += line;
    }
    return text;
}

std::optional<Note> ParseNote(std::string_view text) {
    constexpr std::size_t kLong = 16;
    constexpr std::size_t kShort = 8;
    Note note;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    if (!NimaPost::TakeLiteral(text, kTitle) || !NimaPost::TakeLiteral(text, "segment ") ||
        !TakeHexWord(text, kLong, device) || !NimaPost::TakeLiteral(text, " ") ||
        !TakeHexWord(text, kLong, inode) || !NimaPost::TakeLiteral(text, "\n")) {
        return std::nullopt;
    }
    note.segment = {static_cast<dev_t>(device), static_cast<ino_t>(inode)};
    for (std::size_t i = 0; i < note.levels.size(); ++i) {
        std::uint64_t word = 0;
        if (!TakeHexWord(text, kShort, word) ||
            !NimaPost::TakeLiteral(text, (i + 1) % kWordsInLine == 0 ? "\n" : " ")) {
            return std::nullopt;
        }
        note.levels[i] = static_cast<std::uint32_t>(word);
    }
    return text.empty() ? std::optional(note) : std::nullopt;
}

std::optional<Journal> Journal::Create(const std::string& directory, const Note& note, std::string& problem) {
    std::string path = directory + '/' + std::string(kPrefix) + "XXXXXX" + std::string(kSuffix);
    Descriptor file(mkostemps(path.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC));
    if (!file) {
        problem = directory + ": cannot note there what is opened: " + std::strerror(errno);
        return std::nullopt;
    }
    // Whoever may write the segment may close what was opened.
    constexpr mode_t kMode = 0664;
    fchmod(file.Number(), kMode);
    const Descriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!Lock(file.Number()) || !WriteAll(file.Number(), NoteText(note)) ||
        (fsync(folder.Number()) != 0 && errno != EINVAL)) {
        problem = path + ": cannot note there what is opened: " + std::strerror(errno);
        unlink(path.c_str());
        return std::nullopt;
    }
    return Journal(directory, std::filesystem::path(path).filename(), std::move(file));
}

Filter Journal::Levels() const {
    const auto note = ParseNote(ReadText(file_.Number()));
    return note ? note->levels : Filter{};
}

Filter Journal::LevelsOfOthers() const {
    const auto own = ParseNote(ReadText(file_.Number()));
    return own ? LivingLevels(directory_, own->segment, name_) : Filter{};
}

void Journal::Remove() const {
    unlink((directory_ + '/' + name_).c_str());
}

Filter NotedLevels(const std::string& directory, const TraceBlock& block) {
    Filter levels{};
    for (const FoundNote& found : FindNotes(directory)) {
        if (found.note && found.note->segment == IdentityOf(block)) {
            Add(levels, found.note->levels);
        }
    }
    return levels;
}

bool StrikeFromNotes(const std::string& directory, const TraceBlock& block, const Filter& levels) {
    bool all = true;
    for (const FoundNote& found : FindNotes(directory)) {
        if (!found.note || !(found.note->segment == IdentityOf(block))) {
            continue;
        }
        Note changed = *found.note;
        for (std::size_t i = 0; i < levels.size(); ++i) {
            changed.levels[i] &= ~levels[i];
        }
        if (changed.levels != found.note->levels) {
            const Descriptor file = OpenNote(PathIn(directory, found.name), O_WRONLY);
            all = file && WriteAll(file.Number(), NoteText(changed)) && all;
        }
    }
    return all;
}

bool AnyAbandoned(const std::string& directory) {
    const auto notes = FindNotes(directory);
    return std::any_of(notes.begin(), notes.end(), [](const FoundNote& found) { return found.abandoned; });
}

void CloseAbandoned(const std::string& directory, const NimaPost::Names& names,
                    NimaPost::Findings& findings) {
    if (!AnyAbandoned(directory)) {
        return;
    }
    std::string problem;
    const auto block = TraceBlock::Open(directory, Access::kWrite, problem);
    if (!block && !IsThere(directory + '/' + Nima::Catalogue::kSysTraceSegment.narrow)) {
        return;
    }
    const auto turn = block ? Turn::Take(*block, kPatience, problem) : std::nullopt;
    if (turn) {
        Close(*block, directory, names, findings);
    } else {
        findings.Remark("levels-open",
                        "What a recording that was killed has opened stays open: " + problem + ".");
    }
}

} // namespace NimaCtl
