#include "crashHandler/SymbolNames.h"

#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

/// The bytes of an object file. Every claim that the file makes about itself is checked.
class ElfBytes {
  public:
    ElfBytes(const unsigned char* bytes, std::size_t size) : bytes_(bytes), size_(size) {}

    /// `count` objects at an offset, or null if the file ends before that.
    template <class T>
    const T* At(std::uintptr_t offset, std::size_t count = 1) const {
        if (offset > size_ || count > (size_ - offset) / sizeof(T) || offset % alignof(T) != 0) {
            return nullptr;
        }
        return static_cast<const T*>(static_cast<const void*>(bytes_ + offset));
    }

    const char* Text(std::uintptr_t begin, std::uintptr_t length, std::uintptr_t offset) const {
        const char* const texts = At<char>(begin, length);
        if (texts == nullptr || offset >= length ||
            std::memchr(texts + offset, '\0', length - offset) == nullptr) {
            return nullptr;
        }
        return texts + offset;
    }

  private:
    const unsigned char* bytes_;
    std::size_t size_;
};

bool SameBytes(const Module& module, const unsigned char* file, std::size_t fileSize, std::uintptr_t offset,
               std::size_t length) {
    return offset <= module.headersMapped && length <= module.headersMapped - offset && offset <= fileSize &&
           length <= fileSize - offset &&
           std::memcmp(reinterpret_cast<const void*>(module.headers + offset), file + offset, length) == 0;
}

/// Whether a file is the one that was loaded: an update may have replaced it. Headers and notes, including
/// the build's identification, tell them apart.
bool IsLoadedFile(const Module& module, const unsigned char* file, std::size_t fileSize) {
    const ElfW(Ehdr)& header = module.header();
    if (!SameBytes(module, file, fileSize, 0, sizeof(header)) ||
        !SameBytes(module, file, fileSize, header.e_phoff, header.e_phnum * sizeof(ElfW(Phdr)))) {
        return false;
    }
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        const ElfW(Phdr)& part = module.programHeaders()[i];
        if (part.p_type == PT_NOTE && part.p_offset + part.p_filesz <= module.headersMapped &&
            !SameBytes(module, file, fileSize, part.p_offset, part.p_filesz)) {
            return false;
        }
    }
    return true;
}

class Search {
  public:
    Search(const ElfBytes& file, std::uintptr_t bias, std::uintptr_t address)
        : file_(file), bias_(bias), address_(address) {}

    void Table(const ElfW(Shdr) & table, const ElfW(Shdr) & texts) {
        const std::size_t count = table.sh_size / sizeof(ElfW(Sym));
        const auto* const symbols = file_.At<ElfW(Sym)>(table.sh_offset, count);
        for (std::size_t i = 0; symbols != nullptr && i < count; ++i) {
            // The symbol types have the same numbers in both word sizes.
            if (ELF32_ST_TYPE(symbols[i].st_info) == STT_FUNC && symbols[i].st_shndx != SHN_UNDEF) {
                Consider(symbols[i], texts);
            }
        }
    }

    bool Found(SymbolName& name) const {
        name = best_;
        return best_.text != nullptr;
    }

  private:
    void Consider(const ElfW(Sym) & symbol, const ElfW(Shdr) & texts) {
        const std::uintptr_t value = symbol.st_value + (symbol.st_shndx != SHN_ABS ? bias_ : 0);
        const std::uintptr_t begin = CodeAddress(value);
        if (begin > address_ || address_ - begin >= distance_) {
            return;
        }
        if (const char* const text = file_.Text(texts.sh_offset, texts.sh_size, symbol.st_name)) {
            best_ = {text, value};
            distance_ = address_ - begin;
        }
    }

    const ElfBytes& file_;
    std::uintptr_t bias_;
    std::uintptr_t address_;
    std::uintptr_t distance_ = ~std::uintptr_t{0};
    SymbolName best_;
};

} // namespace

void SymbolNames::Reset() {
    for (Image& image : images_) {
        image = {};
    }
}

const SymbolNames::Image& SymbolNames::ImageOf(const Module& module) {
    Image& image = images_[modules_.IndexOf(module)];
    if (image.tried) {
        return image;
    }
    image.tried = true;
    if (module.path[0] == '[') { // the kernel's own, which has no file but is mapped completely
        image.bytes = reinterpret_cast<const unsigned char*>(module.headers);
        image.size = module.headersMapped;
        return image;
    }
    const int file = ::open(module.path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file == -1) {
        return image;
    }
    struct stat record {};
    if (::fstat(file, &record) == 0 && S_ISREG(record.st_mode)) {
        const auto size = static_cast<std::size_t>(record.st_size);
        void* const mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
        const auto* const bytes = static_cast<const unsigned char*>(mapped);
        if (mapped != MAP_FAILED && IsLoadedFile(module, bytes, size)) {
            image.bytes = bytes;
            image.size = size;
        }
    }
    ::close(file);
    return image;
}

bool SymbolNames::Find(std::uintptr_t address, SymbolName& name) {
    const Module* const module = modules_.Find(address);
    if (module == nullptr) {
        return false;
    }
    const Image& image = ImageOf(*module);
    const ElfBytes file(image.bytes, image.size);
    const auto* const header = file.At<ElfW(Ehdr)>(0);
    if (header == nullptr || header->e_shentsize != sizeof(ElfW(Shdr))) {
        return false;
    }
    const auto* const sections = file.At<ElfW(Shdr)>(header->e_shoff, header->e_shnum);
    Search search(file, module->bias, address);
    for (unsigned i = 0; sections != nullptr && i < header->e_shnum; ++i) {
        const bool holdsSymbols = sections[i].sh_type == SHT_SYMTAB || sections[i].sh_type == SHT_DYNSYM;
        if (holdsSymbols && sections[i].sh_entsize == sizeof(ElfW(Sym)) &&
            sections[i].sh_link < header->e_shnum) {
            search.Table(sections[i], sections[sections[i].sh_link]);
        }
    }
    return search.Found(name);
}

} // namespace CrashHandling
