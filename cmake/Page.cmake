# A page for a browser as string constants. Its modules are bundled into one script, so that the page is one file that
# loads nothing else.
find_program(NIMA_ESBUILD esbuild NO_CMAKE_FIND_ROOT_PATH DOC "Bundles the scripts of nima-post's pages")
if(NOT NIMA_ESBUILD)
    message(FATAL_ERROR "esbuild was not found. It bundles the scripts of nima-post's pages: install the package esbuild, "
        "or leave nima-post out with -DNIMA_BUILD_TOOLS=OFF.")
endif()

# nima_add_page(target name modules...): the library `target` from page/ in the current folder, declared in NAME.h there,
# with the functions NAMEHead and NAMETail. `modules` are scripts of other folders that it imports.
function(nima_add_page target name)
    set(folder ${CMAKE_CURRENT_SOURCE_DIR}/page)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}.js)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    set(embed ${PROJECT_SOURCE_DIR}/cmake/EmbedPage.cmake)
    file(GLOB_RECURSE modules CONFIGURE_DEPENDS ${folder}/*.js)

    # A bundle is not a module, so it must request strict mode.
    add_custom_command(
        OUTPUT ${script}
        COMMAND ${NIMA_ESBUILD} main.js --bundle --format=iife --target=es2020 --charset=utf8
                "--banner:js=\"use strict\";" --log-level=warning --outfile=${script}
        DEPENDS ${modules} ${ARGN}
        WORKING_DIRECTORY ${folder}
        VERBATIM)
    add_custom_command(
        OUTPUT ${source}
        COMMAND ${CMAKE_COMMAND} -DHTML=${folder}/page.html -DCSS=${folder}/page.css -DSCRIPT=${script} -DNAME=${name}
                -DOUTPUT=${source} -P ${embed}
        DEPENDS ${embed} ${folder}/page.html ${folder}/page.css ${script}
        VERBATIM)

    add_library(${target} STATIC ${source})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE nima_build_options)
    # A string longer than the language promises; both compilers take it. The option must follow -Wpedantic, as those of
    # a source do.
    set_source_files_properties(${source}
        PROPERTIES COMPILE_OPTIONS $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-overlength-strings>)
endfunction()
