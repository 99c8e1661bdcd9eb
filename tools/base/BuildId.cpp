#include "tools/base/BuildId.h"

#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include <elf.h>

namespace NimaPost {

namespace {

constexpr unsigned kMostHeaders = 1024;
constexpr std::uint64_t kMostNoteBytes = 1 << 16;

template <typename Struct>
bool ReadStruct(const InputFile& file, std::uint64_t offset, Struct& out) {
    return file.ReadAt(offset, std::span(reinterpret_cast<char*>(&out), sizeof(out))) == sizeof(out);
}

constexpr std::size_t Aligned(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

std::string Hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

/// Notes have the same form in both word sizes.
std::string FindInNotes(std::string_view notes) {
    while (notes.size() >= sizeof(Elf32_Nhdr)) {
        Elf32_Nhdr note{};
        std::memcpy(&note, notes.data(), sizeof(note));
        notes.remove_prefix(sizeof(note));
        const std::size_t name = Aligned(note.n_namesz);
        if (note.n_namesz > notes.size() || note.n_descsz > notes.size() ||
            name > notes.size() - note.n_descsz) {
            break;
        }
        if (note.n_type == NT_GNU_BUILD_ID && notes.starts_with(std::string_view("GNU\0", 4))) {
            return Hexadecimal(notes.substr(name, note.n_descsz));
        }
        notes.remove_prefix(std::min(notes.size(), name + Aligned(note.n_descsz)));
    }
    return {};
}

template <typename FileHeader, typename ProgramHeader>
std::string Find(const InputFile& file) {
    FileHeader header{};
    if (!ReadStruct(file, 0, header) || header.e_phentsize != sizeof(ProgramHeader)) {
        return {};
    }
    for (unsigned i = 0; i < header.e_phnum && i < kMostHeaders; ++i) {
        ProgramHeader segment{};
        if (!ReadStruct(file, header.e_phoff + std::uint64_t{i} * sizeof(segment), segment)) {
            break;
        }
        if (segment.p_type != PT_NOTE || segment.p_filesz > kMostNoteBytes) {
            continue;
        }
        std::string notes(static_cast<std::size_t>(segment.p_filesz), '\0');
        notes.resize(file.ReadAt(segment.p_offset, notes));
        std::string id = FindInNotes(notes);
        if (!id.empty()) {
            return id;
        }
    }
    return {};
}

} // namespace

bool LooksLikeElf(std::string_view front) {
    return front.starts_with(std::string_view(ELFMAG, SELFMAG));
}

std::string BuildIdOf(const InputFile& file) {
    char identity[EI_NIDENT] = {};
    if (!ReadStruct(file, 0, identity) || !LooksLikeElf(std::string_view(identity, EI_NIDENT)) ||
        identity[EI_DATA] != ELFDATA2LSB) {
        return {};
    }
    return identity[EI_CLASS] == ELFCLASS64 ? Find<Elf64_Ehdr, Elf64_Phdr>(file)
                                            : Find<Elf32_Ehdr, Elf32_Phdr>(file);
}

std::string BuildIdOf(const std::string& path) {
    std::string problem;
    const auto file = InputFile::Open(path, problem);
    return file ? BuildIdOf(*file) : std::string();
}

} // namespace NimaPost
