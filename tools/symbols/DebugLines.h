#pragma once

#include "tools/symbols/Resolution.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <elfutils/libdw.h>
#include <libelf.h>

namespace NimaPost {

/// The demangled form of a name; the name itself if it is not mangled.
std::string PlainName(const std::string& name);

/// What the debug information of one file says about addresses. It is trusted as `ElfImage` trusts a file.
class DebugLines {
  public:
    /// `elf` must outlive it. Without debug information nothing is ever found.
    explicit DebugLines(Elf* elf) : dwarf_(dwarf_begin_elf(elf, DWARF_C_READ, nullptr)) {}

    /// The functions at an address of the file: the innermost inlined one first, the one with code of its own
    /// last. Empty where nothing covers the address; the last has no name where only its line is known.
    std::vector<Call> CallsAt(std::uint64_t address);

  private:
    struct EndDwarf {
        void operator()(Dwarf* dwarf) const { dwarf_end(dwarf); }
    };

    bool FindUnit(std::uint64_t address, Dwarf_Die& unit);
    /// The entry at the address and those around it, the innermost first.
    std::vector<Dwarf_Die> ScopesAt(Dwarf_Die& unit, std::uint64_t address);

    std::unique_ptr<Dwarf, EndDwarf> dwarf_;
};

} // namespace NimaPost
