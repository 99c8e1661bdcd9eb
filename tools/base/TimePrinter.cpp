#include "tools/base/TimePrinter.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"

#include <array>

namespace NimaPost {

namespace {

/// Of "2026-11-24 15:09:26.046886123".
constexpr std::size_t kWidth = 29;
constexpr std::size_t kPlaces = 9;

} // namespace

void TimePrinter::Append(std::string& text, std::optional<std::int64_t> time, bool hasWall) {
    if (!time) {
        text.append(kWidth, ' ');
    } else if (!hasWall) {
        AppendSeconds(text, *time);
    } else {
        const std::int64_t fraction = Modulo(*time, kSecond);
        if (*time - fraction != second_) {
            second_ = *time - fraction;
            cached_.clear();
            AppendWallTime(cached_, second_);
            cached_.resize(cached_.size() - kPlaces);
        }
        text += cached_;
        std::array<char, kPlaces> digits{};
        std::int64_t rest = fraction;
        for (std::size_t i = digits.size(); i-- > 0; rest /= 10) {
            digits[i] = static_cast<char>('0' + rest % 10);
        }
        text.append(digits.data(), digits.size());
    }
}

} // namespace NimaPost
