#pragma once

#include "tools/base/Descriptor.h"

#include <functional>
#include <optional>
#include <string>

namespace NimaPost {

/// Work that may take long or end badly, done in a process of its own. The work goes on to its end even if
/// the program ends before; neither Ctrl-C nor a hang-up reaches it.
class Background {
  public:
    /// The work's result is a text.
    explicit Background(const std::function<std::string()>& work);
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;
    ~Background();

    /// Becomes readable when there is a result.
    int Number() const { return pipe_.Number(); }
    /// The result once it is there; a sentence of its own if the work ended without one.
    std::optional<std::string> TakeResult();

  private:
    Descriptor pipe_;
    int child_ = -1;
    std::string text_;
};

} // namespace NimaPost
