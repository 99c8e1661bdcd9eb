#pragma once

#include <string_view>

namespace NimaPost {

/// The report's page up to the place of its data. The data is one JSON object as page/main.js describes it,
/// with every "<" written as \u003c.
std::string_view PageHead();

/// The rest of the page.
std::string_view PageTail();

} // namespace NimaPost
