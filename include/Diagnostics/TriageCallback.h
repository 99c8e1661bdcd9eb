#pragma once

#include <atomic>
#include <cstdint>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/Export.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A sink for lines of text.
class NIMA_DIAGNOSTICS_API OutputAdapter {
  public:
    explicit OutputAdapter(bool flag) : flag_(flag) {}
    OutputAdapter(const OutputAdapter&) = delete;
    OutputAdapter& operator=(const OutputAdapter&) = delete;
    virtual ~OutputAdapter() = default;
    /// Returns nonzero on success. A null text fails.
    virtual int WriteToOutput(const char* text, int length) = 0;

  private:
    [[maybe_unused]] bool flag_; ///< kept and never read
};

/// Writes to a file handle that stays the caller's.
class NIMA_DIAGNOSTICS_API FileHandleOutputAdapter final : public OutputAdapter {
  public:
    FileHandleOutputAdapter(void* file, bool flag) : OutputAdapter(flag), file_(file) {}
    int WriteToOutput(const char* text, int length) override;

  private:
    void* file_;
};

/// Writes into the caller's buffer, which is zeroed at construction and always terminated. Once a text did
/// not fit, or filled the buffer exactly, every later one fails.
class NIMA_DIAGNOSTICS_API BufferOutputAdapter final : public OutputAdapter {
  public:
    BufferOutputAdapter(char* buffer, int size, bool flag);
    int WriteToOutput(const char* text, int length) override;

  private:
    char* buffer_;
    std::int32_t size_;
    std::int32_t position_ = 0; ///< -1 once failed
};

struct _MODULEENTRY32;

/// Knows what went wrong and writes the sections of the crash log. A host derives from this class, or from
/// the standard callback below, and passes its object to `CaptureTriageData`, which then writes the sections
/// that the object overrides instead of the standard ones. Used by one thread at a time. `file` is always one
/// of the library's own handles, valid for `WriteText`. The order of the virtual functions is fixed.
class NIMA_DIAGNOSTICS_API TriageCallback {
  public:
    TriageCallback() = default;
    TriageCallback(const TriageCallback&) = delete;
    TriageCallback& operator=(const TriageCallback&) = delete;

    /// Writes the failure block of the crash log.
    virtual void WhatItIs(void* file) = 0;
    /// Writes the failure lines to the trace and the critical output, and leaves the one-line summary in the
    /// scratch buffer. Returns its length.
    virtual int LogFailure() = 0;
    /// Writes the head of the file, `WhatItIs` and the module table.
    virtual void DoCrashHeader(void* file);
    /// Writes the last line and the footer text.
    virtual void DoCrashFooter(void* file);
    /// Writes the heading and `DumpCallstacksImpl`.
    virtual void DumpCallstacks(void* file);
    /// Writes the heading and all rings as text.
    virtual void DumpRingBuffers(void* file);
    /// Takes a failure. Type 1 is a native exception and 0 an exit; for any other type `code` is the error
    /// code.
    virtual void SetExceptionInfo(int type, long code, long address) = 0;
    /// Takes an assertion, which is failure type 2.
    virtual void SetAssertInfo(long code, const char* file, int line, _EXCEPTION_POINTERS* pointers,
                               long extraCount, long* extraData) = 0;
    /// Nonzero asks for a crash dump (`GenerateCrashDump`).
    virtual int GetDump() = 0;
    virtual ~TriageCallback() = default;
    virtual void Init() = 0;
    /// Writes the call stacks, as far as they are known.
    virtual void DumpCallstacksImpl(void* file) = 0;

    /// Writes a zero-terminated text to the file of a section.
    static void WriteText(void* file, const char* text);
    /// Converts a wide text piece by piece in `scratch` and writes it; allocates nothing. Stops at the first
    /// character that does not convert.
    static void LowImpactStringWriter(char* scratch, int size, const wchar_t* text, void* file);
    /// Writes the table of a process's modules through the adapter. Returns the result of looking up the
    /// first module, which is 0 where the platform has no module snapshots. With a callback of failure type
    /// 1, the module that contains the fault address is traced (`RecordFaultingModule`).
    static int ListProcessModules(char* scratch, int size, int processId, OutputAdapter& adapter,
                                  TriageCallback* callback);
    static int ListProcessModules(char* scratch, int size, int processId, OutputAdapter& adapter);
    /// The boot cycle, shared by all callbacks of the process. Atomic.
    static long GetBootCycle();
    static void SetBootCycle(long bootCycle);

    void RecordFaultingModule(_MODULEENTRY32& module) const;
    /// The name is cut to 255 bytes; null empties it.
    void SetFileName(const char* name);
    void EmptyScratch();

    std::int32_t errorCode() const { return errorCode_; }
    std::int32_t faultAddress() const { return faultAddress_; }
    std::int32_t failureType() const { return failureType_; }

  protected:
    static constexpr int kFileNameSize = 256;
    static constexpr int kScratchSize = 1024;

    char footer_[256]{}; ///< written after the crash log's last line
    alignas(wchar_t) char scratch_[kScratchSize]{};
    std::int32_t errorCode_ = static_cast<std::int32_t>(0xDEADBEEF);
    std::int32_t exceptionCode_ = 0;
    std::int32_t faultAddress_ = static_cast<std::int32_t>(0xDEADBEEF);
    _EXCEPTION_POINTERS* exceptionPointers_ = nullptr;
    std::int32_t failureType_ = 0; ///< 0 unknown or exit, 1 native exception, 2 assertion
    std::int32_t line_ = 0;
    char fileName_[kFileNameSize]{};

  private:
    static std::atomic<std::int32_t> mBootCycle;
};

/// The callback that the process itself uses.
class NIMA_DIAGNOSTICS_API StandardExceptionTriageCallback : public TriageCallback {
  public:
    void WhatItIs(void* file) override;
    int LogFailure() override;
    void SetExceptionInfo(int type, long code, long address) override;
    /// Keeps at most four extra words.
    void SetAssertInfo(long code, const char* file, int line, _EXCEPTION_POINTERS* pointers, long extraCount,
                       long* extraData) override;
    /// Returns 1.
    int GetDump() override;
    void Init() override;
    /// Writes the exception record, if there is one.
    void DumpCallstacksImpl(void* file) override;

  private:
    static constexpr int kMaxExtra = 4;

    struct FailureLines;
    FailureLines Describe();
    int FormatSummary();
    void DumpExceptionRecord(void* file);

    std::int32_t extraData_[kMaxExtra]{};
    std::int32_t extraCount_ = 0;
};

/// Writes "SysTrace.bin" into `triageFolder` (if null, an ERROR line instead) and, through the callback's
/// sections, the crash log. Earlier ones are kept as backups. Returns 1 if the crash log was written; 0 for a
/// null path or callback, or if the file cannot be created. A section that throws is abandoned; the next ones
/// are written.
NIMA_DIAGNOSTICS_API int CaptureTriageData(const wchar_t* crashLogPath, unsigned long backups,
                                           TriageCallback* callback, const wchar_t* triageFolder);

} // namespace Nima::Common::System::OS::Diagnostics
