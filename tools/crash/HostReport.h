#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// A host's own report of what it could not survive, with which its stack-trace file begins. The handler cuts
/// each of its lines at 99 characters and then leaves out the line's end.
struct HostReport {
    std::string message;
    std::string file;
    std::int64_t line = 0;
    std::optional<std::uint32_t> code; ///< empty where a long file name has pushed it out
    bool cut = false;                  ///< the end of the message is missing

    /// "the fuser is on fire (fuser.cpp, line 54)"
    std::string Headline() const;
};

bool LooksLikeHostReport(std::string_view front);
/// Empty where the text does not begin with a report.
std::optional<HostReport> ReadHostReport(std::string_view text);

} // namespace NimaPost
