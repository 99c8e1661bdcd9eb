#pragma once

/// The rings of the segment "System Ring Buffers", one per row, in index order. The library lays them out by
/// this table and every reader names them by it.

#include <array>
#include <cstdint>
#include <string_view>

#include <Diagnostics/Formats.h>

namespace Nima::Catalogue {

struct RingRow {
    std::string_view name;
    std::uint32_t entries; ///< a power of two
};

inline constexpr std::array kRings{
    RingRow{"Tracing", 256},          RingRow{"RasterCtl", 1024},     RingRow{"PrintEngine", 512},
    RingRow{"Assurance", 256},        RingRow{"PageLang", 512},       RingRow{"Platform", 512},
    RingRow{"Timing", 512},           RingRow{"EngineLink", 2048},    RingRow{"DataStore", 1024},
    RingRow{"PeerLink", 512},         RingRow{"Panel", 256},          RingRow{"PanelState", 512},
    RingRow{"JobTrack", 512},         RingRow{"AssuranceStrip", 256}, RingRow{"HwAccel", 512},
    RingRow{"ModuleHub", 256},        RingRow{"Copier", 512},         RingRow{"Facsimile", 512},
    RingRow{"ScanEngine", 256},       RingRow{"GraphicsFilter", 256}, RingRow{"PrintFrontPipe", 512},
    RingRow{"WebSvc", 256},           RingRow{"ScanToDest", 512},     RingRow{"ImageStore", 256},
    RingRow{"ManagedAssurance", 512}, RingRow{"ImageBridge", 256},    RingRow{"PrintPipeStatus", 256},
    RingRow{"FacsimileCmd", 512},     RingRow{"PreviewJob", 256},     RingRow{"ManagedVm", 1024},
    RingRow{"Consumables", 256},
};
static_assert(kRings.size() == RING_COUNT, "a row for each ring");

} // namespace Nima::Catalogue
