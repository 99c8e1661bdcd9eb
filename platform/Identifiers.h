#pragma once

#include <cstdint>

#include <Diagnostics/Types.h>

/// Fills `*out` with a version-4 identifier and returns 0. The C library's random generator is seeded
/// with the time on every call, so calls within one second give the same identifier.
int _create_guid_helper(_GUID* out);
