#pragma once

#include "tools/fleet/FunctionName.h"

#include <string_view>

namespace NimaPost {

/// Whether a function is of a library that did not cause a crash in it: the list of doc/fleet.md. A stack
/// trace does not say which file a frame is in.
bool IsForeign(const FunctionName& function);

/// Whether a function, named without its parameters, is one by which the native crash handler is entered.
bool EntersHandler(std::string_view function);

} // namespace NimaPost
