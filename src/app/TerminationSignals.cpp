#include "app/TerminationSignals.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
// Written from the signal handler, which may only call async-signal-safe functions such as write(2).
int signalSockets[2] = {-1, -1};
} // namespace

TerminationSignals::TerminationSignals(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalSockets) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(signalSockets[1], &byte, sizeof byte) > 0) {
            Q_EMIT terminationRequested();
        }
    });

    struct sigaction action = {};
    action.sa_handler = &TerminationSignals::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    if (signalSockets[0] >= 0) {
        ::close(signalSockets[0]);
        ::close(signalSockets[1]);
        signalSockets[0] = signalSockets[1] = -1;
    }
}

void TerminationSignals::handle(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalSockets[0], &byte, sizeof byte);
}
