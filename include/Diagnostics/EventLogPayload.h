#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <Diagnostics/Export.h>
#include <Diagnostics/Formats.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The pairs of an event, in two lists that keep order and duplicates. The marks "hashed" and "non-hashed"
/// tell the receiver how to treat a pair; nothing is hashed here. A value type: copies are independent. Not
/// synchronised.
class NIMA_DIAGNOSTICS_API EventLogPayload {
  public:
    using Pairs = std::vector<std::pair<std::string, std::string>>;

    /// Append a pair. They do nothing for a null key or value, or if memory runs out.
    void AddHashedData(const char* key, const char* value);
    void AddNonHashedData(const char* key, const char* value);
    /// The number of pairs in both lists.
    int GetNumberOfDataElements() const;

    /// Appends "<Payload>", the section "Debug" with the hashed pairs, the section "Other" with the others,
    /// and "</Payload>". Nothing is escaped, and an empty list has no section.
    void SerializeToXml(std::stringstream& out) const;
    /// Appends one section. A null name makes the stream fail at the place of the name.
    static void AddDataToSection(std::stringstream& out, const char* sectionName, const Pairs& pairs);
    /// Returns the record's size in bytes, 56 + 256 for each pair. If a record is given and its `totalSize`
    /// is large enough, its entry-area size and its entries are filled in. If `totalSize` is too small, the
    /// record is left alone and `errno` is ENOMEM. A record of 2 GiB or more gives 0 with `errno` ENOMEM. In
    /// all other cases `errno` is 0.
    int SerializeToCallback(VantorCallbackStruct* record) const;

  private:
    Pairs hashed_;
    Pairs nonHashed_;
};

/// A payload with one "Context" pair in each list; a null context adds none.
class NIMA_DIAGNOSTICS_API SimpleDiagnosticPayload : public EventLogPayload {
  public:
    SimpleDiagnosticPayload(const char* hashedContext, const char* nonHashedContext);
};

} // namespace Nima::Common::System::OS::Diagnostics
