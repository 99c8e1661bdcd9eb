#include "tools/fleet/export/TableRow.h"

#include "tools/base/Csv.h"
#include "tools/base/JsonText.h"
#include "tools/base/Text.h"

#include <utility>

namespace NimaPost {

std::string_view NameOf(TableForm form) {
    return form == TableForm::kJsonl ? "jsonl" : "csv";
}

void TableRow::Begin() {
    first_ = true;
    line_ = form_ == TableForm::kJsonl ? "{" : "";
    heading_.clear();
}

void TableRow::Column(std::string_view name) {
    const char* const comma = std::exchange(first_, false) ? "" : ",";
    line_ += comma;
    if (form_ == TableForm::kJsonl) {
        line_ += '"';
        line_ += name;
        line_ += "\":";
    } else {
        heading_ += comma;
        heading_ += name;
    }
}

void TableRow::Plain(std::string_view value) {
    line_ += !value.empty() ? value : form_ == TableForm::kJsonl ? "null" : "";
}

void TableRow::Text(std::string_view column, std::string_view text) {
    Column(column);
    if (text.empty()) {
        Plain({});
    } else if (form_ == TableForm::kJsonl) {
        line_ += '"';
        AppendJsonText(line_, text);
        line_ += '"';
    } else {
        AppendCsvField(line_, ToUtf8(text));
    }
}

void TableRow::MaybeText(std::string_view column, const std::optional<std::string>& text) {
    Text(column, text ? std::string_view(*text) : std::string_view());
}

void TableRow::Number(std::string_view column, const OptionalNumber& number) {
    Column(column);
    Plain(number ? std::to_string(*number) : std::string());
}

void TableRow::Flag(std::string_view column, bool flag) {
    Column(column);
    Plain(flag ? "true" : "false");
}

void TableRow::Numbers(std::string_view column, std::span<const std::uint32_t> numbers) {
    Column(column);
    std::string list = "[";
    for (const std::uint32_t number : numbers) {
        list += list.size() == 1 ? "" : ",";
        AppendDecimal(list, number);
    }
    list += ']';
    if (form_ == TableForm::kJsonl) {
        line_ += list;
    } else {
        AppendCsvField(line_, list);
    }
}

void TableRow::End() {
    line_ += form_ == TableForm::kJsonl ? "}\n" : "\n";
    if (!heading_.empty()) {
        heading_ += '\n';
    }
}

} // namespace NimaPost
