#pragma once

namespace NimaCtl {

/// The whole program: reads the arguments, runs the verb, returns the exit code.
int RunProgram(int argc, const char* const* argv);

} // namespace NimaCtl
