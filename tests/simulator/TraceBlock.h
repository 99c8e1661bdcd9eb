#pragma once

#include "tests/simulator/Process.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <Diagnostics/Formats.h>

namespace Simulator {

/// The binary trace that all processes of a device share. Each entry is claimed on its own, a record's time
/// is read after its first entry has been claimed, and a writer may be held up or killed anywhere between.
class TraceBlock {
  public:
    /// The library's block has 2^20 entries; smaller ones wrap sooner.
    TraceBlock(World& world, std::uint32_t entries);

    /// What a thread writes: a record with two to four arguments, of which the first is its serial number.
    Output Writer(Process& process);
    /// One of the library's own records, without arguments.
    void Own(std::uint32_t thread, std::uint32_t event);
    /// Whether a record of the process is on its way.
    bool IsWriting(const Process& process) const;
    /// A process dies. True if it leaves a record half written.
    bool Kill(const Process& process);

    /// The segment as it is in the working directory.
    void StoreSegment();
    /// The file that `DumpSysTrace` writes; an earlier one is kept.
    void Dump(std::uint32_t thread);

  private:
    /// A record on its way into the block.
    struct Draft {
        int process = 0;
        std::uint32_t thread = 0;
        std::uint32_t id = 0;
        std::uint64_t first = 0; ///< number of its first claim
        std::uint32_t serial = 0;
        std::vector<std::uint32_t> values; ///< of its continuations
        std::size_t stored = 0;            ///< of them
        bool stamped = false;
    };
    using DraftOf = std::shared_ptr<Draft>;

    /// Goes on with a record until it is whole or its writer is held up.
    void Go(Process& process, const DraftOf& draft);
    std::uint32_t Claim();
    std::string Bytes() const;
    /// What a reader of the block finds whole.
    std::set<std::uint64_t> Whole() const;

    World& world_;
    SysTraceHeader header_{};
    std::vector<SysTraceEntry> entries_;
    std::uint64_t claims_ = 0;
    std::vector<DraftOf> underWay_;
    std::map<std::uint64_t, std::uint64_t> done_; ///< serial numbers, with the first claim
};

} // namespace Simulator
