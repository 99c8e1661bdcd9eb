#pragma once

#include "pages/Table.h"

#include <string>

namespace NimaPages {

/// The manual page, for section 1.
std::string ManualPage(const Program& program);

/// Completion for bash and for zsh.
std::string BashCompletion(const Program& program);
std::string ZshCompletion(const Program& program);

} // namespace NimaPages
