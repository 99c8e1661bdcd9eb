#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Nima::Testing {

/// A line of a stack trace. One that fills the handler's buffer has been cut.
inline bool IsFrame(const std::string& line) {
    constexpr const char* kHex = "0123456789abcdef";
    if (line.size() >= 98) {
        return line.size() == 98;
    }
    const std::size_t end = line.find_first_not_of(kHex, 2);
    if (!line.starts_with("0x") || end == 2 || end == std::string::npos) {
        return false;
    }
    const std::string rest = line.substr(end);
    const std::size_t offset = rest.rfind("+0x");
    const bool named = rest.starts_with(": (") && offset != std::string::npos &&
                       rest.find_first_not_of(kHex, offset + 3) == rest.size() - 1 && rest.ends_with(')');
    return named || rest == ": -- error: unable to obtain symbol name for this frame";
}

/// The notification service, which hears of every stack trace.
class NotificationPort {
  public:
    NotificationPort() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(65429);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::system_error(errno, std::generic_category(), "the notification port");
        }
    }
    NotificationPort(const NotificationPort&) = delete;
    NotificationPort& operator=(const NotificationPort&) = delete;
    ~NotificationPort() { ::close(socket_); }

    /// What has come since the last call.
    std::vector<std::string> Received() const {
        std::vector<std::string> texts;
        char buffer[512];
        for (ssize_t count = 0; (count = ::recv(socket_, buffer, sizeof(buffer), MSG_DONTWAIT)) >= 0;) {
            texts.emplace_back(buffer, static_cast<std::size_t>(count));
        }
        return texts;
    }

  private:
    int socket_;
};

} // namespace Nima::Testing
