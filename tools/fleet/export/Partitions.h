#pragma once

#include "tools/fleet/export/TableRow.h"
#include "tools/fleet/export/ZstdFile.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace NimaPost {

/// The files that one case becomes: for each table and day one, TABLE/device=.../day=.../part-CASE.jsonl.zst.
/// They get their names once all of them are complete.
class Partitions {
  public:
    /// `folder` is that of the tables; with `unfinished` begin the paths of what is being written.
    Partitions(std::string folder, std::string unfinished, std::string_view device, std::string caseId,
               TableForm form);
    Partitions(const Partitions&) = delete;
    Partitions& operator=(const Partitions&) = delete;
    ~Partitions();

    /// `day` is "2026-11-24", or empty where no date is known.
    void Add(std::string_view table, std::string_view day, const TableRow& row);
    /// Keeps no file open; more may be added.
    void Close();
    /// Returns the number of files.
    std::size_t Finish();

  private:
    using Key = std::pair<std::string, std::string>; ///< table and day

    struct Part {
        std::string path;               ///< as long as it is not complete
        std::unique_ptr<ZstdFile> file; ///< null while it is not open
    };

    void Open(Part& part, const Key& key);

    std::string folder_;
    std::string unfinished_;
    std::string device_; ///< as it stands in a path
    std::string caseId_;
    TableForm form_;
    std::map<Key, Part, std::less<>> parts_;
    std::list<Part*> open_; ///< the last used first
};

} // namespace NimaPost
