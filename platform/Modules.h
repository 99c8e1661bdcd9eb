#pragma once

/// What has no counterpart on this platform: no module snapshot can be taken, and no fault has a code.
/// Callers take their failure paths.

/// The code of the fault being handled: 0.
int _get_exception_code_helper();
/// -1: no snapshot.
int _create_toolhelp32_snapshot_helper(int kind, int processId);
/// 0: no module.
int _module32_first_helper(int snapshot, int entry);
/// 0: no further module.
int _module32_next_helper(int snapshot, int entry);
/// 0.
int _close_snapshot_helper(int snapshot);
