#pragma once

/// The version of the library that a host is compiled for:
///
///     #if NIMA_DIAGNOSTICS_VERSION >= NIMA_DIAGNOSTICS_VERSION_OF(1, 2, 0)
///
/// A host runs with every later library of the same first number.

#define NIMA_DIAGNOSTICS_VERSION_MAJOR 1 ///< changes when hosts must be built again
#define NIMA_DIAGNOSTICS_VERSION_MINOR 0 ///< changes when something is new
#define NIMA_DIAGNOSTICS_VERSION_PATCH 0 ///< changes when something was put right

/// A version as a number that can be compared.
#define NIMA_DIAGNOSTICS_VERSION_OF(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/// The version of these headers as such a number.
#define NIMA_DIAGNOSTICS_VERSION                                                                \
    NIMA_DIAGNOSTICS_VERSION_OF(NIMA_DIAGNOSTICS_VERSION_MAJOR, NIMA_DIAGNOSTICS_VERSION_MINOR, \
                                NIMA_DIAGNOSTICS_VERSION_PATCH)
