#pragma once

#include "tests/simulator/Process.h"

#include <string>
#include <string_view>

namespace Simulator {

struct LogSettings {
    std::string name = "device.log";
    std::int64_t maximum = 1 << 20;
    int backups = 0;
    bool append = true;
    bool buffered = true;
};

/// The rolling log file of one process, byte for byte: a buffer of 4096 bytes, lines that reach the file when
/// the next one does not fit, a roll once the bytes written reach the maximum, a calibration line after each
/// opening and roll. The file's name is always set, so a roll into the one backup works.
class TextLog {
  public:
    TextLog(World& world, Process& process, LogSettings settings);

    /// Opens the log, or closes it and opens it again.
    void Open(std::uint32_t thread);
    void Close();
    /// The process ends without a flush. Of the buffer, so many bytes are in the file.
    void Kill(std::size_t kept = 0);
    void Flush(bool final);

    /// A line like those of tracers, stamped under the device's lock.
    void Line(std::uint32_t thread);
    /// The same with this message.
    void Line(std::uint32_t thread, const std::string& message);
    /// Raw bytes with a header of the tracer's, stamped before the device's lock is taken.
    void RawLine(std::uint32_t thread);
    /// What both end in, and what the device offers: a payload with its prefix.
    void Store(std::uint32_t thread, std::string_view prefix, std::string_view payload);
    std::string HeaderNow(std::uint32_t thread) const;

    /// What a thread writes, mostly lines.
    Output Writer();
    std::size_t Buffered() const { return buffer_.size(); }

  private:
    bool IsFull() const { return written_ >= settings_.maximum; }
    void OpenFile();
    void Write(std::string_view bytes);
    void FlushBuffer();
    void Roll();
    void Calibrate(std::uint32_t thread);
    std::string Message();

    World& world_;
    Process& process_;
    LogSettings settings_;
    Files::Handle file_;
    std::size_t position_ = 0;
    std::int64_t written_ = 0;
    std::string buffer_;
    bool buffering_;
};

/// "01261024150926.46886": local time in raw fields, microseconds cut to 16 bits.
std::string CompactDate(std::int64_t wall);
/// The same as heads of dumps print it.
std::string SpacedDate(std::int64_t wall);

} // namespace Simulator
