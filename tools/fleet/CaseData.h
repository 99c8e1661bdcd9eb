#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/Findings.h"
#include "tools/fleet/Signature.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace NimaPost {

/// A time as the database has it, "2026-11-24T15:09:26.046886123"; empty where no date is known.
using TimeText = std::optional<std::string>;
using OptionalNumber = std::optional<std::int64_t>;

/// A message of a text log with "#" for its numbers.
struct MessageKey {
    std::string level;
    std::string name;
    std::string text;

    bool operator<(const MessageKey& other) const {
        return std::tie(level, name, text) < std::tie(other.level, other.name, other.text);
    }
};

/// A crash as a database has it.
struct CaseCrash {
    Signature signature;
    std::string title;
    TimeText time;
    bool assumed = false;
    Certainty certainty;
    OptionalNumber boot;
    OptionalNumber process;
    std::string bootDoubt; ///< "probably", "perhaps" or empty
    std::string processDoubt;
    OptionalNumber processId;
    std::optional<std::string> code;
    std::optional<std::string> file;
    std::optional<std::string> line;
    /// By what it is known again in another bundle of the device: any of them is enough.
    std::vector<std::string> marks;
    std::vector<std::string> lines;   ///< of the stack trace, one for each frame of the signature
    std::vector<MessageKey> messages; ///< shortly before it
};

/// What one folder tells: everything of it that a database keeps.
struct CaseData {
    struct File {
        std::string name;
        std::string kind;
        std::int64_t bytes = 0;
        std::int64_t events = 0;
        std::string state;
    };
    struct Process {
        OptionalNumber boot;
        TimeText first;
        TimeText last;
        std::int64_t threads = 0;
        std::string evidence;
        std::string bootDoubt;
        std::string doubts; ///< their codes, with spaces between them
    };
    struct Boot {
        TimeText first;
        TimeText last;
        std::int64_t processes = 0;
    };
    struct Count {
        std::string kind;
        std::string name;
        std::string level;
        std::int64_t count = 0;
    };
    struct Said {
        std::int64_t count = 0;
        std::optional<std::string> example; ///< where there are numbers in it
    };

    std::string device;
    std::string content; ///< hash of all files
    std::string path;    ///< of the folder or the archive
    std::string member;  ///< the device's name in an archive
    bool known = false;  ///< is in the database already; nothing below is filled
    TimeText first;
    TimeText last;
    std::vector<File> files;
    std::vector<Process> processes; ///< from 1
    std::map<std::int64_t, Boot> boots;
    std::vector<CaseCrash> crashes; ///< the oldest first
    std::vector<Count> counts;
    std::map<std::pair<std::int64_t, MessageKey>, Said> messages; ///< by process, 0 for an unknown one
    Findings findings;
};

} // namespace NimaPost
