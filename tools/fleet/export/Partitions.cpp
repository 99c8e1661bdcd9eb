#include "tools/fleet/export/Partitions.h"

#include "tools/base/ContentHash.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace NimaPost {

namespace {

/// Each takes a few megabytes.
constexpr std::size_t kMostOpen = 8;
/// What readers of such folders take for null.
constexpr std::string_view kNoDay = "__HIVE_DEFAULT_PARTITION__";

/// A folder's name has room for 255 bytes.
constexpr std::size_t kMostEscaped = 200;

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

/// As a value stands in the name of a partition's folder. One that is too long is cut, and told from others
/// that begin like it by a hash.
std::string Escaped(std::string_view value) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string out;
    std::size_t room = 0; ///< the whole characters that there is room for
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        const bool begins = (byte & 0xC0) != 0x80;
        room = begins && out.size() <= kMostEscaped ? out.size() : room;
        // The name that stands for null is no device's.
        if (IsPlain(c) && (!out.empty() || value != kNoDay)) {
            out += c;
        } else {
            out += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    if (out.size() > kMostEscaped) {
        ContentHash hash;
        hash.AddWhole(value);
        out = out.substr(0, room) + "~" + hash.Hexadecimal();
    }
    return out.empty() ? std::string(kNoDay) : out;
}

} // namespace

Partitions::Partitions(std::string folder, std::string unfinished, std::string_view device,
                       std::string caseId, TableForm form)
    : folder_(std::move(folder)),
      unfinished_(std::move(unfinished)),
      device_(Escaped(device)),
      caseId_(std::move(caseId)),
      form_(form) {}

Partitions::~Partitions() {
    for (auto& [key, part] : parts_) {
        part.file.reset();
        unlink(part.path.c_str());
    }
}

void Partitions::Open(Part& part, const Key& key) {
    if (open_.size() == kMostOpen) {
        open_.back()->file->Finish();
        open_.back()->file.reset();
        open_.pop_back();
    }
    if (part.path.empty()) {
        part.path = unfinished_ + key.first + "-" + key.second;
    }
    part.file = std::make_unique<ZstdFile>(part.path);
    open_.push_front(&part);
}

void Partitions::Add(std::string_view table, std::string_view day, const TableRow& row) {
    const Key key(table, day.empty() ? kNoDay : day);
    Part& part = parts_[key];
    const bool isNew = part.path.empty();
    if (!part.file) {
        Open(part, key);
    } else if (open_.front() != &part) {
        open_.splice(open_.begin(), open_, std::find(open_.begin(), open_.end(), &part));
    }
    if (isNew) {
        part.file->Out().Write(row.Heading());
    }
    part.file->Out().Write(row.Line());
}

void Partitions::Close() {
    for (Part* const part : open_) {
        part->file->Finish();
        part->file.reset();
    }
    open_.clear();
}

std::size_t Partitions::Finish() {
    Close();
    const std::size_t count = parts_.size();
    while (!parts_.empty()) {
        const auto& [key, part] = *parts_.begin();
        const std::string place = folder_ + "/" + key.first + "/device=" + device_ + "/day=" + key.second;
        std::filesystem::create_directories(place);
        std::filesystem::rename(part.path,
                                place + "/part-" + caseId_ + "." + std::string(NameOf(form_)) + ".zst");
        parts_.erase(parts_.begin());
    }
    return count;
}

} // namespace NimaPost
