#include "catalogue/Notification.h"
#include "crashHandler/Descriptors.h"
#include "crashHandler/TextLine.h"
#include "crashHandler/crashHandler.h"

#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace CrashHandling;
namespace Catalogue = Nima::Catalogue;

namespace {

constexpr const char* kCorePatternFile = "/proc/sys/kernel/core_pattern";

/// The working directory, cut to the buffer; empty if it is not available. Unlike with `getcwd`, a longer
/// path is cut instead of refused.
void WorkingDirectory(char (&directory)[kWorkingDirectorySize]) {
    std::memset(directory, 0, sizeof(directory));
    if (::readlink("/proc/self/cwd", directory, sizeof(directory) - 1) <= 0 &&
        ::getcwd(directory, sizeof(directory)) == nullptr) {
        directory[0] = '\0';
    }
}

void SendToMosk(const TextLine<kNotificationSize>& text) {
    const int socket = OpenSocket();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(Catalogue::kNotificationPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const ssize_t sent = ::sendto(socket, text.text(), text.length(), MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    // Straight to the descriptor: the abort that follows would lose what the stream holds.
    TextLine<kFrameLineSize> line;
    line.Add("sent ").AddDecimal(sent).Add(" bytes to mosk\n");
    WriteIfReady(STDOUT_FILENO, line.text(), line.length());
    CloseSocket(socket);
}

} // namespace

void coreDirectory(const char* patternFile, char (&directory)[kCoreDirectorySize]) {
    std::memset(directory, 0, sizeof(directory));
    const int file = OpenAboveStandard(patternFile, O_RDONLY | O_CLOEXEC);
    const ssize_t count = file != -1 ? ::read(file, directory, sizeof(directory) - 1) : -1;
    if (file != -1) {
        ::close(file);
    }
    if (count <= 0) {
        std::strncpy(directory, "/var/log", sizeof(directory) - 1);
        return;
    }
    char* const last = std::strrchr(directory, '/');
    if (last != nullptr && last != std::strchr(directory, '/')) {
        *last = '\0';
    } else {
        std::strncpy(directory, "/", sizeof(directory) - 1);
    }
}

void notifyMoskAboutCrash(const char* name) {
    char folder[kWorkingDirectorySize];
    char cores[kCoreDirectorySize];
    WorkingDirectory(folder);
    coreDirectory(kCorePatternFile, cores);
    TextLine<kStackFilePathSize> path;
    path.Add(std::strcmp(folder, "/") == 0 ? "" : folder).Add("/");
    path.Add(std::strncmp(name, "./", 2) == 0 ? name + 2 : name);
    TextLine<kNotificationSize> text;
    text.Add(Catalogue::kNotificationHead).Add(path.text());
    text.Add(Catalogue::kNotificationFolder).Add(cores).Add(Catalogue::kNotificationEnd);
    SendToMosk(text);
}
