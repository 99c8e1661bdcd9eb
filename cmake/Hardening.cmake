# Limits what damaged memory can be used for in the library and nima-post: the process ends if its stack was overwritten
# or if a C library call would overrun a buffer, and what the loader has resolved is made read-only. Added to the
# project's own targets one by one, so that none of it reaches a host.
include(CheckCXXCompilerFlag)

set(NIMA_HARDENING_COMPILE_OPTIONS -fstack-protector-strong)
set(NIMA_HARDENING_LINK_OPTIONS -Wl,-z,relro -Wl,-z,now)

# Refuses jumps into the middle of a function, if processor and compiler support that.
check_cxx_compiler_flag(-fcf-protection NIMA_HAS_CF_PROTECTION)
if(NIMA_HAS_CF_PROTECTION)
    list(APPEND NIMA_HARDENING_COMPILE_OPTIONS -fcf-protection)
endif()

# The checked calls need the optimiser, and they hide from the sanitizers what these would find.
if(NOT NIMA_SANITIZE)
    set(NIMA_FORTIFY_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

function(nima_harden)
    foreach(target IN LISTS ARGN)
        target_compile_options(${target} PRIVATE ${NIMA_HARDENING_COMPILE_OPTIONS})
        target_link_options(${target} PRIVATE ${NIMA_HARDENING_LINK_OPTIONS})
    endforeach()
endfunction()
