#pragma once

/// What the fields "Crash Type" and "Error Code" of a crash log say about a failure.

#include <cstdint>

namespace Nima::Catalogue {

enum FailureType : std::int32_t { kProcessExit = 0, kNativeException = 1, kReportedError = 2 };

/// The error codes of failures whose host gave none.
enum FailureCode : std::int32_t {
    kProcessExited = 0x0049380A,
    kOtherNativeException = 0x00493807,
    kAccessViolation = 0x00493813,
    kStackOverflow = 0x00493814
};

} // namespace Nima::Catalogue
