#pragma once

/// The buffers to which a crash's names and texts are cut, terminating zero included.
enum {
    kStackFileNameSize = 64, ///< "./stacktrace%d-%d.txt"
    kStackFilePathSize = 72, ///< the same after the working directory
    kWorkingDirectorySize = 30,
    kCoreDirectorySize = 30,
    kFrameLineSize = 100,
    kSymbolNameSize = 256,
    kNotificationSize = 140
};
