#include "crashHandler/LoadedModules.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

/// Takes a number of the given base off the front of a text.
std::uintptr_t TakeNumber(char*& text, unsigned base) {
    std::uintptr_t value = 0;
    for (;; ++text) {
        const char c = *text;
        unsigned digit = 99;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a') + 10;
        }
        if (digit >= base) {
            return value;
        }
        value = value * base + digit;
    }
}

void Skip(char*& text, char c) {
    while (*text == c) {
        ++text;
    }
}

bool IsElf(std::uintptr_t address) {
    return address != 0 && std::memcmp(reinterpret_cast<const void*>(address), ELFMAG, SELFMAG) == 0;
}

/// What must be added to the file's addresses: where the first loadable segment is, less the address it was
/// linked for.
std::uintptr_t BiasOf(const Module& module) {
    const ElfW(Phdr)* const first = module.FindHeader(PT_LOAD);
    return first == nullptr ? 0 : module.headers - (first->p_vaddr - first->p_offset);
}

} // namespace

const ElfW(Ehdr) & Module::header() const {
    return *reinterpret_cast<const ElfW(Ehdr)*>(headers);
}

const ElfW(Phdr) * Module::programHeaders() const {
    return reinterpret_cast<const ElfW(Phdr)*>(headers + header().e_phoff);
}

const ElfW(Phdr) * Module::FindHeader(unsigned type) const {
    if (header().e_phoff + header().e_phnum * sizeof(ElfW(Phdr)) > headersMapped) {
        return nullptr;
    }
    for (unsigned i = 0; i < header().e_phnum; ++i) {
        if (programHeaders()[i].p_type == type) {
            return &programHeaders()[i];
        }
    }
    return nullptr;
}

bool LoadedModules::Read() {
    count_ = 0;
    pathsUsed_ = 0;
    start_ = {};
    const int file = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (file == -1) {
        return false;
    }
    char text[4096];
    std::size_t filled = 0;
    for (;;) {
        const ssize_t count = ::read(file, text + filled, sizeof(text) - 1 - filled);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
        text[filled] = '\0';
        char* line = text;
        for (char* end = nullptr; (end = std::strchr(line, '\n')) != nullptr; line = end + 1) {
            *end = '\0';
            AddLine(line);
        }
        if (line == text && filled == sizeof(text) - 1) {
            filled = 0; // longer than any path: not a line that makes sense
        } else {
            filled -= static_cast<std::size_t>(line - text);
            std::memmove(text, line, filled);
        }
    }
    ::close(file);
    return count_ != 0;
}

const Module* LoadedModules::Find(std::uintptr_t address) const {
    for (std::size_t i = 0; i < count_; ++i) {
        if (address >= modules_[i].begin && address < modules_[i].end) {
            return &modules_[i];
        }
    }
    return nullptr;
}

// "begin-end rwxp offset major:minor inode   path"
void LoadedModules::AddLine(char* line) {
    Mapping mapping{};
    mapping.begin = TakeNumber(line, 16);
    Skip(line, '-');
    mapping.end = TakeNumber(line, 16);
    Skip(line, ' ');
    if (std::strlen(line) < 5) {
        return;
    }
    mapping.readable = line[0] == 'r';
    mapping.executable = line[2] == 'x';
    const bool isShared = line[3] == 's'; // never code, and a device's memory must not be touched
    line += 5;
    mapping.offset = TakeNumber(line, 16);
    Skip(line, ' ');
    mapping.device = TakeNumber(line, 16) << 16U;
    Skip(line, ':');
    mapping.device |= TakeNumber(line, 16);
    Skip(line, ' ');
    mapping.inode = TakeNumber(line, 10);
    Skip(line, ' ');
    mapping.path = line;
    const bool isVdso = std::strcmp(line, "[vdso]") == 0;
    if ((mapping.inode == 0 && !isVdso) || !mapping.readable || isShared) {
        return;
    }
    if (mapping.offset == 0 && mapping.end - mapping.begin >= sizeof(ElfW(Ehdr))) {
        start_ = mapping;
    }
    if (mapping.executable && mapping.device == start_.device && mapping.inode == start_.inode) {
        AddCode(mapping);
    }
}

void LoadedModules::AddCode(const Mapping& mapping) {
    if (count_ == kMost || !IsElf(start_.begin)) {
        return;
    }
    Module& module = modules_[count_++];
    module = {mapping.begin, mapping.end, start_.begin, start_.end - start_.begin, 0, Keep(mapping.path)};
    module.bias = BiasOf(module);
}

const char* LoadedModules::Keep(const char* path) {
    const std::size_t size = std::strlen(path) + 1;
    if (size > sizeof(paths_) - pathsUsed_) {
        return "";
    }
    char* const kept = paths_ + pathsUsed_;
    std::memcpy(kept, path, size);
    pathsUsed_ += size;
    return kept;
}

} // namespace CrashHandling
