#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "catalogue/Marks.h"
#include "catalogue/Text.h"
#include "platform/Files.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include <unistd.h>

#include <Diagnostics/TriageCallback.h>

namespace Nima::Common::System::OS::Diagnostics {

constinit std::atomic<std::int32_t> TriageCallback::mBootCycle{0};

void TriageCallback::WriteText(void* file, const char* text) {
    _WriteSingleLine(file, text);
}

void TriageCallback::EmptyScratch() {
    std::memset(scratch_, 0, sizeof(scratch_));
}

void TriageCallback::SetFileName(const char* name) {
    std::memset(fileName_, 0, sizeof(fileName_));
    if (name != nullptr) {
        std::memcpy(fileName_, name, ::strnlen(name, kFileNameSize - 1));
    }
}

long TriageCallback::GetBootCycle() {
    return mBootCycle.load();
}

void TriageCallback::SetBootCycle(long bootCycle) {
    mBootCycle.exchange(static_cast<std::int32_t>(bootCycle));
}

void TriageCallback::DoCrashHeader(void* file) {
    WriteDiagnosticsFileHeader(scratch_, kScratchSize, file, Catalogue::kCrashLogTitle);
    WhatItIs(file);
    _WriteSingleLine(file, Catalogue::Concatenated(Catalogue::kModulesSection, "\r\n\r\n").data());
    FileHandleOutputAdapter adapter(file, true);
    ListProcessModules(scratch_, kScratchSize, ::getpid(), adapter, this);
}

void TriageCallback::DumpCallstacks(void* file) {
    _WriteSingleLine(file, Catalogue::Concatenated("\r\n", Catalogue::kCallStacksSection, "\r\n").data());
    DumpCallstacksImpl(file);
}

void TriageCallback::DumpRingBuffers(void* file) {
    _WriteSingleLine(file, Catalogue::Concatenated("\r\n", Catalogue::kRingsSection, "\r\n").data());
    _DumpRingBuffersUnformatted(scratch_, kScratchSize, file);
}

void TriageCallback::DoCrashFooter(void* file) {
    _WriteSingleLine(file, Catalogue::Concatenated("\r\n", Catalogue::kCrashLogEnd, "\r\n").data());
    _WriteSingleLine(file, footer_);
}

void TriageCallback::LowImpactStringWriter(char* scratch, int size, const wchar_t* text, void* file) {
    if (scratch == nullptr || size <= 0 || text == nullptr) {
        return;
    }
    constexpr int kMaxPiece = 256;
    const auto room = static_cast<std::size_t>(std::min(size, kMaxPiece));
    std::mbstate_t state{};
    while (text != nullptr && *text != L'\0') {
        const std::size_t length = std::wcsrtombs(scratch, &text, room, &state);
        if (length == 0 || length == static_cast<std::size_t>(-1)) {
            return;
        }
        _write_file_helper(file, scratch, static_cast<long>(length), nullptr);
    }
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

void SetBootCycleForProcess(long bootCycle) {
    TriageCallback::SetBootCycle(bootCycle);
}
