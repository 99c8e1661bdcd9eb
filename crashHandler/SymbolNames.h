#pragma once

/// Names of functions by address, from the symbol tables of the loaded files. The files are mapped once and
/// kept for the whole walk. Takes no lock and allocates nothing; may be called from a signal handler.

#include "crashHandler/LoadedModules.h"

#include <cstddef>
#include <cstdint>

namespace CrashHandling {

/// The function that an address belongs to.
struct SymbolName {
    const char* text = nullptr; ///< as in the symbol table, mangled
    std::uintptr_t value = 0;   ///< its address in the process; on ARM with the mark of Thumb code
};

class SymbolNames {
  public:
    constexpr explicit SymbolNames(const LoadedModules& modules) : modules_(modules) {}

    /// Forgets all files. Call it when the modules have been read again.
    void Reset();
    /// The function with the greatest address up to `address`, in the module that contains the address.
    /// Returns false if the module has no symbols, or its file is no longer the one that was loaded.
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
