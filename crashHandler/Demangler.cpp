#include "crashHandler/Demangler.h"

// Includes nothing else: this header declares functions of <cstring> differently.
#include <libiberty/demangle.h>

namespace CrashHandling {

bool Demangle(const char* mangled, NameSink sink, void* argument) {
    // The options that the runtime's demangler uses.
    return cplus_demangle_v3_callback(mangled, DMGL_PARAMS | DMGL_TYPES, sink, argument) != 0;
}

} // namespace CrashHandling
