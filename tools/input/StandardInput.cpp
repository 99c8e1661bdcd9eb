#include "tools/input/StandardInput.h"

#include "tools/input/ArchiveReader.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

namespace {

constexpr std::size_t kInputBlock = 1 << 16;

} // namespace

InputFile ReadStandardInput(EvidenceStore& store) {
    struct stat status {};
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
        store.AddInput(IdentityOf(status));
    }
    std::vector<char> block(kInputBlock);
    std::optional<bool> packed;
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, block.data(), block.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            store.AllFindings().Damage("cannot-read", std::string("Standard input: ") + std::strerror(errno) +
                                                          "; what came before is read.");
        }
        if (got <= 0) {
            break;
        }
        const std::string_view bytes(block.data(), static_cast<std::size_t>(got));
        packed = packed.has_value() ? packed : LooksPacked(bytes);
        if (!(*packed ? store.AppendPacked(bytes, kStandardInput) : store.Append(bytes, kStandardInput))) {
            break;
        }
    }
    return InputFile::Of(kStandardInput, store.FinishMember());
}

} // namespace NimaPost
