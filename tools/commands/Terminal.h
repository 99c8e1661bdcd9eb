#pragma once

#include <string>

#include <sys/types.h>

namespace NimaPost {

/// Whether text is to have colours: "always", "never", or "auto" for a terminal unless NO_COLOR forbids it.
bool WantsColour(const std::string& choice);

/// The program that shows long output page by page on a terminal: that of PAGER, or less.
class Pager {
  public:
    Pager() = default;
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

    /// From now on standard output goes through it, and standard error as well where that is a terminal. Does
    /// nothing where standard output is none or no pager is wanted.
    void Start();
    /// Ends the output and waits until the pager has been left.
    void Finish();

  private:
    pid_t child_ = -1;
};

} // namespace NimaPost
