#pragma once

#include "tools/base/Findings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A flat event record, doc/event-record.md.
struct EventRecord {
    struct Pair {
        std::string key;
        std::string value;
        bool hashed = false; ///< whether the receiver should hash the value
        bool cut = false;    ///< the record holds only the beginning
    };

    std::uint32_t type = 0;
    std::uint32_t id = 0;
    std::string source;
    std::vector<Pair> pairs;
};

/// Decides by the front of a file, of which 56 bytes are enough, even if the file has lost its end.
bool LooksLikeEventRecord(std::string_view front);

/// Empty if it is no record that this program knows; the findings then say so.
std::optional<EventRecord> ReadEventRecord(std::string_view bytes, Findings& findings);

/// "type 1, id 1: User=someone (to be hashed), Page=0", as a terminal can show it.
void AppendEventRecord(std::string& text, const EventRecord& record);

} // namespace NimaPost
