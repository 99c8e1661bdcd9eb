#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json_fwd.hpp>

namespace NimaPost {

using Json = nlohmann::ordered_json;

/// Text for standard output or a file, gathered in large pieces. A failed write is remembered.
class Output {
  public:
    /// Does not take ownership of the stream.
    explicit Output(std::FILE* stream) : stream_(stream) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { Flush(); }

    /// The text being gathered: append to it, then call `Pace`.
    std::string& Text() { return text_; }
    void Write(std::string_view text);
    void Line(std::string_view text);
    /// One value without line breaks; bytes that are not UTF-8 are replaced.
    void WriteJson(const Json& value);

    /// To be called before the first text is written.
    void BeforeFirst(std::function<void()> action) { beforeFirst_ = std::move(action); }

    /// Writes the gathered text once there is a lot of it.
    void Pace() {
        if (text_.size() >= kPiece) {
            Send();
        }
    }
    /// Writes everything now. Returns false once anything has failed.
    bool Flush();

  private:
    static constexpr std::size_t kPiece = 1 << 16;

    void Send();

    std::FILE* stream_;
    std::string text_;
    std::function<void()> beforeFirst_;
    bool failed_ = false;
};

/// The version of the objects that are printed, doc/nima-post-json.md.
inline constexpr int kJsonSchema = 1;

/// A JSON object written member by member, so that a long array is never in memory as a whole: Begin,
/// Member..., BeginArray, Element..., EndArray, End.
class JsonDocument {
  public:
    explicit JsonDocument(Output& out);

    void Member(std::string_view name, const Json& value);
    void BeginArray(std::string_view name);
    void Element(const Json& value);
    void EndArray() { out_.Write("\n]"); }
    void End() { out_.Write("\n}\n"); }

  private:
    void Name(std::string_view name);

    Output& out_;
    bool first_ = true;
    bool firstElement_ = true;
};

} // namespace NimaPost
