# Builds, runs and installs a host that has the project as a subfolder. The host says what was changed of its own; only
# its program may be installed.
cmake_policy(VERSION 3.25)

include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -G Ninja -DNIMA_SOURCE=${NIMA_SOURCE}
    "-DCMAKE_C_COMPILER_LAUNCHER=${LAUNCHER}" "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}")
run(${CMAKE_COMMAND} --build ${WORK}/build)
# What such a host may not be told shows before anything is compiled.
run(${CMAKE_COMMAND} -S ${SOURCE}/in_c -B ${WORK}/in_c -G Ninja -DNIMA_SOURCE=${NIMA_SOURCE})
run(${CMAKE_COMMAND} -E chdir ${WORK} ${WORK}/build/guest)
file(STRINGS ${WORK}/guest.log lines REGEX "> <WARN> <Part> from a guest$")
if(NOT lines)
    message(FATAL_ERROR "guest.log does not hold the line of the host's part")
endif()
run(${CMAKE_COMMAND} --install ${WORK}/build --prefix ${WORK}/prefix)
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
if(NOT installed STREQUAL "bin/guest")
    message(FATAL_ERROR "installed with the host: ${installed}")
endif()
