#pragma once

#include <string_view>

namespace NimaPost {

/// The page of a database up to the place of its data: the element that page/main.js describes.
std::string_view FleetPageHead();

/// The rest of the page.
std::string_view FleetPageTail();

} // namespace NimaPost
