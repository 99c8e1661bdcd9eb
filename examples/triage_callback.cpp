/// A crash log with a section of the host's own: the job that the device was printing.

#include <cstdio>
#include <string>
#include <utility>

#include <Diagnostics/TraceServices.h>
#include <Diagnostics/TriageCallback.h>

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

class PrinterTriage final : public StandardExceptionTriageCallback {
  public:
    explicit PrinterTriage(std::string job) : job_(std::move(job)) {}

    void WhatItIs(void* file) override {
        StandardExceptionTriageCallback::WhatItIs(file);
        WriteText(file, "Job: ");
        WriteText(file, job_.c_str());
        WriteText(file, "\r\n");
    }

  private:
    std::string job_; // composed beforehand: a process that fails should not allocate
};

} // namespace

int main() {
    TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
    PrinterTriage triage("invoice.pdf, page 3 of 7");

    // What a host does when it finds that it cannot go on.
    triage.SetAssertInfo(0x31AC05, __FILE__, __LINE__, nullptr, 0, nullptr);
    triage.LogFailure();
    if (CaptureTriageData(L"crash.txt", 1, &triage, L".") == 0) {
        std::fputs("cannot write crash.txt\n", stderr);
        return 1;
    }
    return 0;
}
