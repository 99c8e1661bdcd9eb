#include "Diagnostics/Triage/OutputAdapter.h"

#include "platform/Files.h"

#include <algorithm>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

int FileHandleOutputAdapter::WriteToOutput(const char* text, int length) {
    if (text == nullptr || file_ == InvalidHandle()) {
        return 0;
    }
    return _write_file_helper(file_, text, length, nullptr);
}

BufferOutputAdapter::BufferOutputAdapter(char* buffer, int size, bool flag)
    : OutputAdapter(flag), buffer_(buffer), size_(buffer != nullptr ? size : 0) {
    if (size_ > 0) {
        std::memset(buffer_, 0, static_cast<std::size_t>(size_));
    }
}

int BufferOutputAdapter::WriteToOutput(const char* text, int length) {
    if (position_ < 0 || text == nullptr || length < 0) {
        return 0;
    }
    if (position_ >= size_) {
        position_ = -1;
        return 0;
    }
    const int left = size_ - position_;
    const std::size_t given = ::strnlen(text, static_cast<std::size_t>(length));
    std::memcpy(buffer_ + position_, text, std::min(given, static_cast<std::size_t>(left) - 1));
    if (length >= left) {
        position_ = -1;
        return 0;
    }
    position_ += length;
    return 1;
}

int _WriteSingleLineOutput(OutputAdapter& adapter, const char* text) {
    return adapter.WriteToOutput(text, static_cast<int>(std::strlen(text)));
}

} // namespace Nima::Common::System::OS::Diagnostics
