#pragma once

#include "tools/base/Output.h"

#include <cstddef>
#include <string>
#include <vector>

namespace NimaPost {

/// The terminal on standard output, taken over for a picture that is drawn repeatedly. At the end it gets its
/// old content, cursor and attributes back.
class Screen {
  public:
    explicit Screen(Output& out);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    /// Whether standard output is a terminal that can do this.
    static bool Possible();

    /// Gives the terminal back for a while, and takes it again.
    void GiveBack();
    void Take();

    /// Asks the terminal for its size. Returns whether it has changed.
    bool TakeSize();
    std::size_t Rows() const { return rows_; }

    /// Draws printable lines, the first as a heading; what does not fit is left out.
    void Show(const std::vector<std::string>& lines);

  private:
    Output& out_;
    std::size_t rows_ = 0;
    std::size_t columns_ = 0;
};

} // namespace NimaPost
