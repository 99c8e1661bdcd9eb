#pragma once

/// The programs and libraries that are mapped into the process, as the kernel lists them. Asking the loader
/// instead would wait for its lock, which the dying thread or another one may hold. Nothing here takes a lock
/// or allocates; everything may be called from a signal handler.

#include <cstddef>
#include <cstdint>

#include <link.h>

namespace CrashHandling {

/// The address of an instruction without the low bit, which marks Thumb code on ARM.
inline std::uintptr_t CodeAddress(std::uintptr_t address) {
#ifdef __arm__
    return address & ~std::uintptr_t{1};
#else
    return address;
#endif
}

/// A mapped range of code and the object file that it belongs to.
struct Module {
    std::uintptr_t begin = 0; ///< of the code
    std::uintptr_t end = 0;
    std::uintptr_t headers = 0; ///< where the file's first byte is mapped
    std::size_t headersMapped = 0;
    std::uintptr_t bias = 0;    ///< what must be added to an address in the file to get one in the process
    const char* path = nullptr; ///< empty if it is too long

    const ElfW(Ehdr) & header() const;
    const ElfW(Phdr) * programHeaders() const;
    /// The first program header of a type, or null.
    const ElfW(Phdr) * FindHeader(unsigned type) const;
};

class LoadedModules {
  public:
    /// Reads the list again. False if the kernel's list cannot be read.
    bool Read();
    /// The module whose code contains an address, or null.
    const Module* Find(std::uintptr_t address) const;
    std::size_t IndexOf(const Module& module) const { return static_cast<std::size_t>(&module - modules_); }

    static constexpr std::size_t kMost = 512;

  private:
    /// A line of the kernel's list.
    struct Mapping {
        std::uintptr_t begin;
        std::uintptr_t end;
        bool readable;
        bool executable;
        std::uintptr_t offset;
        std::uintptr_t device;
        std::uintptr_t inode;
        const char* path;
    };

    void AddLine(char* line);
    void AddCode(const Mapping& mapping);
    const char* Keep(const char* path);

    Module modules_[kMost];
    std::size_t count_ = 0;
    Mapping start_{}; ///< the latest mapping of a file's first byte
    char paths_[32768] = {};
    std::size_t pathsUsed_ = 0;
};

} // namespace CrashHandling
