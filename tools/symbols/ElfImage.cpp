#include "tools/symbols/ElfImage.h"

#include "tools/base/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace NimaPost {

namespace {

std::string Hexadecimal(const void* bytes, std::size_t count) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned byte = static_cast<const unsigned char*>(bytes)[i];
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

bool HasElfMark(int descriptor) {
    char mark[SELFMAG] = {};
    return ::pread(descriptor, mark, sizeof(mark), 0) == static_cast<ssize_t>(sizeof(mark)) &&
           std::memcmp(mark, ELFMAG, SELFMAG) == 0;
}

/// Only a library's versions begin with this; no mangled name holds it.
std::string_view WithoutVersion(std::string_view name) {
    return name.substr(0, name.find('@'));
}

} // namespace

std::unique_ptr<ElfImage> ElfImage::Open(const std::string& path, std::string& problem) {
    problem.clear();
    const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.Number(), &status) != 0) {
        problem = std::strerror(errno);
        return nullptr;
    }
    if (!S_ISREG(status.st_mode) || !HasElfMark(descriptor.Number())) {
        return nullptr;
    }
    std::unique_ptr<ElfImage> image(new ElfImage(path));
    image->elf_.reset(elf_begin(descriptor.Number(), ELF_C_READ_MMAP, nullptr));
    GElf_Ehdr header{};
    if (image->elf_ == nullptr || gelf_getehdr(image->elf_.get(), &header) == nullptr) {
        problem = "it begins like a program, but its head cannot be read";
        return nullptr;
    }
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
        return nullptr;
    }
    if (!image->ReadHead()) {
        problem = "its segments or sections cannot be read; it may be cut";
        return nullptr;
    }
    elf_cntl(image->elf_.get(), ELF_C_FDREAD);
    return image;
}

bool ElfImage::ReadHead() {
    GElf_Ehdr header{};
    std::size_t segments = 0;
    std::size_t sections = 0;
    if (gelf_getehdr(elf_.get(), &header) == nullptr || elf_getphdrnum(elf_.get(), &segments) != 0 ||
        elf_getshdrnum(elf_.get(), &sections) != 0 || segments == 0 ||
        (header.e_shoff != 0 && sections == 0)) {
        return false;
    }
    arm_ = header.e_machine == EM_ARM;
    is32Bit_ = header.e_ident[EI_CLASS] == ELFCLASS32;
    fixed_ = header.e_type == ET_EXEC;
    ReadSegments();
    ReadSections();
    const void* id = nullptr;
    const ssize_t size = dwelf_elf_gnu_build_id(elf_.get(), &id);
    if (size > 0) {
        buildId_ = Hexadecimal(id, static_cast<std::size_t>(size));
    }
    return codeBegin_ < codeEnd_;
}

void ElfImage::ReadSegments() {
    std::size_t count = 0;
    elf_getphdrnum(elf_.get(), &count);
    bool first = true;
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Phdr segment{};
        if (gelf_getphdr(elf_.get(), static_cast<int>(i), &segment) == nullptr || segment.p_type != PT_LOAD) {
            continue;
        }
        if (first) {
            firstAddress_ = segment.p_vaddr - segment.p_offset;
            first = false;
        }
        if ((segment.p_flags & PF_X) != 0) {
            const bool none = codeBegin_ == codeEnd_;
            codeBegin_ = none ? segment.p_vaddr : std::min(codeBegin_, segment.p_vaddr);
            codeEnd_ = std::max(codeEnd_, segment.p_vaddr + segment.p_memsz);
        }
    }
}

void ElfImage::ReadSections() {
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf_.get(), &names) != 0) {
        return;
    }
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_.get(), section)) != nullptr;) {
        GElf_Shdr header{};
        const char* const text = gelf_getshdr(section, &header) != nullptr
                                     ? elf_strptr(elf_.get(), names, header.sh_name)
                                     : nullptr;
        const std::string_view name = text != nullptr ? text : "";
        const bool filled = header.sh_type != SHT_NOBITS;
        hasLines_ = hasLines_ || (filled && (name == ".debug_info" || name == ".zdebug_info"));
        needsOtherFile_ = needsOtherFile_ || name == ".gnu_debugaltlink";
        hasAllNames_ = hasAllNames_ || (filled && header.sh_type == SHT_SYMTAB);
    }
    GElf_Word sum = 0;
    if (const char* const link = dwelf_elf_gnu_debuglink(elf_.get(), &sum)) {
        debugLink_ = link;
        debugLinkSum_ = sum;
    }
}

std::uint32_t ElfImage::CheckSum() const {
    std::size_t size = 0;
    const char* const bytes = elf_rawfile(elf_.get(), &size);
    if (bytes == nullptr) {
        return 0;
    }
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes), size));
}

void ElfImage::ReadTable(Elf_Scn* section) {
    GElf_Shdr header{};
    Elf_Data* const data = elf_getdata(section, nullptr);
    if (gelf_getshdr(section, &header) == nullptr || data == nullptr || header.sh_entsize == 0) {
        return;
    }
    const std::uint64_t count = data->d_size / header.sh_entsize;
    for (std::uint64_t i = 0; i < count; ++i) {
        GElf_Sym symbol{};
        if (gelf_getsym(data, static_cast<int>(i), &symbol) == nullptr || symbol.st_shndx == SHN_UNDEF ||
            (GELF_ST_TYPE(symbol.st_info) != STT_FUNC && GELF_ST_TYPE(symbol.st_info) != STT_GNU_IFUNC)) {
            continue;
        }
        const char* const name = elf_strptr(elf_.get(), header.sh_link, symbol.st_name);
        if (name != nullptr && *name != '\0') {
            const std::uint64_t begin = arm_ ? symbol.st_value & ~std::uint64_t{1} : symbol.st_value;
            functions_.push_back({begin, symbol.st_size, symbol.st_value, WithoutVersion(name)});
        }
    }
}

const std::vector<ImageFunction>& ElfImage::Functions() {
    if (functionsRead_) {
        return functions_;
    }
    functionsRead_ = true;
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_.get(), section)) != nullptr;) {
        GElf_Shdr header{};
        if (gelf_getshdr(section, &header) != nullptr &&
            (header.sh_type == SHT_SYMTAB || header.sh_type == SHT_DYNSYM)) {
            ReadTable(section);
        }
    }
    // The largest of those that begin together comes first, then by name, so that the order is always the
    // same.
    std::stable_sort(functions_.begin(), functions_.end(), [](const auto& a, const auto& b) {
        return std::tie(a.begin, b.size, a.name) < std::tie(b.begin, a.size, b.name);
    });
    return functions_;
}

const ImageFunction* ElfImage::FunctionAt(std::uint64_t address) {
    const auto& all = Functions();
    auto at = std::upper_bound(all.begin(), all.end(), address,
                               [](std::uint64_t wanted, const auto& each) { return wanted < each.begin; });
    if (at == all.begin()) {
        return nullptr;
    }
    const std::uint64_t begin = std::prev(at)->begin;
    at = std::lower_bound(all.begin(), all.end(), begin,
                          [](const auto& each, std::uint64_t wanted) { return each.begin < wanted; });
    // Hand-written code often has no size: it reaches to the next function.
    const bool holds = at->size == 0 || address - at->begin < at->size;
    return holds ? &*at : nullptr;
}

} // namespace NimaPost
