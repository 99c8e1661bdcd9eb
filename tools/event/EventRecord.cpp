#include "tools/event/EventRecord.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <cstring>

#include <Diagnostics/Formats.h>

namespace NimaPost {

namespace {

/// The content of a text field of fixed size, up to its first zero.
std::string_view TextOf(const char* field, std::size_t size) {
    return {field, strnlen(field, size)};
}

EventRecord::Pair PairOf(const VantorEntry& entry) {
    const std::string_view text = TextOf(entry.text, sizeof(entry.text));
    // Keys with commas cannot be told from their values.
    const std::size_t comma = std::min(text.find(','), text.size());
    EventRecord::Pair pair;
    pair.key = text.substr(0, comma);
    pair.value = text.substr(std::min(comma + 1, text.size()));
    pair.hashed = entry.type == VANTOR_ENTRY_HASHED;
    pair.cut = entry.textLength > text.size();
    return pair;
}

bool TakeHead(std::string_view bytes, VantorCallbackStruct& head) {
    if (bytes.size() < sizeof(head)) {
        return false;
    }
    std::memcpy(&head, bytes.data(), sizeof(head));
    return true;
}

void ReadEntries(std::string_view bytes, std::uint32_t area, EventRecord& record, Findings& findings) {
    const std::size_t promised = area / VANTOR_ENTRY_SIZE;
    const std::size_t present = std::min(promised, bytes.size() / VANTOR_ENTRY_SIZE);
    std::size_t strange = 0;
    for (std::size_t i = 0; i < present; ++i) {
        VantorEntry entry{};
        std::memcpy(&entry, bytes.data() + i * VANTOR_ENTRY_SIZE, sizeof(entry));
        const bool known = entry.size == VANTOR_ENTRY_SIZE &&
                           (entry.type == VANTOR_ENTRY_HASHED || entry.type == VANTOR_ENTRY_NON_HASHED);
        if (known) {
            record.pairs.push_back(PairOf(entry));
        } else {
            ++strange;
        }
    }
    if (strange > 0) {
        findings.Damage("unknown-entry", Counted(strange, "entry") + " of unknown size or type.");
    }
    if (present < promised) {
        findings.Damage("file-cut",
                        "The file is cut: it lacks " + Counted(promised - present, "entry") + ".");
    }
    const auto cut = static_cast<std::uint64_t>(std::count_if(
        record.pairs.begin(), record.pairs.end(), [](const EventRecord::Pair& pair) { return pair.cut; }));
    if (cut > 0) {
        findings.Remark("text-cut", Counted(cut, "entry") + " longer than a record holds: the rest is lost.");
    }
}

} // namespace

bool LooksLikeEventRecord(std::string_view front) {
    VantorCallbackStruct head{};
    return TakeHead(front, head) && head.version == VANTOR_RECORD_VERSION &&
           head.sourceSize == VANTOR_SOURCE_SIZE && head.entryAreaSize % VANTOR_ENTRY_SIZE == 0 &&
           head.totalSize == std::uint64_t{head.entryAreaSize} + sizeof(head);
}

std::optional<EventRecord> ReadEventRecord(std::string_view bytes, Findings& findings) {
    VantorCallbackStruct head{};
    if (!TakeHead(bytes, head)) {
        findings.Damage("header-cut", "Too short for an event record.");
        return std::nullopt;
    }
    if (!LooksLikeEventRecord(bytes)) {
        findings.Damage("not-an-event-record",
                        "Not an event record, or one whose version or layout this program does not know.");
        return std::nullopt;
    }
    EventRecord record;
    record.type = head.eventType;
    record.id = head.eventId;
    record.source = TextOf(head.source, sizeof(head.source));
    ReadEntries(bytes.substr(sizeof(head)), head.entryAreaSize, record, findings);
    return record;
}

void AppendEventRecord(std::string& text, const EventRecord& record) {
    text += "type " + std::to_string(record.type) + ", id " + std::to_string(record.id);
    const char* before = ": ";
    for (const EventRecord::Pair& pair : record.pairs) {
        text += before;
        AppendPrintable(text, pair.key);
        text += '=';
        AppendPrintable(text, pair.value);
        text += pair.cut ? "..." : "";
        text += pair.hashed ? " (to be hashed)" : "";
        before = ", ";
    }
}

} // namespace NimaPost
