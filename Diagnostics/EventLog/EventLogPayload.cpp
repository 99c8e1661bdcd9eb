#include "Diagnostics/Guarded.h"
#include "platform/Text.h"

#include <cerrno>
#include <climits>

#include <Diagnostics/EventLogPayload.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

void Append(EventLogPayload::Pairs& pairs, const char* key, const char* value) {
    if (key != nullptr && value != nullptr) {
        GuardedCall([&] { pairs.emplace_back(key, value); });
    }
}

VantorEntry* FillEntries(VantorEntry* entry, std::uint32_t type, const EventLogPayload::Pairs& pairs) {
    for (const auto& [key, value] : pairs) {
        entry->size = sizeof(VantorEntry);
        entry->type = type;
        entry->textLength = static_cast<std::uint32_t>(_snprintf_s_helper(
            entry->text, sizeof(entry->text), sizeof(entry->text), "%s,%s", key.c_str(), value.c_str()));
        ++entry;
    }
    return entry;
}

} // namespace

void EventLogPayload::AddHashedData(const char* key, const char* value) {
    Append(hashed_, key, value);
}

void EventLogPayload::AddNonHashedData(const char* key, const char* value) {
    Append(nonHashed_, key, value);
}

int EventLogPayload::GetNumberOfDataElements() const {
    return static_cast<int>(hashed_.size() + nonHashed_.size());
}

void EventLogPayload::AddDataToSection(std::stringstream& out, const char* sectionName, const Pairs& pairs) {
    if (pairs.empty()) {
        return;
    }
    out << "<" << sectionName << ">";
    for (const auto& [key, value] : pairs) {
        out << "<" << key << ">" << value << "</" << key << ">";
    }
    out << "</" << sectionName << ">";
}

void EventLogPayload::SerializeToXml(std::stringstream& out) const {
    out << "<Payload>";
    AddDataToSection(out, "Debug", hashed_);
    AddDataToSection(out, "Other", nonHashed_);
    out << "</Payload>";
}

int EventLogPayload::SerializeToCallback(VantorCallbackStruct* record) const {
    const long long wanted = static_cast<long long>(hashed_.size() + nonHashed_.size()) * VANTOR_ENTRY_SIZE +
                             static_cast<long long>(sizeof(VantorCallbackStruct));
    if (wanted > INT_MAX) {
        errno = ENOMEM;
        return 0;
    }
    const int size = static_cast<int>(wanted);
    if (record != nullptr) {
        if (static_cast<std::uint32_t>(size) > record->totalSize) {
            errno = ENOMEM;
            return size;
        }
        record->entryAreaSize = static_cast<std::uint32_t>(size) - sizeof(VantorCallbackStruct);
        void* const entries = record + 1;
        VantorEntry* const next =
            FillEntries(static_cast<VantorEntry*>(entries), VANTOR_ENTRY_HASHED, hashed_);
        FillEntries(next, VANTOR_ENTRY_NON_HASHED, nonHashed_);
    }
    errno = 0;
    return size;
}

SimpleDiagnosticPayload::SimpleDiagnosticPayload(const char* hashedContext, const char* nonHashedContext) {
    AddHashedData("Context", hashedContext);
    AddNonHashedData("Context", nonHashedContext);
}

} // namespace Nima::Common::System::OS::Diagnostics
