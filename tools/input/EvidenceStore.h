#pragma once

#include "tools/input/Evidence.h"
#include "tools/input/InputLimits.h"
#include "tools/input/UnpackedStore.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Where a file, a folder or an archive stands.
struct Place {
    std::string device; ///< to which its files belong
    std::string path;   ///< as people are told
    unsigned depth = 0; ///< in how many archives

    /// Of what stands in a folder here.
    Place Inside(const std::string& folder) const {
        return {device.empty() ? folder : device + "/" + folder, path + "/" + folder, depth};
    }
};

/// Gathers the files of all devices within the limits.
class EvidenceStore {
  public:
    explicit EvidenceStore(const InputLimits& limits) : limits_(limits) {}

    const InputLimits& Limits() const { return limits_; }
    /// Whether a limit was reached that ends all reading.
    bool Stopped() const { return stopped_; }

    /// Takes a file of a device in. False where the device had one of that name, which it takes the place of.
    bool Keep(EvidenceFile file, const Place& place);
    /// Counts a member of the archive or folder. False, and reported, once there are too many.
    bool CountMember(const std::string& path);
    /// Takes unpacked bytes of a member in as far as the limits allow. False, and reported, if not all.
    bool Append(std::string_view bytes, const std::string& path);
    /// The same for bytes that are still packed, which count for nothing.
    bool AppendPacked(std::string_view bytes, const std::string& path);
    /// How many bytes of the member there are so far.
    std::uint64_t MemberBytes() const { return unpacked_.Size(); }
    UnpackedBytes FinishMember() { return unpacked_.Finish(); }
    /// As if nothing of the member had been unpacked.
    void DropMember();

    /// Reports that something was left alone.
    void ReachLimit(const std::string& path, const std::string& what, const char* option);
    Findings& AllFindings() { return findings_; }
    /// A file that is read and is no evidence itself.
    void AddInput(const FileIdentity& identity) { inputs_.push_back(identity); }

    Evidence Take();

  private:
    using Files = std::map<std::string, EvidenceFile>;

    InputLimits limits_;
    UnpackedStore unpacked_;
    std::uint64_t bytes_ = 0; ///< unpacked, of all members
    std::size_t members_ = 0;
    bool stopped_ = false;
    std::map<std::string, Files> devices_;
    Findings findings_;
    std::vector<FileIdentity> inputs_;
};

/// "8 GiB", "200 bytes".
std::string SizeInWords(std::uint64_t bytes);

} // namespace NimaPost
