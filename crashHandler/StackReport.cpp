#include "crashHandler/StackReport.h"

#include "crashHandler/FrameWriter.h"
#include "crashHandler/WatchedWork.h"

#include <unistd.h>

namespace CrashHandling {

namespace {

/// The ways of writing a stack, each complete before the next begins. The third is for a damaged heap, where
/// what libunwind keeps for a walk over our own list of modules may be damaged as well.
enum Rung : unsigned { kNames, kNamesOnceMore, kNamesThroughLoader, kAddresses, kRungs };
constexpr unsigned kAllRungs = (1U << kRungs) - 1;

WorkEnd Climb(CrashThread* thread, FrameRequest request) {
    const Work work = WriteFrames(request);
    WorkEnd end = WorkEnd::NotTried;
    Attempt(thread, [&] { end = DoInChild(thread, work); });
    return end == WorkEnd::NotTried ? DoInPlace(thread, work) : end;
}

} // namespace

void WriteStack(CrashThread* thread, int descriptor, unw_context_t& context, std::uintptr_t leftOut) {
    const off_t begin = ::lseek(descriptor, 0, SEEK_END);
    unsigned failed = thread != nullptr ? thread->failedRungs : 0;
    WorkEnd end = WorkEnd::NotTried;
    for (unsigned rung = kNames; rung < kRungs && end != WorkEnd::Done && end != WorkEnd::TooLong; ++rung) {
        const bool wouldWait = rung == kNamesThroughLoader && end == WorkEnd::Hung;
        if ((failed & (1U << rung)) != 0 || wouldWait) {
            continue;
        }
        const TableSearch search = rung <= kNamesOnceMore ? TableSearch::Modules : TableSearch::Loader;
        end = Climb(thread, {descriptor, &context, rung != kAddresses, search, leftOut, begin});
        if (end == WorkEnd::TooLong) {
            failed = kAllRungs; // a stack without an end
        } else if (end != WorkEnd::Done) {
            failed |= 1U << rung;
        }
    }
    if (thread != nullptr) {
        thread->failedRungs = failed;
    }
    if (thread != nullptr && thread->interrupted != 0 && begin == ::lseek(descriptor, 0, SEEK_END)) {
        WriteNamelessFrame(descriptor, thread->interrupted);
    }
}

} // namespace CrashHandling
