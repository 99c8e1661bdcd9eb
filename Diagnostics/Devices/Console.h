#pragma once

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Writes trace text to standard output. Nothing here looks at the open or the enabled flag: a closed
/// console prints what it is given. Its lock keeps a header and its text together; what other code prints
/// may come in between. Only the stream's own buffering is in force, and the device never flushes it.
class CConsole final : public CBaseTraceDevice {
  public:
    /// The record is not read.
    void Init(_TraceConfig* config) override;
    void Close() override;
    /// The counter form of the header and the text, without a line end.
    void WriteData(unsigned char* text, int length) override;
    void WriteDataRaw(unsigned char* data, int length) override;
    /// Adds "\r\n" where the message does not end in a line feed. An empty message writes nothing.
    void WritePreFormattedMessage(char* header, int headerLength, unsigned char* message,
                                  int messageLength) override;
    using CBaseTraceDevice::Flush;
    /// Does nothing.
    void Flush() override;
};

} // namespace Nima::Common::System::OS::Diagnostics
