#include <Diagnostics/NimaTrace.h>

#if __cplusplus != 201703L
#error "the library changes the language of its host"
#endif

void Report() {
    static Nima::Common::System::OS::Diagnostics::NimaTrace tracer("Part");
    tracer.WriteWarnV("from a %s", "guest");
}
