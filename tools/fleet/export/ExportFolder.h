#pragma once

#include "tools/base/Descriptor.h"
#include "tools/fleet/export/TableRow.h"

#include <string>

namespace NimaPost {

/// A folder that an export writes to: a new one, an empty one, or one with an export of the same form. Nobody
/// else exports to it meanwhile.
class ExportFolder {
  public:
    /// False, with the reason, if it is none of these.
    bool Open(const std::string& path, TableForm form, std::string& problem);
    ~ExportFolder();
    ExportFolder() = default;
    ExportFolder(const ExportFolder&) = delete;
    ExportFolder& operator=(const ExportFolder&) = delete;

    const std::string& Path() const { return path_; }
    /// For what is not complete; empty when the export begins.
    std::string Unfinished() const { return path_ + "/_unfinished"; }

  private:
    std::string path_;
    Descriptor mark_; ///< locked
    bool begun_ = false;
};

} // namespace NimaPost
