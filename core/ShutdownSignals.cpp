#include "core/ShutdownSignals.h"

#include <QSocketNotifier>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#endif

namespace spinlane {

#ifdef Q_OS_UNIX
namespace {

constexpr int kSignals[] = {SIGTERM, SIGHUP, SIGINT};
int gSignalSockets[2] = {-1, -1}; // [0] written by the handler, [1] read by the notifier

extern "C" void writeSignalNumber(int signalNumber)
{
    const int savedErrno = errno;
    const char byte = char(signalNumber);
    [[maybe_unused]] const ssize_t ignored = ::write(gSignalSockets[0], &byte, 1);
    errno = savedErrno;
}

void handleSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : kSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

} // namespace

ShutdownSignals::ShutdownSignals(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, gSignalSockets) != 0)
        return;
    m_notifier = new QSocketNotifier(gSignalSockets[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ShutdownSignals::readSignals);
    handleSignals(writeSignalNumber);
}

ShutdownSignals::~ShutdownSignals()
{
    if (!m_notifier)
        return;
    handleSignals(SIG_DFL);
    delete m_notifier;
    for (int& socket : gSignalSockets) {
        ::close(socket);
        socket = -1;
    }
}

void ShutdownSignals::readSignals()
{
    char byte = 0;
    while (::read(gSignalSockets[1], &byte, 1) == 1)
        Q_EMIT received(int(byte));
}
#else
ShutdownSignals::ShutdownSignals(QObject* parent)
    : QObject(parent)
{
}
ShutdownSignals::~ShutdownSignals() = default;
void ShutdownSignals::readSignals() { }
#endif

} // namespace spinlane
