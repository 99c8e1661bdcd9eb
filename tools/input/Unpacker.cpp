#include "tools/input/Unpacker.h"

#include "tools/base/OwnOutput.h"
#include "tools/base/Text.h"
#include "tools/input/ArchiveReader.h"
#include "tools/input/MemberNames.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace NimaPost {

namespace {

/// Members of one kind that are not read as they stand, and the first of them.
struct Odd {
    std::uint64_t count = 0;
    std::string first;

    void Add(const std::string& name) {
        if (++count == 1) {
            first = name;
        }
    }
    /// "3 links (the first: x)"
    std::string InWords(std::string_view noun) const {
        return Counted(count, noun) + (count > 1 ? " (the first: " : " (") + first + ")";
    }
};

class Unpacking {
  public:
    Unpacking(const InputFile& input, const EvidenceFile& packed, const Place& place, Place inside,
              EvidenceStore& store)
        : input_(input), packed_(packed), place_(place), inside_(std::move(inside)), store_(store) {
        ++inside_.depth;
    }

    void Run() {
        bool salvage = false;
        {
            ArchiveReader archive(input_);
            salvage = !Members(archive, archive.CanSalvage());
        }
        if (salvage) {
            ArchiveReader again(input_, true);
            skip_ = std::exchange(done_, 0);
            Members(again, false);
        }
        Report();
    }

  private:
    /// Goes through the members. False where it met damage and `triesAgain`: another reader will get more.
    bool Members(ArchiveReader& archive, bool triesAgain) {
        ArchiveMember member;
        while (!store_.Stopped() && !over_ && archive.Next(member)) {
            if (done_ >= skip_ && !Take(archive, member, triesAgain)) {
                return false;
            }
            ++done_;
        }
        const std::string problem = archive.TakeProblem();
        NoteDamage(problem);
        return problem.empty() || !triesAgain;
    }

    /// False where the member was cut, and was not kept since another reader will get more of it.
    bool Take(ArchiveReader& archive, const ArchiveMember& member, bool triesAgain) {
        const bool isCompressedFile = archive.IsCompressedFile();
        // A compressed file is no archive, but even those end somewhere.
        if (inside_.depth > store_.Limits().depth + (isCompressedFile ? 1 : 0)) {
            store_.ReachLimit(packed_.path, "in " + Counted(place_.depth, "archive") + " already",
                              "--max-depth");
            over_ = true;
            return true;
        }
        if (!store_.CountMember(packed_.path)) {
            return true;
        }
        bool odd = false;
        const std::vector<std::string> parts = PartsOfName(member.name, odd);
        if (!isCompressedFile && !IsWanted(member, parts, odd)) {
            return true;
        }
        const std::string path = isCompressedFile ? packed_.path : inside_.path + "/" + Joined(parts);
        const bool whole = ReadMember(archive, path);
        NoteDamage(archive.TakeProblem());
        if (!whole && triesAgain) {
            store_.DropMember();
            return false;
        }
        Keep(member, isCompressedFile, parts, path);
        return true;
    }

    bool IsWanted(const ArchiveMember& member, const std::vector<std::string>& parts, bool odd) {
        using Kind = ArchiveMember::Kind;
        const std::string& name = member.name;
        if (member.kind == Kind::kFolder) {
            return false;
        }
        if (member.kind == Kind::kLink || member.kind == Kind::kSpecial) {
            (member.kind == Kind::kLink ? links_ : special_).Add(name);
            return false;
        }
        if (member.encrypted || parts.empty()) {
            (member.encrypted ? encrypted_ : unnamed_).Add(name);
            return false;
        }
        if (odd) {
            outside_.Add(name);
        }
        return true;
    }

