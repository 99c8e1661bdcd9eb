#include "Diagnostics/Triage/StandardTriageCallback.h"

#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "Diagnostics/TraceImpl.h"
#include "catalogue/Failures.h"
#include "catalogue/Marks.h"
#include "catalogue/Text.h"
#include "platform/Handles.h"
#include "platform/Modules.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

using Catalogue::kNativeException;
using Catalogue::kReportedError;

constexpr std::uint32_t kCodeAccessViolation = 0xC0000005;
constexpr std::uint32_t kCodeStackOverflow = 0xC00000FD;

/// A signed field as a printf conversion takes it.
std::uint32_t Hex(std::int32_t value) {
    return static_cast<std::uint32_t>(value);
}

/// The low 32 bits of an address or parameter.
std::uint32_t Low32(std::uintptr_t value) {
    return static_cast<std::uint32_t>(value);
}

/// Formats after a text of `position` characters. Returns the length of what was appended, less than 1 if
/// there is no room.
template <class... Values>
int AppendAt(char* buffer, int position, int size, const char* format, Values... values) {
    const int room = size - position;
    if (room <= 0) {
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(room);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    return _snprintf_s_helper(buffer + position, bytes, bytes, format, values...);
#pragma GCC diagnostic pop
}

} // namespace

int FormatExtraData(const char* prefix, int position, int size, char* buffer, int count,
                    const std::int32_t* data) {
    if (position < 0) {
        return position;
    }
    if (prefix != nullptr) {
        const int appended = AppendAt(buffer, position, size, "%s", prefix);
        if (appended < 1) {
            return position;
        }
        position += appended;
    }
    for (int i = 0; i < count; ++i) {
        const int appended = AppendAt(buffer, position, size, " D%d=0x%x", i, Hex(data[i]));
        if (appended < 1) {
            break;
        }
        position += appended;
    }
    return position;
}

void StandardExceptionTriageCallback::SetExceptionInfo(int type, long code, long address) {
    faultAddress_ = static_cast<std::int32_t>(address);
    failureType_ = type;
    const auto code32 = static_cast<std::int32_t>(code);
    switch (type) {
        case Catalogue::kProcessExit:
            errorCode_ = Catalogue::kProcessExited;
            break;
        case kNativeException:
            exceptionCode_ = code32;
            errorCode_ = Hex(code32) == kCodeAccessViolation ? Catalogue::kAccessViolation
                         : Hex(code32) == kCodeStackOverflow ? Catalogue::kStackOverflow
                                                             : Catalogue::kOtherNativeException;
            break;
        default:
            errorCode_ = code32;
            break;
    }
}

void StandardExceptionTriageCallback::SetAssertInfo(long code, const char* file, int line,
                                                    _EXCEPTION_POINTERS* pointers, long extraCount,
                                                    long* extraData) {
    failureType_ = kReportedError;
    faultAddress_ = 0;
    exceptionCode_ = 0;
    if (pointers != nullptr && pointers->ExceptionRecord != nullptr) {
        const _EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
        faultAddress_ =
            static_cast<std::int32_t>(Low32(reinterpret_cast<std::uintptr_t>(record.ExceptionAddress)));
        exceptionCode_ = static_cast<std::int32_t>(record.ExceptionCode);
    }
    exceptionPointers_ = pointers;
    errorCode_ = static_cast<std::int32_t>(code);
    line_ = line;
    SetFileName(file);
    std::fill(std::begin(extraData_), std::end(extraData_), 0);
    extraCount_ =
        extraData != nullptr ? static_cast<std::int32_t>(std::clamp<long>(extraCount, 0, kMaxExtra)) : 0;
    for (std::int32_t i = 0; i < extraCount_; ++i) {
        extraData_[i] = static_cast<std::int32_t>(extraData[i]);
    }
}

/// The same line twice: wide for the critical output, 8-bit for the trace.
struct StandardExceptionTriageCallback::FailureLines {
    char wide[512];
    char trace[512];
};

