#include "tools/commands/PageText.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/WallClock.h"

#include <chrono>
#include <cstdint>
#include <string_view>

namespace NimaPost {

void WriteForPage(Output& out, const Json& json) {
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string_view rest = text;
    for (std::size_t at = rest.find('<'); at != std::string_view::npos; at = rest.find('<')) {
        out.Write(rest.substr(0, at));
        out.Write("\\u003c");
        rest.remove_prefix(at + 1);
    }
    out.Write(rest);
}

std::string NowForPage() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    const std::string text = WallTimeIso(seconds * kSecond);
    return text.substr(0, text.find('.')) + 'Z';
}

} // namespace NimaPost
