# How the project's own targets are compiled. None of this reaches a host that links the library.
add_library(nima_build_options INTERFACE)
target_compile_features(nima_build_options INTERFACE cxx_std_20 c_std_11)
target_compile_options(nima_build_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wcast-align -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
    # GCC 12 reports overlapping copies in its own std::string.
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>
    -fno-omit-frame-pointer
    $<$<BOOL:${NIMA_WERROR}>:-Werror>)

# Everything is built by one compiler, so it does not matter how older ones passed parameters.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "arm" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(nima_build_options INTERFACE -Wno-psabi)
endif()

# A host cancels threads and unwinds through C callers.
target_compile_options(nima_build_options INTERFACE $<$<COMPILE_LANGUAGE:C>:-fexceptions>)

if(NIMA_SANITIZE)
    # With the sanitizers' checks GCC 12 reports uninitialised members in the standard library's own headers.
    target_compile_options(nima_build_options INTERFACE
        $<$<OR:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<COMPILE_LANG_AND_ID:C,GNU>>:-Wno-maybe-uninitialized>)
    target_compile_options(nima_build_options INTERFACE -fsanitize=${NIMA_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(nima_build_options INTERFACE -fsanitize=${NIMA_SANITIZE})
endif()
