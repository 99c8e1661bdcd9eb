#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace NimaPost {

/// Seven bits a byte, the lowest first; the top bit says that more follow.
void AppendVarint(std::string& out, std::uint64_t value);
/// The sign in the lowest bit.
void AppendSignedVarint(std::string& out, std::int64_t value);
/// Takes so many numbers off the front, or as many as there are.
void DropVarints(std::string& bytes, std::size_t count);

} // namespace NimaPost
