#include "tools/base/LiveFile.h"

#include <utility>

namespace NimaPost {

const InputFile* LiveFile::Look(std::vector<Finding>& notices) {
    const std::uint64_t before = file_ ? file_->Size() : 0;
    if (file_ && file_->Refresh()) {
        if (file_->Size() < before) {
            notices.push_back({"file-cut", name_ + " was cut from " + std::to_string(before) + " to " +
                                               std::to_string(file_->Size()) + " bytes."});
        }
        return &*file_;
    }
    const bool replaced = generation_ > 0;
    const bool had = file_.has_value();
    file_ = InputFile::Open(path_, problem_);
    if (file_) {
        if (replaced) {
            notices.push_back({"file-replaced", name_ + " is a different file than before."});
        }
        ++generation_;
        return &*file_;
    }
    if (had) {
        notices.push_back({"file-gone", name_ + " is gone."});
    }
    return nullptr;
}

std::string LiveFile::ProblemOr(std::string otherwise) const {
    const std::string problem = file_ ? file_->ReadError() : std::string();
    return problem.empty() ? std::move(otherwise) : name_ + " cannot be read: " + problem + ".";
}

} // namespace NimaPost
