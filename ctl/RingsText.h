#pragma once

#include "ctl/RingsView.h"
#include "tools/base/Output.h"

namespace NimaCtl {

/// A text dump as the library writes it of another process's rings.
void WriteRings(NimaPost::Output& out, const RingsView& rings);

} // namespace NimaCtl
