#include "crashHandler/FrameWriter.h"

#include "catalogue/Marks.h"
#include "crashHandler/BufferSizes.h"
#include "crashHandler/Demangler.h"
#include "crashHandler/Descriptors.h"
#include "crashHandler/SymbolNames.h"
#include "crashHandler/TextLine.h"

#include <cstring>

#include <unistd.h>

namespace CrashHandling {

namespace {

using Line = TextLine<kFrameLineSize>;

/// A demangled name, as much of it as a line has room for.
using PlainName = TextLine<kFrameLineSize>;

constinit LoadedModules g_Modules;
constinit SymbolNames g_Names(g_Modules);

/// Finished lines: a deep recursion has few different ones.
struct KnownLine {
    Frame frame;
    Line line;
};
constinit KnownLine g_KnownLines[256];

/// Text on its way to the file.
struct Gathered {
    char text[4096] = {};
    std::size_t length = 0;
    bool replaces = false; ///< first remove what an earlier attempt wrote
};
constinit Gathered g_Gathered;

void Flush(const FrameRequest& request) {
    if (g_Gathered.length != 0 && g_Gathered.replaces && request.begin != -1) {
        [[maybe_unused]] const int cut = ::ftruncate(request.descriptor, request.begin);
    }
    g_Gathered.replaces = g_Gathered.replaces && g_Gathered.length == 0;
    WriteAll(request.descriptor, g_Gathered.text, g_Gathered.length);
    g_Gathered.length = 0;
}

void Gather(const FrameRequest& request, const Line& line) {
    if (line.length() > sizeof(g_Gathered.text) - g_Gathered.length) {
        Flush(request);
    }
    std::memcpy(g_Gathered.text + g_Gathered.length, line.text(), line.length());
    g_Gathered.length += line.length();
}

void AddPiece(const char* piece, std::size_t length, void* name) {
    static_cast<PlainName*>(name)->Add(piece, length);
}

/// A name that does not fit the buffer of 256 characters counts as not available.
bool FindName(const Frame& frame, SymbolName& name) {
    return g_Names.Find(frame.within, name) && ::strnlen(name.text, kSymbolNameSize) < kSymbolNameSize;
}

std::uintptr_t OffsetIn(const SymbolName& name, const Frame& frame) {
    const std::uintptr_t address = CodeAddress(frame.instruction);
    // The mark of Thumb code makes the value one more than the address of the first instruction.
    return address > name.value ? address - name.value : 0;
}

void Compose(Line& line, const Frame& frame, bool withNames) {
    line = {};
    line.Add("0x").AddHex(frame.instruction).Add(":");
    SymbolName name;
    if (withNames && FindName(frame, name)) {
        PlainName plain;
        const bool isMangled = Demangle(name.text, AddPiece, &plain);
        line.Add(Nima::Catalogue::kFrameFunction).Add(isMangled ? plain.text() : name.text);
        line.Add("+0x").AddHex(OffsetIn(name, frame)).Add(")\n");
    } else {
        line.Add(Nima::Catalogue::kFrameWithoutName).Add("\n");
    }
    line.KeepLineFeed();
}

const Line& LineOf(const Frame& frame, bool withNames) {
    const std::uintptr_t hash = (frame.instruction >> 1U) ^ (frame.instruction >> 9U);
    KnownLine& known = g_KnownLines[hash % (sizeof(g_KnownLines) / sizeof(g_KnownLines[0]))];
    if (known.frame.instruction != frame.instruction || known.frame.within != frame.within) {
        known.frame = frame;
        Compose(known.line, frame, withNames);
    }
    return known.line;
}

void StartAnew() {
    g_Names.Reset();
    std::memset(static_cast<void*>(g_KnownLines), 0, sizeof(g_KnownLines));
    g_Gathered.length = 0;
    g_Gathered.replaces = true;
}

bool Run(void* argument, std::atomic<std::uint32_t>& steps) {
    FrameRequest& request = *static_cast<FrameRequest*>(argument);
    StartAnew();
    const bool hasModules = request.withNames && g_Modules.Read();
    StackWalk walk(*request.context, g_Modules, hasModules ? request.search : TableSearch::Loader);
    bool wrote = false;
    for (Frame frame; walk.Next(frame); steps.fetch_add(1)) {
        if (CodeAddress(frame.instruction) == CodeAddress(request.leftOut)) {
            continue;
        }
        Gather(request, LineOf(frame, hasModules));
        wrote = true;
    }
    Flush(request);
    return wrote;
}

void Salvage(void* argument) {
    Flush(*static_cast<FrameRequest*>(argument));
}

} // namespace

Work WriteFrames(FrameRequest& request) {
    return {Run, Salvage, &request, request.descriptor};
}

void WriteNamelessFrame(int descriptor, std::uintptr_t instruction) {
    Line line;
    Compose(line, {instruction, instruction}, false);
    WriteAll(descriptor, line.text(), line.length());
}

void PrepareFrames() {
    g_Modules.Read();
    StackWalk::Prepare(g_Modules);
}

} // namespace CrashHandling
