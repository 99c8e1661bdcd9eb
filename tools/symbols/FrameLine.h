#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// The function of the native handler that a signal leads to.
inline constexpr std::string_view kSignalHandler = "signalHandler";

/// A frame of a stack-trace file, doc/stack-trace.md.
struct FrameLine {
    std::uint64_t address = 0;
    /// Demangled, as far as the line has room for it; empty where the handler had no name.
    std::string function;
    /// From the function's value in the symbol table to the address. Empty where the line was cut.
    std::optional<std::uint64_t> offset;

    /// Whether the frame is in this function, which is named without its parameters.
    bool IsIn(std::string_view name) const;
};

/// Empty if the line is no frame.
std::optional<FrameLine> ParseFrameLine(std::string_view line);

/// Whether a function's name is this one, with or without parameters.
bool IsNamed(std::string_view function, std::string_view name);

/// Whether this is the C library's return from a signal, or an exported neighbour of it under whose name it
/// may appear.
bool ReturnsFromSignal(std::string_view function);

} // namespace NimaPost
