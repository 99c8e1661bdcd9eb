# libunwind, with which the crash handler walks a stack. Without UNW_LOCAL_ONLY its entry points are those of the
# target's own library. The compiler's unwinder comes first: libunwind offers the same functions for exceptions, and a
# process that mixes the two does not survive the cancellation of a thread. libiberty has a demangler that needs no
# memory; it is linked in and hidden.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(NIMA_UNWIND_LIBRARIES gcc_s unwind-arm iberty)
else()
    set(NIMA_UNWIND_LIBRARIES gcc_s unwind unwind-${CMAKE_SYSTEM_PROCESSOR} iberty)
endif()
add_library(nima_unwind INTERFACE)
target_link_libraries(nima_unwind INTERFACE ${NIMA_UNWIND_LIBRARIES})

# A frame can be walked only if it has a table entry, in C too.
target_compile_options(nima_build_options INTERFACE -funwind-tables)
