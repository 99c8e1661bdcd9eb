#include "Diagnostics/Files/OutputFile.h"

#include "platform/Files.h"

namespace Nima::Common::System::OS::Diagnostics {

void* OpenOutputFile(const std::wstring& path, long mode, long creation) {
    constexpr long kReadWrite = 3;
    constexpr long kLargeFile = 0100000;
    return _open_file_helper(path.c_str(), kReadWrite, mode, creation, kLargeFile);
}

} // namespace Nima::Common::System::OS::Diagnostics