StandardExceptionTriageCallback::FailureLines StandardExceptionTriageCallback::Describe() {
    FailureLines lines{};
    const auto both = [&lines](const char* wideEnd, const char* traceEnd, const char* format,
                               auto... values) {
        const int length = AppendAt(lines.wide, 0, sizeof(lines.wide), format, values...);
        std::memcpy(lines.trace, lines.wide, sizeof(lines.trace));
        AppendAt(lines.wide, length, sizeof(lines.wide), "%s", wideEnd);
        AppendAt(lines.trace, length, sizeof(lines.trace), "%s", traceEnd);
    };
    if (failureType_ == kNativeException) {
        both("\n", "\n", "FATAL ERROR!!!  UnhandledExceptionCallback called.  Excptn %x at %x!  Error is %X!",
             Hex(exceptionCode_), Hex(faultAddress_), Hex(errorCode_));
    } else if (failureType_ == kReportedError && exceptionPointers_ != nullptr) {
        both("\n", "\r\n",
             "FATAL ERROR!!!  DeviceFatalError called, error is %x : %s @ line %d because of excptn 0x%8.8x "
             "@ 0x%8.8x!",
             Hex(errorCode_), fileName_, line_, Hex(exceptionCode_), Hex(faultAddress_));
    } else if (failureType_ == kReportedError) {
        both("\n", "\r\n", "FATAL ERROR!!!  DeviceFatalError called, error is %x : %s @ line %d!",
             Hex(errorCode_), fileName_, line_);
    } else {
        both("\n", "\r\n", "FATAL ERROR!!!  OnExit called, error unknown!  Error will be %x!",
             Hex(errorCode_));
    }
    return lines;
}

int StandardExceptionTriageCallback::FormatSummary() {
    const std::uint32_t bootCycle = Hex(static_cast<std::int32_t>(GetBootCycle()));
    if (failureType_ == kNativeException ||
        (failureType_ == kReportedError && exceptionPointers_ != nullptr)) {
        return AppendAt(scratch_, 0, kScratchSize,
                        "Type=Native Excptn=0x%8.8x Addr=0x%8.8x BootCycle=0x%8.8x", Hex(exceptionCode_),
                        Hex(faultAddress_), bootCycle);
    }
    if (failureType_ == kReportedError) {
        return AppendAt(scratch_, 0, kScratchSize,
                        "Type=Assert Code=0x%8.8x BootCycle=0x%8.8x File=%s Line=%d", Hex(errorCode_),
                        bootCycle, fileName_, line_);
    }
    return AppendAt(scratch_, 0, kScratchSize,
                    "Type=Unknown FailureId=%d Excptn=0x%8.8x BootCycle=0x%8.8x Addr=0x%8.8x", failureType_,
                    Hex(exceptionCode_), bootCycle, Hex(faultAddress_));
}

int StandardExceptionTriageCallback::LogFailure() {
    EmptyScratch();
    const FailureLines lines = Describe();
    // The scratch buffer holds 256 wide characters, of which the last stays zero. A byte of a file name that
    // is not plain ASCII would keep the whole line from being printed.
    void* const scratch = scratch_;
    auto* const wide = static_cast<wchar_t*>(scratch);
    constexpr std::size_t kWideRoom = kScratchSize / sizeof(wchar_t) - 1;
    for (std::size_t i = 0; i < kWideRoom && lines.wide[i] != '\0'; ++i) {
        const auto byte = static_cast<unsigned char>(lines.wide[i]);
        wide[i] = byte < 0x80 ? static_cast<wchar_t>(byte) : L'?';
    }
    {
        const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
        if (tracer) {
            tracer->WriteFatalV("%s", lines.trace);
        }
    }
    WriteCriticalDbgMsg(wide);
    EmptyScratch();
    return FormatExtraData(nullptr, FormatSummary(), kScratchSize, scratch_, extraCount_, extraData_);
}

