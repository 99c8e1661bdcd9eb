#pragma once

#include "tools/babeltrace/ClockedTraces.h"
#include "tools/babeltrace/EventShape.h"
#include "tools/babeltrace/Parameters.h"
#include "tools/babeltrace/Shared.h"
#include "tools/input/Evidence.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A device as babeltrace sees it.
struct TracedDevice {
    std::string title;
    ClockedTraces traces;
    EventShape shape;
};

/// The trace behind one output port.
struct TracePort {
    struct Stream {
        std::size_t thread = 0; ///< in the device's threads
        SharedStream stream;
    };

    const TracedDevice* device = nullptr;
    const ClockedTrace* trace = nullptr;
    SharedTrace made;
    std::vector<Stream> streams; ///< in the order of the threads' numbers
};

/// Everything that the component reads, with a port for each process and clock.
class FolderSource {
  public:
    explicit FolderSource(bt_self_component_source* self) : self_(self) {}

    /// False, with the reason, if there is nothing to show.
    bool Read(const FolderParameters& parameters, std::string& problem);

  private:
    bool ReadInput(const FolderParameters& parameters, const std::string& input, const Names& names,
                   std::string& problem);
    void AddDevice(const FolderParameters& parameters, const std::string& where, const std::string& title,
                   const Story& story, const Names& names);
    void AddPort(const TracedDevice& device, const ClockedTrace& trace);
    void Warn(const std::string& sentence) const;
    bt_self_component* Self() const { return bt_self_component_source_as_self_component(self_); }

    bt_self_component_source* self_;
    std::deque<TracedDevice> devices_; ///< these and the ports stay where they are
    std::deque<TracePort> ports_;
};

/// How likely it is that babeltrace should have the component read a file or folder.
double SupportFor(std::string_view type, const std::string& input);

} // namespace NimaPost
