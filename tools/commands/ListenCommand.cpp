#include "catalogue/Notification.h"
#include "tools/base/Descriptor.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/LocalTime.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/commands/Commands.h"
#include "tools/crash/Notification.h"
#include "tools/crash/StackTraceCollector.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace NimaPost {

namespace {

/// An interrupt that comes between the check for one and the wait is noticed after this many milliseconds.
constexpr int kLongestWait = 250;
/// How much is shown of a datagram that is not a notification.
constexpr std::size_t kMostShown = 256;

struct ListenOptions {
    std::uint16_t port = Nima::Catalogue::kNotificationPort;
    std::string collect;
    std::uint64_t count = 0;
};

/// A datagram and where it came from.
struct Received {
    std::string bytes;
    bool cut = false;
    std::uint16_t port = 0;
    std::int64_t time = 0;
};

class Listener {
  public:
    /// Takes the port on loopback, or for 0 one that the system chooses. Returns false with `errno` set on
    /// failure.
    bool Bind(std::uint16_t port) {
        socket_ = Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (!socket_ || bind(socket_.Number(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
            getsockname(socket_.Number(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            return false;
        }
        port_ = ntohs(address.sin_port);
        return true;
    }
    std::uint16_t Port() const { return port_; }

    /// Returns false if nothing came for a while, or an interrupt did.
    bool Receive(Received& received) {
        pollfd wait{socket_.Number(), POLLIN, 0};
        if (poll(&wait, 1, kLongestWait) <= 0) {
            return false;
        }
        std::array<char, 2048> bytes{};
        sockaddr_in from{};
        socklen_t length = sizeof(from);
        const ssize_t got = recvfrom(socket_.Number(), bytes.data(), bytes.size(), MSG_TRUNC,
                                     reinterpret_cast<sockaddr*>(&from), &length);
        if (got < 0) {
            return false;
        }
        const auto size = static_cast<std::size_t>(got);
        received.time = LocalTimeNow();
        received.cut = size > bytes.size();
        received.bytes.assign(bytes.data(), std::min(size, bytes.size()));
        received.port = ntohs(from.sin_port);
        return true;
    }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

void AppendLine(std::string& text, std::string_view label, std::string_view value) {
    text += label;
    AppendPrintable(text, value);
    text += '\n';
}

void PrintNotification(Context& context, const Received& received, const CrashNotification& notification,
                       const std::optional<StackTraceCollector::Copy>& copy) {
    const auto process = ParseStackTraceName(LastComponent(notification.file));
    if (context.json) {
        Json json{{"time", WallTimeIso(received.time)},
                  {"process", process ? Json(process->process) : Json()},
                  {"file", ToUtf8(notification.file)},
                  {"core_folder", ToUtf8(notification.coreFolder)}};
        if (copy) {
            json["copy"] = copy->path.empty() ? Json() : Json(ToUtf8(copy->path));
            json["bytes"] = copy->bytes;
            json["problem"] = copy->problem.empty() ? Json() : Json(ToUtf8(copy->problem));
        }
        PrintObject(context, json);
        return;
    }
    std::string& text = context.out.Text();
    AppendWallTime(text, received.time);
    text += process ? "  process " + std::to_string(process->process) + " died\n" : "  a process died\n";
    AppendLine(text, "  stack trace  ", notification.file);
    AppendLine(text, "  core files   ", notification.coreFolder);
    if (copy && !copy->path.empty()) {
        AppendLine(text, "  copied to    ", copy->path + ", " + Counted(copy->bytes, "byte"));
    }
    if (copy && !copy->problem.empty()) {
        AppendLine(text, copy->path.empty() ? "  not copied:  " : "  incomplete:  ", copy->problem);
    }
}

void PrintStrange(Context& context, const Received& received) {
    const std::string_view shown = std::string_view(received.bytes).substr(0, kMostShown);
    const bool cut = received.cut || shown.size() < received.bytes.size();
    if (context.json) {
        PrintObject(context, {{"time", WallTimeIso(received.time)},
                              {"no_notification", ToUtf8(shown)},
                              {"cut", cut},
                              {"from_port", received.port}});
        return;
    }
    std::string& text = context.out.Text();
    AppendWallTime(text, received.time);
    text += "  no notification, from port " + std::to_string(received.port) + ": \"";
    AppendPrintable(text, shown);
    text += cut ? "\" ...\n" : "\"\n";
}

int RunListen(Context& context, const ListenOptions& options) {
    std::string problem;
    std::optional<StackTraceCollector> collector;
    if (!options.collect.empty() && !(collector = StackTraceCollector::Open(options.collect, problem))) {
        return ReportUnusable(context, problem);
    }
    Listener listener;
    if (!listener.Bind(options.port)) {
        return ReportUnusable(context, "port " + std::to_string(options.port) + ": " + std::strerror(errno));
    }
    const Interrupt interrupt;
    if (context.json) {
        PrintObject(context, {{"listening", {{"address", "127.0.0.1"}, {"port", listener.Port()}}}});
    } else {
        context.out.Line("listening on 127.0.0.1, port " + std::to_string(listener.Port()));
    }
    std::uint64_t notifications = 0;
    while (context.out.Flush() && !interrupt.Requested() &&
           (options.count == 0 || notifications < options.count)) {
        Received received;
        if (!listener.Receive(received)) {
            continue;
        }
        const auto notification = received.cut ? std::nullopt : ParseNotification(received.bytes);
        if (!notification) {
            PrintStrange(context, received);
            continue;
        }
        std::optional<StackTraceCollector::Copy> copy;
        if (collector) {
            copy = collector->Take(notification->file);
        }
        PrintNotification(context, received, *notification, copy);
        ++notifications;
    }
    return kExitFine;
}

} // namespace

void AddListenCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<ListenOptions>();
    CLI::App* command =
        AddCommand(app, context, "listen",
                   "Receives crash notifications as processes send them, until Ctrl-C", Prints::kAsItComes);
    AddOption(*command, "--port", options->port,
              "The port on 127.0.0.1 (" + std::to_string(Nima::Catalogue::kNotificationPort) +
                  "); 0 lets the system choose one")
        .TypeName("N");
    AddOption(*command, "--collect", options->collect, "Copy the stack-trace files into this folder")
        .TypeName("DIR");
    AddCountOption(*command, options->count, "notifications");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunListen(c, *options); }; });
}

} // namespace NimaPost