void StandardExceptionTriageCallback::WhatItIs(void* file) {
    EmptyScratch();
    const auto bootCycle = static_cast<std::uint32_t>(GetBootCycle());
    int length =
        AppendAt(scratch_, 0, kScratchSize, "%s: %X\r\n%s: %X\r\n%s: %X\r\n%s: %X\r\n", Catalogue::kErrorCode,
                 Hex(errorCode_), Catalogue::kFaultAddress, Hex(faultAddress_), Catalogue::kCrashType,
                 Hex(failureType_), Catalogue::kExceptionCode, Hex(exceptionCode_));
    if (failureType_ == kReportedError) {
        length += AppendAt(scratch_, length, kScratchSize, " %s: %s\r\n%s: %d\r\n", Catalogue::kFileName,
                           fileName_, Catalogue::kLineNumber, line_);
    }
    length += AppendAt(scratch_, length, kScratchSize, "%s: %u\r\n", Catalogue::kBootCycle, bootCycle);
    if (extraCount_ >= 1) {
        length = FormatExtraData(Catalogue::Concatenated(Catalogue::kExtraData, ": ").data(), length,
                                 kScratchSize, scratch_, extraCount_, extraData_);
        AppendAt(scratch_, length, kScratchSize, "%s", "\r\n\r\n");
    } else {
        AppendAt(scratch_, length, kScratchSize, "%s", "\r\n");
    }
    _WriteSingleLine(file, scratch_);
}

int StandardExceptionTriageCallback::GetDump() {
    return 1;
}

void StandardExceptionTriageCallback::Init() {}

void StandardExceptionTriageCallback::DumpExceptionRecord(void* file) {
    if (exceptionPointers_ == nullptr) {
        return;
    }
    _WriteSingleLine(file, "\r\n");
    _WriteSingleLine(file, Catalogue::Concatenated(Catalogue::kExceptionRecordBegin, "\r\n").data());
    EmptyScratch();
    if (exceptionPointers_->ContextRecord != nullptr) {
        // Nothing is known of a context on this platform: writes an empty text.
        _WriteSingleLine(file, scratch_);
        EmptyScratch();
    }
    if (const _EXCEPTION_RECORD* record = exceptionPointers_->ExceptionRecord) {
        AppendAt(scratch_, 0, kScratchSize,
                 "%s\r\n   Address: 0x%8.8x\r\n Exception: 0x%8.8x\r\n     Flags: 0x%8.8x\r\n",
                 Catalogue::kExceptionRecord,
                 Low32(reinterpret_cast<std::uintptr_t>(record->ExceptionAddress)), record->ExceptionCode,
                 record->ExceptionFlags);
        _WriteSingleLine(file, scratch_);
        const auto held = static_cast<std::uint32_t>(std::size(record->ExceptionInformation));
        for (std::uint32_t i = 0; i < std::min(record->NumberParameters, held); ++i) {
            EmptyScratch();
            AppendAt(scratch_, 0, kScratchSize, " P%02u=0x%8.8x\r\n", i,
                     Low32(record->ExceptionInformation[i]));
            _WriteSingleLine(file, scratch_);
        }
    }
    _WriteSingleLine(file, Catalogue::Concatenated(Catalogue::kExceptionRecordEnd, "\r\n").data());
}

void StandardExceptionTriageCallback::DumpCallstacksImpl(void* file) {
    if (!IsValidHandle(file)) {
        return;
    }
    _WriteSingleLine(file, "\r\n");
    try {
        DumpExceptionRecord(file);
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
        _WriteSingleLine(file, Catalogue::Concatenated(Catalogue::kFaultInCrashLog,
                                                       " while dumping exception record call stacks")
                                   .data());
        RecordInternalDiagnosticEvent(kFaultInDiagnostics, _get_exception_code_helper(), 0, 0, 0);
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
