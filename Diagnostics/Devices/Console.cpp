#include "Diagnostics/Devices/Console.h"

#include <cstdio>
#include <mutex>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

void Print(const void* bytes, int length) {
    if (bytes != nullptr && length > 0) {
        std::fwrite(bytes, 1, static_cast<std::size_t>(length), stdout);
    }
}

} // namespace

void CConsole::Init(_TraceConfig* /*config*/) {
    const std::lock_guard guard(lock_);
    SetOpen(true);
}

void CConsole::Close() {
    const std::lock_guard guard(lock_);
    SetOpen(false);
}

void CConsole::WriteData(unsigned char* text, int length) {
    if (text == nullptr || length < 0) {
        return;
    }
    const std::lock_guard guard(lock_);
    Print(headerBuffer_, WriteHeaderCounter());
    Print(text, length);
}

void CConsole::WriteDataRaw(unsigned char* data, int length) {
    const std::lock_guard guard(lock_);
    Print(data, length);
}

void CConsole::WritePreFormattedMessage(char* header, int headerLength, unsigned char* message,
                                        int messageLength) {
    if (message == nullptr || messageLength <= 0) {
        return;
    }
    const std::lock_guard guard(lock_);
    Print(header, headerLength);
    Print(message, messageLength);
    if (message[messageLength - 1] != '\n') {
        Print("\r\n", 2);
    }
}

void CConsole::Flush() {}

} // namespace Nima::Common::System::OS::Diagnostics
