#pragma once

#include "platform/NeverDestroyed.h"

#include <cstdint>

#include <Diagnostics/TriageCallback.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The process's own callback. Never destroyed: a thread may fail while the process exits.
extern NeverDestroyed<StandardExceptionTriageCallback> g_StandardExceptionTriageCallback;

/// Appends the prefix, if any, and " D<i>=0x<word>" for each word to a text of length `position` in a buffer
/// of `size` bytes, as far as they fit. Returns the new length. A negative position is returned unchanged,
/// and a prefix that does not fit changes nothing.
int FormatExtraData(const char* prefix, int position, int size, char* buffer, int count,
                    const std::int32_t* data);

} // namespace Nima::Common::System::OS::Diagnostics
