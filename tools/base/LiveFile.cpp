#include "tools/base/LiveFile.h"

namespace NimaPost {

const InputFile* LiveFile::Look(std::vector<std::string>& notices) {
    const std::uint64_t before = file_ ? file_->Size() : 0;
    if (file_ && file_->Refresh()) {
        if (file_->Size() < before) {
            notices.push_back(name_ + " was cut from " + std::to_string(before) + " to " +
                              std::to_string(file_->Size()) + " bytes.");
        }
        return &*file_;
    }
    const bool replaced = generation_ > 0;
    const bool had = file_.has_value();
    file_ = InputFile::Open(path_, problem_);
    if (file_) {
        if (replaced) {
            notices.push_back(name_ + " is a different file than before.");
        }
        ++generation_;
        return &*file_;
    }
    if (had) {
        notices.push_back(name_ + " is gone.");
    }
    return nullptr;
}

} // namespace NimaPost
