#pragma once

#include "platform/OwnedLock.h"

namespace Nima::Common::System::OS::Diagnostics {

/// Guards both callbacks and every call through them. Never destroyed: a callback may be running while the
/// process exits.
extern constinit OwnedLock g_EventLogCallbackLock;

} // namespace Nima::Common::System::OS::Diagnostics
