#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace Nima::Testing {

/// A message of Protocol Buffers, taken apart: the values of each field.
class Message {
  public:
    explicit Message(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::uint64_t key = Varint(bytes);
            if (key % 8 == 0) {
                numbers_[key / 8].push_back(Varint(bytes));
            } else if (key % 8 == 2) {
                const std::uint64_t length = Varint(bytes);
                Expect(length <= bytes.size(), "a field reaches beyond its message");
                texts_[key / 8].emplace_back(bytes.substr(0, length));
                bytes.remove_prefix(length);
            } else {
                throw std::runtime_error("an unknown type of field");
            }
        }
    }

    bool Has(std::uint64_t field) const { return numbers_.contains(field) || texts_.contains(field); }
    std::uint64_t Number(std::uint64_t field) const { return One(numbers_, field); }
    std::string Text(std::uint64_t field) const { return One(texts_, field); }
    Message Part(std::uint64_t field) const { return Message(Text(field)); }
    std::vector<Message> Parts(std::uint64_t field) const {
        std::vector<Message> parts;
        if (const auto all = texts_.find(field); all != texts_.end()) {
            for (const std::string& text : all->second) {
                parts.emplace_back(text);
            }
        }
        return parts;
    }

    static void Expect(bool holds, const char* what) {
        if (!holds) {
            throw std::runtime_error(what);
        }
    }

  private:
    static std::uint64_t Varint(std::string_view& bytes) {
        std::uint64_t value = 0;
        for (unsigned shift = 0;; shift += 7) {
            Expect(!bytes.empty() && shift < 64, "a number that does not end");
            const auto byte = static_cast<unsigned char>(bytes.front());
            bytes.remove_prefix(1);
            value |= std::uint64_t{byte & 127U} << shift;
            if (byte < 128) {
                return value;
            }
        }
    }

    template <class Value>
    static Value One(const std::map<std::uint64_t, std::vector<Value>>& values, std::uint64_t field) {
        const auto all = values.find(field);
        Expect(all != values.end() && all->second.size() == 1, "a field is not there once");
        return all->second.front();
    }

    std::map<std::uint64_t, std::vector<std::uint64_t>> numbers_;
    std::map<std::uint64_t, std::vector<std::string>> texts_;
};

/// A Perfetto trace in the words of a Chrome trace. Everything that an event refers to must stand before it
/// or in its packet.
class PerfettoReading {
  public:
    std::vector<nlohmann::json> instants; ///< in the order of the file
    std::map<std::string, std::vector<std::pair<std::int64_t, std::uint64_t>>> counters; ///< by title
    std::map<std::string, nlohmann::json> about;

    explicit PerfettoReading(const std::string& bytes) {
        for (const Message& packet : Message(bytes).Parts(1)) {
            Take(packet);
        }
    }

  private:
    struct Track {
        std::string process;
        std::string title;
    };

    void Take(const Message& packet) {
        if (packet.Has(5)) {
            const Message item = packet.Part(5).Part(2);
            about[item.Text(1)] =
                item.Has(5) ? nlohmann::json::parse(item.Text(5)) : nlohmann::json(item.Text(2));
        }
        if (packet.Has(10)) {
            Message::Expect(packet.Number(10) == 1, "another sequence");
            Message::Expect(packet.Number(13) == (begun_ ? 2U : 1U),
                            "the sequence's state is not cleared once");
            begun_ = true;
        }
        for (const std::uint64_t table : {1, 2, 3, 29}) {
            for (const Message& text :
                 packet.Has(12) ? packet.Part(12).Parts(table) : std::vector<Message>()) {
                Message::Expect(texts_[table].emplace(text.Number(1), text.Text(2)).second, "a number twice");
            }
        }
        if (packet.Has(60)) {
            Describe(packet.Part(60));
        }
        if (packet.Has(11)) {
            Event(packet.Part(11), static_cast<std::int64_t>(packet.Number(8)));
        }
    }

    void Describe(const Message& track) {
        const std::uint64_t uuid = track.Number(1);
        Message::Expect(uuid != 0 && !tracks_.contains(uuid), "a track's number is not its own");
        if (track.Has(3)) {
            Message::Expect(processes_.insert(track.Part(3).Number(1)).second, "a process twice");
            tracks_[uuid] = {track.Part(3).Text(6), ""};
            return;
        }
        const Track& parent = tracks_.at(track.Number(5));
        if (track.Has(4)) {
            Message::Expect(processes_.contains(track.Part(4).Number(1)), "a thread of no process");
            Message::Expect(threads_.insert(track.Part(4).Number(2)).second, "a thread twice");
        }
        tracks_[uuid] = {parent.process, track.Has(4) ? track.Part(4).Text(5) : track.Text(2)};
    }

    std::string Interned(const Message& message, std::uint64_t table, std::uint64_t number,
                         std::uint64_t text) const {
        return message.Has(number) ? texts_.at(table).at(message.Number(number)) : message.Text(text);
    }

    void Event(const Message& event, std::int64_t time) {
        const Track& track = tracks_.at(event.Number(11));
        if (event.Number(9) == 4) {
            counters[track.title].emplace_back(time, event.Number(30));
            return;
        }
        Message::Expect(event.Number(9) == 3, "neither an instant nor a count");
        nlohmann::json arguments = nlohmann::json::object();
        for (const Message& each : event.Parts(4)) {
            nlohmann::json value;
            if (each.Has(3)) {
                value = each.Number(3);
            } else if (each.Has(7)) {
                value = Hex(each.Number(7));
            } else {
                value = Interned(each, 29, 17, 6);
            }
            arguments[Interned(each, 3, 1, 10)] = value;
        }
        instants.push_back({{"process", track.process},
                            {"thread", track.title},
                            {"time", time},
                            {"category", Interned(event, 1, 3, 22)},
                            {"name", Interned(event, 2, 10, 23)},
                            {"args", arguments}});
    }

    static std::string Hex(std::uint64_t value) {
        std::string digits;
        do {
            digits.insert(digits.begin(), "0123456789abcdef"[value % 16]);
            value /= 16;
        } while (value != 0);
        return "0x" + digits;
    }

    bool begun_ = false;
    std::map<std::uint64_t, Track> tracks_;
    std::set<std::uint64_t> processes_;
    std::set<std::uint64_t> threads_;
    std::map<std::uint64_t, std::map<std::uint64_t, std::string>> texts_;
};

} // namespace Nima::Testing
