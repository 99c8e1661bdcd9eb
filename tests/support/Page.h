#pragma once

#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <string>

namespace Nima::Testing {

/// The data of a page that nima-post has written. The rows of a report, which stand after it, are counted
/// there; tests/report/page_test.py reads them.
inline Json PageData(const std::string& path = "report.html") {
    const std::string page = ReadFile(path);
    const std::string begin = "id=\"data\">";
    const std::size_t at = page.find(begin) + begin.size();
    return Json::parse(page.substr(at, page.find("</script>", at) - at));
}

} // namespace Nima::Testing
