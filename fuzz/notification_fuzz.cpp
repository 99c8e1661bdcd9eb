#include "fuzz/support/MemoryFile.h"
#include "tools/crash/Notification.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto notification = ParseNotification(TextOf(data, size));
    ParseStackTraceName(notification ? LastComponent(notification->file) : TextOf(data, size));
    return 0;
}
