#pragma once

#include <nlohmann/json.hpp>

namespace NimaPost {

/// Its members keep their order. Who only hands one on does without this long header: Output.h declares it,
/// too.
using Json = nlohmann::ordered_json;

} // namespace NimaPost
