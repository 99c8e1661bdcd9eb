#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <Diagnostics/Export.h>
#include <Diagnostics/Formats.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The pairs of an event, in two lists that keep their order and their duplicates. The marks "hashed" and
/// "non-hashed" tell the receiver how to treat a pair; nothing is hashed here. A value: copies are
/// independent. Not synchronised.
class NIMA_DIAGNOSTICS_API EventLogPayload {
  public:
    using Pairs = std::vector<std::pair<std::string, std::string>>;

    /// Append a pair; nothing for a null key or value, or without memory.
    void AddHashedData(const char* key, const char* value);
    void AddNonHashedData(const char* key, const char* value);
    /// All pairs of both lists.
    int GetNumberOfDataElements() const;

    /// Appends "<Payload>", the section "Debug" with the hashed pairs, the section "Other" with the others,
    /// "</Payload>". Nothing is escaped, and an empty list has no section.
    void SerializeToXml(std::stringstream& out) const;
    /// Appends one section. A null name makes the stream fail where the name would go.
    static void AddDataToSection(std::stringstream& out, const char* sectionName, const Pairs& pairs);
    /// The size in bytes of the record, 56 + 256 for each pair. Fills size of the entry area and entries of a
    /// record that is given, provided that its `totalSize` says it is large enough; otherwise it is left
    /// alone and `errno` is ENOMEM. `errno` is 0 in all other
    /// cases, but for a record of 2 GiB and more: 0 with `errno` ENOMEM.
    int SerializeToCallback(VantorCallbackStruct* record) const;

  private:
    Pairs hashed_;
    Pairs nonHashed_;
};

/// A payload with one "Context" pair in each list; none for a null context.
class NIMA_DIAGNOSTICS_API SimpleDiagnosticPayload : public EventLogPayload {
  public:
    SimpleDiagnosticPayload(const char* hashedContext, const char* nonHashedContext);
};

} // namespace Nima::Common::System::OS::Diagnostics
