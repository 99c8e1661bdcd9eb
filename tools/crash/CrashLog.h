#pragma once

#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NimaPost {

/// A crash log, doc/crash-log.md.
struct CrashLog {
    std::optional<RawDate> date;
    std::optional<std::int64_t> ticks;
    /// "Error Code" and what follows it, in the order of the log; labels without leading blanks.
    std::vector<std::pair<std::string, std::string>> failure;
    std::vector<std::string> extraData;
    std::vector<std::string> modules;
    /// "Address", "Exception", "Flags", "P00", ...; empty without an exception record.
    std::vector<std::pair<std::string, std::string>> exception;
    RingSet rings;
    bool complete = false;
    std::string footer;

    /// The value of a field of the failure block; empty if there is no such field.
    std::string_view Field(std::string_view label) const;
    /// Empty where the host has set none, which the log shows as 0.
    std::optional<std::uint64_t> BootCycle() const;
    /// Whether this is the failure's code, of its error or of its exception.
    bool HasCode(std::uint32_t code) const;
    /// What kind of failure it was, in words.
    std::string Title() const;
};

bool LooksLikeCrashLog(std::string_view front);
std::optional<CrashLog> ReadCrashLog(std::string_view text, Findings& findings);

} // namespace NimaPost
