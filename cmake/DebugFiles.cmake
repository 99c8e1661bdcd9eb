# nima_install_debug_file(TARGET FOLDER): with `cmake --install --strip` the debug information of an installed file stays
# in .debug/ next to it, compressed, where gdb looks for it.
function(nima_install_debug_file target folder)
    install(CODE "set(nima_built \"$<TARGET_FILE:${target}>\")
set(nima_installed \"${folder}/$<TARGET_FILE_NAME:${target}>\")
set(nima_objcopy \"${CMAKE_OBJCOPY}\")")
    install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/SplitDebugFile.cmake)
endfunction()
