#pragma once

#include "tools/base/OutputFilter.h"

#include <memory>

namespace NimaPost {

/// Compresses text while it is being made, in a thread of its own, and writes it as a gzip file. Null, with
/// `errno` set, if that cannot be.
std::unique_ptr<OutputFilter> MakeGzipWriter(std::FILE* file);

} // namespace NimaPost
