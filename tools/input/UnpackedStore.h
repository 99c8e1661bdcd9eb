#pragma once

#include "tools/base/Descriptor.h"
#include "tools/base/InputFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace NimaPost {

/// Where unpacked bytes are kept, since most files are read twice: in memory as long as all of them are few,
/// the others one after the other in a file without a name, which is gone with the program.
class UnpackedStore {
  public:
    /// What is kept in memory, in all and of one file.
    static constexpr std::uint64_t kInMemory = 32 << 20;

    /// Takes more of the file that is being unpacked. False, with the reason, if there is no room for it.
    bool Append(std::string_view bytes, std::string& problem);
    /// How much of it there is so far.
    std::uint64_t Size() const { return size_; }
    /// Ends the file, whatever became of it, and hands it over.
    UnpackedBytes Finish();

  private:
    bool Spill(std::string_view bytes, std::string& problem);

    std::string memory_;
    std::uint64_t size_ = 0;
    bool spilled_ = false; ///< the file that is being unpacked
    std::uint64_t inMemory_ = 0;
    std::shared_ptr<const Descriptor> file_;
    std::uint64_t end_ = 0; ///< of what finished files take in it
};

} // namespace NimaPost
