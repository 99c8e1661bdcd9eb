#pragma once

#include "tools/base/InputFile.h"
#include "tools/input/EvidenceStore.h"

namespace NimaPost {

/// Unpacks an archive, or a compressed file, and the archives in it. `packed` is what `input` reads and
/// stands in `place`, as does what a compressed file holds; what an archive holds stands `inside`.
void Unpack(const InputFile& input, const EvidenceFile& packed, const Place& place, const Place& inside,
            EvidenceStore& store);

} // namespace NimaPost
