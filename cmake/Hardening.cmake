# How the library and nima-post resist what damaged memory may be used for: a stack that was written over, and a
# buffer that a C library call would overrun, end the process; what the loader has resolved cannot be written to any
# more. Added to the project's own targets one by one, so that none of it reaches a host.
include(CheckCXXCompilerFlag)

set(NIMA_HARDENING_COMPILE_OPTIONS -fstack-protector-strong)
set(NIMA_HARDENING_LINK_OPTIONS -Wl,-z,relro -Wl,-z,now)

# Jumps into the middle of a function, where processor and compiler know how to refuse them.
check_cxx_compiler_flag(-fcf-protection NIMA_HAS_CF_PROTECTION)
if(NIMA_HAS_CF_PROTECTION)
    list(APPEND NIMA_HARDENING_COMPILE_OPTIONS -fcf-protection)
endif()

# The checked calls need the optimiser, and hide from the sanitizers what these would find.
if(NOT NIMA_SANITIZE)
    set(NIMA_FORTIFY_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

function(nima_harden)
    foreach(target IN LISTS ARGN)
        target_compile_options(${target} PRIVATE ${NIMA_HARDENING_COMPILE_OPTIONS})
        target_link_options(${target} PRIVATE ${NIMA_HARDENING_LINK_OPTIONS})
    endforeach()
endfunction()
