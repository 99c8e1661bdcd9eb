#pragma once

#include <string_view>

namespace NimaPost {

/// Whether the C library exports a function of this name. Functions that it does not export appear in stack
/// traces under the name of an exported one beside them, so that any of them may turn up.
bool IsExportedByCLibrary(std::string_view function);

} // namespace NimaPost
