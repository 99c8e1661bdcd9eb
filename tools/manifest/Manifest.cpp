#include "tools/manifest/Manifest.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Output.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::int64_t kVersion = 1;
/// Zones differ from UTC by less than a day.
constexpr std::int64_t kMostOffset = 86'400;
/// Far from where sums of times overflow.
constexpr std::int64_t kMostNanoseconds = std::int64_t{1} << 62;

/// The members of an object up to the place where it is damaged, each of them whole.
Json WholeMembers(std::string_view text, bool& damaged) {
    Json members = Json::object();
    std::string key;
    const auto keep = [&](int depth, Json::parse_event_t event, Json& parsed) {
        if (depth == 1 && event == Json::parse_event_t::key) {
            key = parsed.get<std::string>();
        } else if (depth == 1 && event != Json::parse_event_t::object_start &&
                   event != Json::parse_event_t::array_start) {
            members[key] = parsed;
        }
        return true;
    };
    damaged = Json::parse(text, keep, false).is_discarded();
    return members;
}

/// Takes the members of an object, and notes those that are not what the format says.
class Members {
  public:
    Members(const Json& object, std::string place, std::vector<std::string>& wrong)
        : object_(object), place_(std::move(place)), wrong_(wrong) {}

    const Json* Find(const char* name) const {
        const auto found = object_.find(name);
        return found == object_.end() || found->is_null() ? nullptr : &*found;
    }

    std::string Text(const char* name) const {
        const Json* const value = Find(name);
        if (value != nullptr && !value->is_string()) {
            Wrong(name);
        }
        return value != nullptr && value->is_string() ? value->get<std::string>() : std::string();
    }

    std::optional<std::int64_t> Number(const char* name, std::int64_t least, std::int64_t most) const {
        const Json* const value = Find(name);
        if (value == nullptr) {
            return std::nullopt;
        }
        const bool tooLarge = value->is_number_unsigned() &&
                              value->get<std::uint64_t>() > static_cast<std::uint64_t>(kMostNanoseconds);
        if (!value->is_number_integer() || tooLarge || value->get<std::int64_t>() < least ||
            value->get<std::int64_t>() > most) {
            Wrong(name);
            return std::nullopt;
        }
        return value->get<std::int64_t>();
    }

    /// Hands over the objects of a list.
    template <class Visitor>
    void ForEach(const char* name, const Visitor& visitor) const {
        const Json* const list = Find(name);
        if (list != nullptr && !list->is_array()) {
            Wrong(name);
        } else if (list != nullptr) {
            for (const Json& each : *list) {
                if (each.is_object()) {
                    visitor(Members(each, place_ + name + ".", wrong_));
                } else {
                    Wrong(name);
                }
            }
        }
    }

    /// Hands over the members of an object, if it is there.
    template <class Visitor>
    void Inside(const char* name, const Visitor& visitor) const {
        const Json* const object = Find(name);
        if (object != nullptr && !object->is_object()) {
            Wrong(name);
        } else if (object != nullptr) {
            visitor(Members(*object, place_ + name + ".", wrong_));
        }
    }

    const Json& All() const { return object_; }

    void Wrong(const char* name) const {
        std::string member = place_ + name;
        if (std::find(wrong_.begin(), wrong_.end(), member) == wrong_.end()) {
            wrong_.push_back(std::move(member));
        }
    }

  private:
    const Json& object_;
    std::string place_;
    std::vector<std::string>& wrong_;
};

std::string BuildId(const Members& members) {
    std::string id = members.Text("build_id");
    const bool isHex = std::all_of(id.begin(), id.end(), [](unsigned char digit) {
        return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
    });
    if (!isHex) {
        members.Wrong("build_id");
        id.clear();
    }
    return id;
}

/// The clocks of one moment depend on each other; where they do not fit, none of them is known.
std::optional<Manifest::Clocks> TakeClocks(const Members& members) {
    const auto wall = members.Number("wall_ns", 0, kMostNanoseconds);
    const auto monotonic = members.Number("monotonic_ns", 0, kMostNanoseconds);
    const auto counter = members.Number("counter", 0, kMostNanoseconds);
    const auto uptime = members.Number("uptime_ns", 0, kMostNanoseconds);
    if (!wall || !monotonic || !counter || !uptime) {
        return std::nullopt;
    }
    if (*counter != *monotonic / kSecond + *monotonic % kSecond) {
        members.Wrong("counter");
        return std::nullopt;
    }
    // The two were read one after the other.
    if (*uptime + kSecond < *monotonic) {
        members.Wrong("uptime_ns");
        return std::nullopt;
    }
    return Manifest::Clocks{*wall, *monotonic, *counter, *uptime};
}