    /// Unpacks as much as the limits allow. False if the rest could not be read.
    bool ReadMember(ArchiveReader& archive, const std::string& path) {
        const std::uint64_t begin = archive.Consumed();
        std::string_view bytes;
        while (archive.Read(bytes)) {
            // A timeline that was compressed is no evidence, and may be very long: what it is will do.
            over_ = store_.MemberBytes() == 0 && archive.IsCompressedFile() && IsOwnOutput(bytes);
            if (!store_.Append(bytes, path) || over_) {
                return true;
            }
            const std::uint64_t packed = std::max<std::uint64_t>(archive.Consumed() - begin, 1);
            const std::uint64_t size = store_.MemberBytes();
            if (size > InputLimits::kFreeBytes && size / packed >= store_.Limits().ratio) {
                store_.ReachLimit(path,
                                  "more than " + std::to_string(store_.Limits().ratio) +
                                      " times larger than its compressed form",
                                  "--max-ratio");
                over_ = !archive.CanSkip();
                return true;
            }
        }
        return archive.WasWhole();
    }

    void Keep(const ArchiveMember& member, bool isCompressedFile, const std::vector<std::string>& parts,
              const std::string& path) {
        EvidenceFile file;
        Place place = place_;
        if (isCompressedFile) {
            file.name = packed_.name;
            file.plainName = NameUnpacked(packed_.name);
            file.identity = packed_.identity;
            file.named = packed_.named;
            file.backup = packed_.backup;
            file.modified = packed_.modified;
            if (member.modified.value_or(0) > 0) {
                file.modified = member.modified;
            }
        } else {
            place = inside_;
            for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
                place = place.Inside(parts[i]);
            }
            file.name = parts.back();
            file.modified = member.modified;
        }
        file.path = path;
        InputFile content = InputFile::Of(path, store_.FinishMember());
        content.SetModified(file.modified);
        if (isCompressedFile) {
            content.SetPlainPath(NameUnpacked(path));
        } else if (LooksPacked(content.ReadAll(kFrontBytes))) {
            Unpack(content, file, place, place.Inside(file.name), store_);
            return;
        }
        file.content = std::move(content);
        if (!store_.Keep(std::move(file), place)) {
            repeated_.Add(member.name);
        }
    }

    static std::string Joined(const std::vector<std::string>& parts) {
        std::string name;
        for (const std::string& part : parts) {
            name += (name.empty() ? "" : "/") + part;
        }
        return name;
    }

    void NoteDamage(const std::string& problem) {
        if (damage_.empty()) {
            damage_ = problem;
        }
    }

    void Report() const {
        Findings& findings = store_.AllFindings();
        const std::string& path = packed_.path;
        if (!damage_.empty()) {
            findings.Damage("archive-damaged",
                            path + ": damaged or cut (" + damage_ + "); as much as can be unpacked is read.");
        }
        if (encrypted_.count > 0) {
            findings.Damage("archive-encrypted",
                            path + ": " + encrypted_.InWords("encrypted file") + " cannot be read.");
        }
        if (repeated_.count > 0) {
            findings.Damage("repeated-name", path + ": " + repeated_.InWords("file") +
                                                 " in it more than once; the last one is read.");
        }
        if (links_.count + special_.count > 0) {
            const std::string link = links_.count > 0 ? links_.InWords("link") : std::string();
            const std::string both = links_.count > 0 && special_.count > 0 ? " and " : "";
            const std::string special =
                special_.count > 0 ? special_.InWords("device or other special file") : std::string();
            findings.Remark("not-a-file", path + ": " + link + both + special + " in it, left alone.");
        }
        if (outside_.count > 0) {
            findings.Remark("odd-name", path + ": " + outside_.InWords("file") +
                                            " whose name leads out of the folder; nothing is written there.");
        }
        if (unnamed_.count > 0) {
            findings.Damage("odd-name",
                            path + ": " + unnamed_.InWords("file") + " without a name, not read.");
        }
    }

    const InputFile& input_;
    const EvidenceFile& packed_;
    const Place& place_;
    Place inside_;
    EvidenceStore& store_;
    std::size_t done_ = 0; ///< members that need not be looked at again
    std::size_t skip_ = 0; ///< members that an earlier reader has had
    bool over_ = false;    ///< nothing more is wanted of this archive
    std::string damage_;
    Odd links_, special_, encrypted_, outside_, unnamed_, repeated_;
};

} // namespace

void Unpack(const InputFile& input, const EvidenceFile& packed, const Place& place, const Place& inside,
            EvidenceStore& store) {
    Unpacking(input, packed, place, inside, store).Run();
}

} // namespace NimaPost
