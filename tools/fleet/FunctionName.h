#pragma once

#include <string>
#include <string_view>

namespace NimaPost {

/// A function as the same function is called in every build and on every device.
struct FunctionName {
    /// `demangled` as a stack trace has it; `whole` says that its line was not cut.
    FunctionName(std::string_view demangled, bool whole);

    std::string text;  ///< with parameters, template arguments shortened; of a cut line all there is
    std::string plain; ///< without parameters and result, by which foreign ones are known
};

} // namespace NimaPost
