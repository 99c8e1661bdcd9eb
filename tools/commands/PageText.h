#pragma once

#include "tools/base/Output.h"

#include <string>

namespace NimaPost {

/// Data inside a page: nothing in it closes the page's own element.
void WriteForPage(Output& out, const Json& json);

/// When a page is made: "2026-11-24T18:00:00Z".
std::string NowForPage();

} // namespace NimaPost
