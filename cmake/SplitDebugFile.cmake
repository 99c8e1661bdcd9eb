# Run by the installation, which has just stripped `nima_installed`.
cmake_policy(VERSION 3.25)
if(NOT CMAKE_INSTALL_DO_STRIP)
    return()
endif()
cmake_path(ABSOLUTE_PATH nima_installed BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
set(nima_installed "$ENV{DESTDIR}${nima_installed}")
cmake_path(GET nima_installed PARENT_PATH nima_folder)
cmake_path(GET nima_installed FILENAME nima_debug_file)
set(nima_debug_file "${nima_folder}/.debug/${nima_debug_file}.debug")
message(STATUS "Installing: ${nima_debug_file}")
file(MAKE_DIRECTORY "${nima_folder}/.debug")
execute_process(
    COMMAND "${nima_objcopy}" --only-keep-debug --compress-debug-sections "${nima_built}" "${nima_debug_file}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(
    COMMAND "${nima_objcopy}" --remove-section=.gnu_debuglink "--add-gnu-debuglink=${nima_debug_file}" "${nima_installed}"
    COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD "${nima_debug_file}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
