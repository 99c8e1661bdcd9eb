#pragma once

#include <Diagnostics/TriageCallback.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Writes a zero-terminated text; returns the adapter's result.
int _WriteSingleLineOutput(OutputAdapter& adapter, const char* text);

} // namespace Nima::Common::System::OS::Diagnostics
