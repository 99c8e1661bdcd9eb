#pragma once

#include <string_view>

namespace NimaPost {

/// The report's page up to the place of its data: the elements that page/main.js describes.
std::string_view ReportPageHead();

/// The rest of the page.
std::string_view ReportPageTail();

} // namespace NimaPost
