#pragma once

#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

namespace Nima::Testing {

/// What an element of a report's page holds, as tools/report/page/main.js describes it.
class PageBytes {
  public:
    explicit PageBytes(std::string_view base64) {
        std::string packed;
        std::uint32_t bits = 0;
        unsigned held = 0;
        for (const char c : base64.substr(0, base64.find('='))) {
            bits = bits << 6 | static_cast<std::uint32_t>(kDigits.find(c));
            held += 6;
            if (held >= 8) {
                held -= 8;
                packed += static_cast<char>(bits >> held & 0xFF);
            }
        }
        for (unsigned i = 0; i < 4; ++i) {
            bits = bits >> 8 | static_cast<std::uint32_t>(static_cast<unsigned char>(packed.at(i))) << 24;
        }
        bytes_.resize(bits);
        z_stream stream{};
        stream.next_in = reinterpret_cast<Bytef*>(packed.data()) + 4;
        stream.avail_in = static_cast<uInt>(packed.size() - 4);
        stream.next_out = reinterpret_cast<Bytef*>(bytes_.data());
        stream.avail_out = static_cast<uInt>(bytes_.size());
        if (inflateInit2(&stream, -15) != Z_OK || inflate(&stream, Z_FINISH) != Z_STREAM_END ||
            stream.avail_out != 0) {
            throw std::runtime_error("not packed as a page's rows are");
        }
        inflateEnd(&stream);
    }

    std::uint64_t Number() {
        std::uint64_t value = 0;
        for (unsigned shift = 0;; shift += 7) {
            const std::uint64_t byte = Byte();
            value |= (byte & 0x7F) << shift;
            if (byte < 0x80) {
                return value;
            }
        }
    }
    std::int64_t Signed() {
        const std::uint64_t value = Number();
        return static_cast<std::int64_t>(value & 1 ? ~(value >> 1) : value >> 1);
    }
    unsigned char Byte() { return static_cast<unsigned char>(bytes_.at(at_++)); }
    /// Text of so many units of UTF-16, and the line feed after it.
    std::string Text(std::uint64_t units) {
        const std::size_t from = at_;
        for (std::uint64_t i = 0; i < units; ++i) {
            const unsigned char byte = Byte();
            i += byte >= 0xF0 ? 1 : 0;
            at_ += byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
        }
        if (Byte() != '\n') {
            throw std::runtime_error("no end of a text");
        }
        return bytes_.substr(from, at_ - 1 - from);
    }
    bool AtEnd() const { return at_ == bytes_.size(); }

  private:
    static constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes_;
    std::size_t at_ = 0;
};

/// The rows of a block are added as objects; times count from the origin.
inline void AddPageRows(Json& data, PageBytes columns, PageBytes texts) {
    std::vector<Json> rows(columns.Number());
    std::int64_t time = columns.Signed() * 1'000'000'000;
    time += static_cast<std::int64_t>(columns.Number());
    for (Json& row : rows) {
        time += columns.Signed();
        row["time"] = time;
    }
    for (Json& row : rows) {
        const unsigned mark = columns.Byte();
        row["mark"] = mark & 7U;
        row["time"] = mark & 8U ? Json() : row["time"];
    }
    for (const char* member : {"file", "thread", "level", "name", "process", "boot"}) {
        for (Json& row : rows) {
            row[member] = columns.Number();
        }
    }
    std::vector<std::uint64_t> units(rows.size());
    for (std::uint64_t& each : units) {
        each = texts.Number();
    }
    for (Json& row : rows) {
        row["words"] = Json(Json::value_t::array);
        row["words"].get_ref<Json::array_t&>().resize(texts.Byte());
    }
    for (Json& row : rows) {
        for (Json& word : row["words"]) {
            word = texts.Number();
        }
    }
    const auto named = [&](const char* list, const Json& number, const char* member) -> Json {
        const Json entry = number == 0 ? Json() : data[list].at(number.get<std::size_t>() - 1);
        return entry.is_object() ? entry[member] : entry;
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        Json& row = rows[i];
        row["text"] = texts.Text(units[i]);
        row["file"] = data["sources"].at(row["file"].get<std::size_t>());
        row["thread"] = named("threads", row["thread"], "id");
        row["level"] = named("levels", row["level"], "");
        row["name"] = named("names", row["name"], "");
        data["rows"].push_back(row);
    }
    if (!columns.AtEnd() || !texts.AtEnd()) {
        throw std::runtime_error("more in a block than its rows");
    }
}

/// The data of a page that `report` has written, with its rows as objects.
inline Json PageData(const std::string& path = "report.html") {
    const std::string page = ReadFile(path);
    std::size_t at = 0;
    const auto element = [&](const std::string& begin) {
        at = page.find(begin, at);
        const std::size_t from = at + begin.size();
        return at == std::string::npos ? std::string()
                                       : page.substr(from, page.find("</script>", from) - from);
    };
    Json data = Json::parse(element("id=\"data\">"));
    const std::size_t count = data["rows"];
    data["rows"] = Json::array();
    for (std::string columns = element("class=\"columns\">"); !columns.empty();
         columns = element("class=\"columns\">")) {
        AddPageRows(data, PageBytes(columns), PageBytes(element("class=\"texts\">")));
    }
    if (data["rows"].size() != count) {
        throw std::runtime_error("rows are missing");
    }
    return data;
}

} // namespace Nima::Testing
