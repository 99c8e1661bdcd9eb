#pragma once

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Writes trace text to standard output. Nothing here checks the open or the enabled flag: a closed console
/// still prints. Its lock keeps a header and its text together, but output of other code may come between
/// lines. Only the stream's own buffering applies, and the device never flushes it.
class CConsole final : public CBaseTraceDevice {
  public:
    /// The record is not read.
    void Init(_TraceConfig* config) override;
    void Close() override;
    /// Prints the counter form of the header and the text, without a line end.
    void WriteData(unsigned char* text, int length) override;
    void WriteDataRaw(unsigned char* data, int length) override;
    /// Adds "\r\n" unless the message ends in a line feed. An empty message writes nothing.
    void WritePreFormattedMessage(char* header, int headerLength, unsigned char* message,
                                  int messageLength) override;
    using CBaseTraceDevice::Flush;
    /// Does nothing.
    void Flush() override;
};

} // namespace Nima::Common::System::OS::Diagnostics
