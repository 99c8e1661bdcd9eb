#pragma once

#include <cstdio>

namespace NimaPost {

/// What stands between the text of a command and the file that it goes to.
class OutputFilter {
  public:
    OutputFilter() = default;
    OutputFilter(const OutputFilter&) = delete;
    OutputFilter& operator=(const OutputFilter&) = delete;
    virtual ~OutputFilter() = default;

    /// For the text. Neither this nor the file's own stream is closed by anyone else.
    virtual std::FILE* Stream() = 0;
    /// To be called when all text was written. Returns 0, or the error of a write to the file that failed.
    virtual int Finish() = 0;
};

} // namespace NimaPost
