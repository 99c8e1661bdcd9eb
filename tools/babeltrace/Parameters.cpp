#include "tools/babeltrace/Parameters.h"

#include "tools/base/CounterClock.h"

#include <exception>
#include <limits>
#include <string_view>

namespace NimaPost {

namespace {

/// No time zone is further from UTC.
constexpr std::int64_t kMostOffset = std::int64_t{24} * 3600;

std::optional<std::int64_t> NumberOf(const bt_value* value) {
    if (bt_value_is_signed_integer(value) != BT_FALSE) {
        return bt_value_integer_signed_get(value);
    }
    if (bt_value_is_unsigned_integer(value) != BT_FALSE) {
        const std::uint64_t number = bt_value_integer_unsigned_get(value);
        return number <= kMostOffset ? std::optional(static_cast<std::int64_t>(number)) : std::nullopt;
    }
    return std::nullopt;
}

class Reading {
  public:
    explicit Reading(FolderParameters& out) : out_(out) {}

    /// Sets a parameter's member.
    void Take(std::string_view name, const bt_value* value) {
        if (name == "inputs") {
            Expect(TakeInputs(value), "inputs: not an array of strings");
        } else if (name == "names") {
            const bool isText = bt_value_is_string(value) != BT_FALSE;
            Expect(isText, "names: not a string");
            out_.names = isText ? bt_value_string_get(value) : "";
        } else if (name == "utc-offset") {
            const auto seconds = NumberOf(value);
            const bool fits = seconds && *seconds >= -kMostOffset && *seconds <= kMostOffset;
            Expect(fits, "utc-offset: not a number of seconds within a day");
            out_.utcOffset = fits ? std::optional(*seconds * kSecond) : std::nullopt;
        } else if (name == "force-absolute") {
            const bool isBool = bt_value_is_bool(value) != BT_FALSE;
            Expect(isBool, "force-absolute: neither true nor false");
            out_.forceAbsolute = isBool && bt_value_bool_get(value) != BT_FALSE;
        } else {
            Expect(false, std::string(name) + ": no such parameter");
        }
    }

    void Expect(bool holds, const std::string& otherwise) {
        problem_ = holds || !problem_.empty() ? problem_ : otherwise;
    }
    const std::string& Problem() const { return problem_; }

    std::exception_ptr thrown; ///< what must not be thrown through babeltrace

  private:
    bool TakeInputs(const bt_value* value) {
        if (bt_value_is_array(value) == BT_FALSE) {
            return false;
        }
        for (std::uint64_t i = 0; i < bt_value_array_get_length(value); ++i) {
            const bt_value* const each = bt_value_array_borrow_element_by_index_const(value, i);
            if (bt_value_is_string(each) == BT_FALSE) {
                return false;
            }
            out_.inputs.emplace_back(bt_value_string_get(each));
        }
        return true;
    }

    FolderParameters& out_;
    std::string problem_;
};

extern "C" bt_value_map_foreach_entry_const_func_status TakeParameter(const char* name, const bt_value* value,
                                                                      void* data) {
    auto& reading = *static_cast<Reading*>(data);
    try {
        reading.Take(name, value);
    } catch (...) {
        reading.thrown = std::current_exception();
        return BT_VALUE_MAP_FOREACH_ENTRY_CONST_FUNC_STATUS_INTERRUPT;
    }
    return BT_VALUE_MAP_FOREACH_ENTRY_CONST_FUNC_STATUS_OK;
}

} // namespace

bool ReadParameters(const bt_value* parameters, FolderParameters& out, std::string& problem) {
    Reading reading(out);
    bt_value_map_foreach_entry_const(parameters, TakeParameter, &reading);
    if (reading.thrown) {
        std::rethrow_exception(reading.thrown);
    }
    reading.Expect(!out.inputs.empty(), "inputs: no folder is named");
    problem = reading.Problem();
    return problem.empty();
}

} // namespace NimaPost
