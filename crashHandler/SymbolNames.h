#pragma once

/// Names of functions by address, out of the symbol tables of the files that are loaded. The files are mapped
/// once and kept for the whole walk. Takes no lock and allocates nothing; may be called from a signal
/// handler.

#include "crashHandler/LoadedModules.h"

#include <cstddef>
#include <cstdint>

namespace CrashHandling {

/// The function that an address belongs to.
struct SymbolName {
    const char* text = nullptr; ///< as the symbol table has it, mangled
    std::uintptr_t value = 0;   ///< its address in the process; on ARM with the mark of Thumb code
};

class SymbolNames {
  public:
    constexpr explicit SymbolNames(const LoadedModules& modules) : modules_(modules) {}

    /// Forgets all files, for modules that have been read anew.
    void Reset();
    /// The function with the greatest address up to `address`, in the module that holds the address. False
    /// where the module has no symbols, or its file is no longer the one that was loaded.
    bool Find(std::uintptr_t address, SymbolName& name);

  private:
    struct Image {
        const unsigned char* bytes = nullptr;
        std::size_t size = 0;
        bool tried = false;
    };

    const Image& ImageOf(const Module& module);

    const LoadedModules& modules_;
    Image images_[LoadedModules::kMost];
};

} // namespace CrashHandling
