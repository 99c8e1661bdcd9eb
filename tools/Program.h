#pragma once

namespace NimaPost {

/// The whole program: reads the arguments, runs the command, returns the exit code.
int RunProgram(int argc, const char* const* argv);

} // namespace NimaPost
