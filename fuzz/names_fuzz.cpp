#include "fuzz/support/MemoryFile.h"
#include "tools/names/EventFormat.h"

#include <array>

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.Fill(TextOf(data, size));
    Names names;
    std::string problem;
    names.Load(file.Path(), problem);
    constexpr std::array<std::uint32_t, 3> kArguments{0xFFFFFFFF, 0x80000000, 0x1B};
    std::string text;
    for (std::uint32_t event = 0; event < 4; ++event) {
        const EventName* const name = names.Event(1, event);
        const EventName* const ringName = names.RingEvent("Copier", event);
        for (const EventName* each : {name, ringName}) {
            if (each != nullptr) {
                AppendFormatted(text, each->format, kArguments);
            }
        }
    }
    names.FindComponent(TextOf(data, size));
    return 0;
}
