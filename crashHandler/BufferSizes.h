#pragma once

/// The buffers that names and texts of a crash are cut to, terminating zero included.
enum {
    kStackFileNameSize = 64, ///< "./stacktrace%d-%d.txt"
    kStackFilePathSize = 72, ///< the same after the working directory
    kWorkingDirectorySize = 30,
    kCoreDirectorySize = 30,
    kFrameLineSize = 100,
    kSymbolNameSize = 256,
    kNotificationSize = 140
};
