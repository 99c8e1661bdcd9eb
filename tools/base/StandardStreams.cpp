#include "tools/base/StandardStreams.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace NimaPost {

void TakeClosedStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF) {
            // The lowest free number is this one.
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

} // namespace NimaPost
