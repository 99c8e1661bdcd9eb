#include "crashHandler/StackWalk.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include <sys/syscall.h>
#include <unistd.h>

// libunwind exports this for readers of other processes, but declares it in none of its headers.
#ifdef __arm__
#define SearchUnwindTable _Uarm_search_unwind_table
#else
#define SearchUnwindTable UNW_OBJ(dwarf_search_unwind_table)
#endif
extern "C" int SearchUnwindTable(unw_addr_space_t space, unw_word_t address, unw_dyn_info_t* table,
                                 unw_proc_info_t* info, int needed, void* argument);

namespace CrashHandling {

namespace {

/// Made while the process is well, since that takes memory.
unw_addr_space_t g_Space = nullptr;

#ifdef __arm__
// libunwind reports the frame of a signal at the return from it; the interrupted frame follows.
constexpr bool kToldAtInterruptedFrame = false;
#else
// Here libunwind reports it one frame later, at the interrupted frame itself.
constexpr bool kToldAtInterruptedFrame = true;
#endif

/// Whether a page can be read. The system reads the signal set before it looks at the action, which is one
/// that it does not know. The first page would mean "no set" and is never read.
bool IsReadable(std::uintptr_t page) {
    constexpr int kNoSuchAction = -1;
    constexpr std::size_t kSetSize = 8;
    return page != 0 &&
           (::syscall(SYS_rt_sigprocmask, kNoSuchAction, page, nullptr, kSetSize) == 0 || errno != EFAULT);
}

int AccessNoFloat(unw_addr_space_t /*space*/, unw_regnum_t /*number*/, unw_fpreg_t* /*value*/, int /*write*/,
                  void* /*argument*/) {
    return -UNW_EBADREG;
}

int NoDynamicCode(unw_addr_space_t /*space*/, unw_word_t* /*list*/, void* /*argument*/) {
    return -UNW_ENOINFO;
}

#ifdef __arm__

bool FindTable(const Module& module, unw_dyn_info_t& table) {
    const ElfW(Phdr)* const index = module.FindHeader(PT_ARM_EXIDX);
    if (index == nullptr) {
        return false;
    }
    table.format = UNW_INFO_FORMAT_ARM_EXIDX;
    table.u.rti.table_data = module.bias + index->p_vaddr;
    table.u.rti.table_len = index->p_memsz;
    return true;
}

#else

/// The head of a GNU frame header's table: where it begins, and how its entries are encoded.
struct FrameHeader {
    unsigned char version;
    unsigned char framePointerEncoding;
    unsigned char countEncoding;
    unsigned char tableEncoding;
    std::int32_t framePointer;
    std::uint32_t count;
};

bool FindTable(const Module& module, unw_dyn_info_t& table) {
    constexpr unsigned char kVersion = 1;
    constexpr unsigned char kRelativeToPlace = 0x1B;
    constexpr unsigned char kUnsigned32 = 0x03;
    constexpr unsigned char kRelativeToHeader = 0x3B;
    const ElfW(Phdr)* const part = module.FindHeader(PT_GNU_EH_FRAME);
    if (part == nullptr || part->p_memsz < sizeof(FrameHeader)) {
        return false;
    }
    const std::uintptr_t begin = module.bias + part->p_vaddr;
    const auto& header = *reinterpret_cast<const FrameHeader*>(begin);
    if (header.version != kVersion || header.framePointerEncoding != kRelativeToPlace ||
        header.countEncoding != kUnsigned32 || header.tableEncoding != kRelativeToHeader) {
        return false;
    }
    constexpr std::size_t kEntrySize = 2 * sizeof(std::int32_t);
    table.format = UNW_INFO_FORMAT_REMOTE_TABLE;
    table.u.rti.segbase = begin;
    table.u.rti.table_data = begin + sizeof(FrameHeader);
    table.u.rti.table_len = header.count * kEntrySize / sizeof(unw_word_t);
    return true;
}

#endif

} // namespace

int StackWalk::FindProcInfo(unw_addr_space_t space, unw_word_t address, unw_proc_info_t* info, int needed,
                            void* argument) {
    const Module* const module = static_cast<const Source*>(argument)->modules->Find(address);
    unw_dyn_info_t table{};
    if (module == nullptr || !FindTable(*module, table)) {
        return -UNW_ENOINFO;
    }
    table.start_ip = module->begin;
    table.end_ip = module->end;
    return SearchUnwindTable(space, address, &table, info, needed, argument);
}

bool StackWalk::Source::CanRead(std::uintptr_t address) {
    constexpr std::uintptr_t kPage = 4096;
    const std::uintptr_t first = address & ~(kPage - 1);
    const std::uintptr_t last = (address + sizeof(unw_word_t) - 1) & ~(kPage - 1);
    for (const std::uintptr_t page : {first, last}) {
        std::uintptr_t& good = goodPages[page / kPage % std::size(goodPages)];
        if (good == page && page != 0) {
            continue;
        }
        if (!IsReadable(page)) {
            return false;
        }
        good = page;
    }
    return true;
}

int StackWalk::AccessMemory(unw_addr_space_t /*space*/, unw_word_t address, unw_word_t* value, int write,
                            void* argument) {
    if (write != 0 || !static_cast<Source*>(argument)->CanRead(address)) {
        return -UNW_EINVAL;
    }
    std::memcpy(value, reinterpret_cast<const void*>(address), sizeof(*value));
    return 0;
}

int StackWalk::AccessRegister(unw_addr_space_t /*space*/, unw_regnum_t number, unw_word_t* value, int write,
                              void* argument) {
    const unw_context_t& context = *static_cast<const Source*>(argument)->context;
    if (write != 0 || number < 0) {
        return -UNW_EBADREG;
    }
#ifdef __arm__
    if (number > UNW_ARM_R15) {
        return -UNW_EBADREG;
    }
    *value = context.regs[number];
#else
    // In the order of libunwind's numbers.
    static constexpr int kPlaces[] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                                      REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                      REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    if (number > UNW_X86_64_RIP) {
        return -UNW_EBADREG;
    }
    *value = static_cast<unw_word_t>(context.uc_mcontext.gregs[kPlaces[number]]);
#endif
    return 0;
}

unw_accessors_t StackWalk::Accessors() {
    // Whatever is not replaced here stays libunwind's own, above all the release of table entries.
    unw_accessors_t accessors = *unw_get_accessors(unw_local_addr_space);
    accessors.find_proc_info = FindProcInfo;
    accessors.get_dyn_info_list_addr = NoDynamicCode;
    accessors.access_mem = AccessMemory;
    accessors.access_reg = AccessRegister;
    accessors.access_fpreg = AccessNoFloat;
    return accessors;
}

void StackWalk::MakeSpace() {
    if (g_Space == nullptr) {
        unw_accessors_t accessors = Accessors();
        g_Space = unw_create_addr_space(&accessors, 0);
        if (g_Space != nullptr) {
            unw_set_caching_policy(g_Space, UNW_CACHE_GLOBAL); // for deep recursions
        }
    }
}

void StackWalk::Prepare(const LoadedModules& modules) {
    MakeSpace();
    for (const TableSearch search : {TableSearch::Modules, TableSearch::Loader}) {
        unw_context_t context;
        unw_getcontext(&context);
        StackWalk walk(context, modules, search);
        for (Frame frame; walk.Next(frame);) {
        }
    }
}

StackWalk::StackWalk(unw_context_t& context, const LoadedModules& modules, TableSearch search)
    : source_{&context, &modules, {}} {
    if (search == TableSearch::Modules) {
        MakeSpace();
    }
    started_ =
        (search == TableSearch::Modules && g_Space != nullptr ? unw_init_remote(&cursor_, g_Space, &source_)
                                                              : unw_init_local(&cursor_, &context)) == 0;
}

// An interrupted frame may be on another stack. Everywhere else a caller's frame has a higher address than
// its callee's; a stack where this does not hold is damaged and may have no end.
bool StackWalk::Next(Frame& frame) {
    if (!started_) {
        return false;
    }
    bool interrupted = !kToldAtInterruptedFrame && unw_is_signal_frame(&cursor_) > 0;
    unw_word_t stack = 0;
    unw_word_t instruction = 0;
    if (unw_step(&cursor_) <= 0 || unw_get_reg(&cursor_, UNW_REG_IP, &instruction) != 0 ||
        unw_get_reg(&cursor_, UNW_REG_SP, &stack) != 0 || instruction == 0) {
        return false;
    }
    if (kToldAtInterruptedFrame) {
        interrupted = unw_is_signal_frame(&cursor_) > 0;
    }
    if (!interrupted && stack < stack_) {
        return false;
    }
    stack_ = interrupted ? 0 : stack; // on ARM it is still that of the signal's frame
    frame.instruction = instruction;
    frame.within = interrupted ? instruction : CodeAddress(instruction) - 1;
    return true;
}

} // namespace CrashHandling
