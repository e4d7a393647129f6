// The Askpass helper: sudo runs it (no arguments; only SUDO_ASKPASS and HOME in its environment) to get the
// administrator password. It asks the running Corvel X over the relay's socket and prints the answer for sudo.
// Plain C++ and POSIX so that it starts at once and carries nothing of the application.

#include "homebrew/AskpassChannel.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// Connecting is local and immediate unless the application hangs; the reply waits for a person to type.
constexpr auto connectTimeout = std::chrono::seconds(5);
constexpr auto replyTimeout = std::chrono::seconds(300);

int fail(const std::string& message)
{
    const std::string line = "Askpass: " + message + "\n";
    [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
    return 1;
}

int remainingMilliseconds(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? int(left) : 0;
}

// Waits for events on fd until the deadline; false on time-out or failure.
bool waitFor(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        struct pollfd entry {
            fd, events, 0
        };
        const int ready = ::poll(&entry, 1, remainingMilliseconds(deadline));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

bool connectWithin(int fd, const sockaddr_un& address, Clock::time_point deadline)
{
    for (;;) {
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return true;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno == EINPROGRESS) {
            int error = 0;
            socklen_t length = sizeof error;
            if (!waitFor(fd, POLLOUT, deadline) || ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
                return false;
            }
            errno = error;
            return error == 0;
        }
        // A full backlog: the application is alive but has not accepted yet.
        if (errno == EAGAIN && remainingMilliseconds(deadline) > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        return false;
    }
}

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            return false;
        }
        data += written;
        size -= size_t(written);
    }
    return true;
}

} // namespace

int main()
{
    // A relay that goes away while the request is sent must end in an error message, not a silent signal death.
    std::signal(SIGPIPE, SIG_IGN);

    const AskpassChannel::Location location = AskpassChannel::socketPath(::getuid(), AskpassChannel::Creation::Never);
    if (!location.ok()) {
        return fail("Corvel X is not running or cannot be reached (" + location.error + ")");
    }

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (location.path.size() >= sizeof address.sun_path) {
        return fail("the socket path " + location.path + " is too long");
    }
    std::memcpy(address.sun_path, location.path.c_str(), location.path.size() + 1);

    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        return fail(std::string("cannot create a socket: ") + std::strerror(errno));
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);

    if (!connectWithin(fd, address, Clock::now() + connectTimeout)) {
        return fail("Corvel X is not running or does not answer at " + location.path + " (" + std::strerror(errno) +
                    ")");
    }

    static constexpr char request[] = "askpass\n";
    const auto replyDeadline = Clock::now() + replyTimeout;
    // The relay answers once it has the whole request; sending the few bytes is immediate on a local socket.
    if (!waitFor(fd, POLLOUT, replyDeadline) || !writeAll(fd, request, sizeof request - 1)) {
        return fail(std::string("cannot send the request to Corvel X: ") + std::strerror(errno));
    }

    // The relay closes the connection after the reply, so the reply is everything read until the end.
    std::string reply;
    char buffer[512];
    for (;;) {
        if (!waitFor(fd, POLLIN, replyDeadline)) {
            return fail("no answer from Corvel X");
        }
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count == 0) {
            break;
        }
        if (count < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            return fail(std::string("cannot read the answer of Corvel X: ") + std::strerror(errno));
        }
        reply.append(buffer, size_t(count));
    }
    ::close(fd);

    if (reply == AskpassChannel::cancelReply) {
        return 1;
    }
    reply += '\n';
    return writeAll(STDOUT_FILENO, reply.data(), reply.size()) ? 0 : 1;
}
