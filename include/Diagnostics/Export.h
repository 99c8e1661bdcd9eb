#pragma once

/// Marks what the library offers to its hosts. Everything else in the library is hidden, so that its
/// internal names never clash with a host's.
#if defined(__GNUC__)
#define NIMA_DIAGNOSTICS_API __attribute__((visibility("default")))
/// Lets the compiler check the arguments of a printf-like function; positions count from 1, and a
/// member function's `this` is number 1.
#define NIMA_PRINTF_FORMAT(formatPosition, firstArgument) \
    __attribute__((format(printf, formatPosition, firstArgument)))
#else
#define NIMA_DIAGNOSTICS_API
#define NIMA_PRINTF_FORMAT(formatPosition, firstArgument)
#endif

#ifdef __cplusplus
#define NIMA_EXTERN_C_BEGIN extern "C" {
#define NIMA_EXTERN_C_END }
#else
#define NIMA_EXTERN_C_BEGIN
#define NIMA_EXTERN_C_END
#endif
