#include "tools/base/Output.h"

#include "tools/base/Json.h"
#include "tools/base/Progress.h"

namespace NimaPost {

void Output::Write(std::string_view text) {
    text_ += text;
    Pace();
}

void Output::Line(std::string_view text) {
    text_ += text;
    text_ += '\n';
    Pace();
}

void Output::WriteJson(const Json& value) {
    text_ += value.dump(-1, ' ', false, Json::error_handler_t::replace);
    Pace();
}

bool Output::Flush() {
    Send();
    if (std::fflush(stream_) != 0) {
        failed_ = true;
    }
    return !failed_;
}

void Output::Send() {
    if (!text_.empty() && beforeFirst_) {
        std::exchange(beforeFirst_, nullptr)();
    }
    Progress::Clear();
    if (!failed_ && std::fwrite(text_.data(), 1, text_.size(), stream_) != text_.size()) {
        failed_ = true;
    }
    text_.clear();
}

void JsonDocument::Name(std::string_view name) {
    out_.Write(first_ ? "\n" : ",\n");
    first_ = false;
    out_.WriteJson(Json(name));
    out_.Write(": ");
}

JsonDocument::JsonDocument(Output& out) : out_(out) {
    out_.Write("{");
    Member("schema", kJsonSchema);
}

void JsonDocument::Member(std::string_view name, const Json& value) {
    Name(name);
    out_.WriteJson(value);
}

void JsonDocument::BeginArray(std::string_view name) {
    Name(name);
    out_.Write("[");
    firstElement_ = true;
}

void JsonDocument::Element(const Json& value) {
    out_.Write(firstElement_ ? "\n" : ",\n");
    firstElement_ = false;
    out_.WriteJson(value);
}

} // namespace NimaPost
