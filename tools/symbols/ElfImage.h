#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <libelf.h>

namespace NimaPost {

/// A function of a symbol table.
struct ImageFunction {
    std::uint64_t begin = 0; ///< of its code
    std::uint64_t size = 0;
    std::uint64_t value = 0; ///< as stored: on ARM with the mark of Thumb code
    std::string_view name;   ///< mangled, without a version
};

/// A program, a library or a debug file of either word size. Its bytes are mapped, and libelf trusts them:
/// read files only in a process that may be lost.
class ElfImage {
  public:
    /// Null if the file is no program, library or debug file of one; `problem` is then empty unless the file
    /// is damaged.
    static std::unique_ptr<ElfImage> Open(const std::string& path, std::string& problem);

    const std::string& Path() const { return path_; }
    const std::string& BuildId() const { return buildId_; }
    bool IsArm() const { return arm_; }
    bool Is32Bit() const { return is32Bit_; }
    /// Whether it can be loaded only where it was linked for.
    bool IsFixed() const { return fixed_; }
    bool HasLines() const { return hasLines_ && !needsOtherFile_; }
    /// Whether a symbol table for debuggers is there, and not only exported names.
    bool HasAllNames() const { return hasAllNames_; }
    /// Whether its debug information refers to another file's, which is not followed.
    bool NeedsOtherFile() const { return needsOtherFile_; }
    /// What must be added to an offset in the file to get an address in it.
    std::uint64_t FirstAddress() const { return firstAddress_; }
    /// Where its code is, in addresses of the file.
    std::uint64_t CodeBegin() const { return codeBegin_; }
    std::uint64_t CodeEnd() const { return codeEnd_; }
    /// The name and the check sum of its debug file; an empty name without one.
    const std::string& DebugLink() const { return debugLink_; }
    std::uint32_t DebugLinkSum() const { return debugLinkSum_; }
    /// The check sum of the whole file, as a link to it holds it.
    std::uint32_t CheckSum() const;

    /// In the order of addresses.
    const std::vector<ImageFunction>& Functions();
    /// The function with this address of the file in its code, or null.
    const ImageFunction* FunctionAt(std::uint64_t address);
    Elf* Handle() const { return elf_.get(); }

  private:
    struct EndElf {
        void operator()(Elf* elf) const { elf_end(elf); }
    };

    explicit ElfImage(std::string path) : path_(std::move(path)) {}

    bool ReadHead();
    void ReadSegments();
    void ReadSections();
    void ReadTable(Elf_Scn* section);

    std::string path_;
    std::unique_ptr<Elf, EndElf> elf_;
    std::string buildId_;
    std::string debugLink_;
    std::uint32_t debugLinkSum_ = 0;
    std::uint64_t firstAddress_ = 0;
    std::uint64_t codeBegin_ = 0;
    std::uint64_t codeEnd_ = 0;
    bool arm_ = false;
    bool is32Bit_ = false;
    bool fixed_ = false;
    bool hasLines_ = false;
    bool hasAllNames_ = false;
    bool needsOtherFile_ = false;
    bool functionsRead_ = false;
    std::vector<ImageFunction> functions_;
};

} // namespace NimaPost
