#pragma once

#include <string_view>

namespace NimaPost {

/// Whether a function, named without its parameters, is of a library that did not cause a crash in it: the
/// list of doc/fleet.md. A stack trace does not say which file a frame is in.
bool IsForeign(std::string_view function);

/// Whether it is one by which the native crash handler is entered.
bool EntersHandler(std::string_view function);

} // namespace NimaPost