Manifest::File TakeFile(const Members& members) {
    Manifest::File file;
    file.name = members.Text("name");
    const auto bytes = members.Number("bytes", 0, kMostNanoseconds);
    file.bytes = bytes ? std::optional(static_cast<std::uint64_t>(*bytes)) : std::nullopt;
    file.modified = members.Number("modified_ns", 0, kMostNanoseconds);
    file.problem = members.Text("problem");
    return file;
}

Manifest::Process TakeProcess(const Members& members) {
    Manifest::Process process;
    process.id = static_cast<std::uint32_t>(members.Number("process", 0, UINT32_MAX).value_or(0));
    process.name = members.Text("name");
    members.ForEach("modules", [&](const Members& module) {
        const std::string address = module.Text("address");
        Manifest::Module taken{module.Text("path"), 0, BuildId(module)};
        if (!ParseNumber(address, taken.address) || !address.starts_with("0x")) {
            module.Wrong("address");
        } else {
            process.modules.push_back(std::move(taken));
        }
    });
    return process;
}

void TakeSegments(const Members& segments, Manifest& manifest) {
    for (const auto& [name, segment] : segments.All().items()) {
        const Json* const list =
            segment.is_object() && segment.contains("mapped_by") ? &segment["mapped_by"] : nullptr;
        if (list == nullptr || !list->is_array()) {
            segments.Wrong(name.c_str());
            continue;
        }
        std::vector<std::uint32_t>& ids = manifest.mappedBy[name];
        for (const Json& id : *list) {
            if (id.is_number_unsigned() && id.get<std::uint64_t>() <= UINT32_MAX) {
                ids.push_back(id.get<std::uint32_t>());
            } else {
                segments.Wrong(name.c_str());
            }
        }
    }
}

Manifest Take(const Members& members) {
    Manifest manifest;
    manifest.bootId = members.Text("boot_id");
    members.Inside("clocks", [&](const Members& clocks) { manifest.clocks = TakeClocks(clocks); });
    members.Inside("time_zone", [&](const Members& zone) {
        manifest.zone = zone.Text("name");
        manifest.utcOffsetSeconds = zone.Number("utc_offset_seconds", -kMostOffset, kMostOffset);
    });
    members.Inside("system", [&](const Members& system) { manifest.host = system.Text("host"); });
    members.ForEach("files", [&](const Members& file) { manifest.files.push_back(TakeFile(file)); });
    members.Inside("segments", [&](const Members& segments) { TakeSegments(segments, manifest); });
    members.ForEach("processes",
                    [&](const Members& process) { manifest.processes.push_back(TakeProcess(process)); });
    members.ForEach("programs", [&](const Members& program) {
        manifest.programs.push_back({program.Text("path"), BuildId(program)});
    });
    return manifest;
}

} // namespace

std::optional<CollectedMoment> Manifest::Moment() const {
    if (!clocks || !utcOffsetSeconds) {
        return std::nullopt;
    }
    const std::int64_t local = clocks->wall + *utcOffsetSeconds * kSecond;
    return CollectedMoment{clocks->counter, local, local - clocks->uptime};
}

bool LooksLikeManifest(std::string_view front) {
    const auto skipBlanks = [&] {
        front.remove_prefix(std::min(front.find_first_not_of(" \t\r\n"), front.size()));
    };
    skipBlanks();
    if (!TakeLiteral(front, "{")) {
        return false;
    }
    skipBlanks();
    if (!TakeLiteral(front, "\"manifest\"")) {
        return false;
    }
    skipBlanks();
    return front.starts_with(':');
}

std::optional<Manifest> ReadManifest(std::string_view text, Findings& findings) {
    bool damaged = false;
    const Json object = WholeMembers(text, damaged);
    std::vector<std::string> wrong;
    const Members members(object, "", wrong);
    const auto version = members.Number("manifest", 0, INT32_MAX);
    if (!version || *version != kVersion) {
        findings.Damage("unknown-version",
                        version ? "A manifest of version " + std::to_string(*version) +
                                      ", which this program does not know; it is not used."
                                : std::string("A manifest without a version; it is not used."));
        return std::nullopt;
    }
    Manifest manifest = Take(members);
    if (damaged) {
        findings.Damage("manifest-damaged",
                        "The manifest is damaged or cut; what comes before that place is used.");
    }
    if (!wrong.empty()) {
        std::string sentence = "In the manifest, these cannot be right and are not used:";
        for (const std::string& member : wrong) {
            sentence += (sentence.back() == ':' ? " " : ", ") + member;
        }
        findings.Damage("manifest-damaged", sentence + ".");
    }
    return manifest;
}

} // namespace NimaPost
