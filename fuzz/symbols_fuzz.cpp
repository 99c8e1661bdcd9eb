#include "fuzz/support/MemoryFile.h"
#include "tools/symbols/Resolution.h"
#include "tools/symbols/SymbolFiles.h"

#include <array>
#include <cstdlib>
#include <string>
#include <unordered_set>

#include <libelf.h>

using namespace NimaPost;

namespace {

/// What is looked up of each function: where it begins, and a place within.
constexpr std::array<std::uint64_t, 2> kSteps{0, 5};
constexpr std::size_t kMostFunctions = 16;

} // namespace

/// A program, library or debug file; and what the process that reads them sends, which may have been misled.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    static const unsigned version = elf_version(EV_CURRENT);
    if (version == EV_NONE) {
        std::abort();
    }
    Unpacked(std::string(TextOf(data, size)));
    file.Fill(TextOf(data, size));
    const FileInUse inUse = [](const std::string& /*path*/) {};
    const std::unordered_set<std::string> left;
    SymbolFiles files({file.Path()}, left, inUse);
    for (const auto& module : files.Modules()) {
        std::size_t count = 0;
        for (const ImageFunction& function : module->Names().Functions()) {
            if (++count > kMostFunctions) {
                break;
            }
            module->ValuesOf(std::string(function.name), {std::string(function.name)});
            for (const std::uint64_t step : kSteps) {
                module->CallsAt(function.begin + step);
            }
        }
    }
    return 0;
}
