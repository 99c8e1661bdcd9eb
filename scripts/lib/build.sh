# shellcheck shell=bash
# Sourced. How every command configures the build.

# configure PRESET [OPTION...]: with ccache where there is one. Passed even if empty, so that a build folder does not
# keep the name of a ccache that is gone.
configure() {
    local launcher
    launcher=$(command -v ccache || true)
    cmake --preset "$1" "-DCMAKE_C_COMPILER_LAUNCHER=$launcher" "-DCMAKE_CXX_COMPILER_LAUNCHER=$launcher" "${@:2}"
}
