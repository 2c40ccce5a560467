#include "UnixSignalQuit.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

int s_pipe[2] = {-1, -1};
constexpr int s_Signals[] = {SIGINT, SIGTERM, SIGHUP};

void onSignal(int signalNumber)
{
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // A full pipe already holds a request; losing this one changes nothing.
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
    errno = saved;
}

} // namespace

UnixSignalQuit::UnixSignalQuit(QObject* parent)
    : QObject(parent)
{
    if (s_pipe[0] >= 0 || ::pipe2(s_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &UnixSignalQuit::readSignal);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int s : s_Signals)
        sigaction(s, &action, nullptr);
}

UnixSignalQuit::~UnixSignalQuit()
{
    if (!notifier)
        return;
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int s : s_Signals)
        sigaction(s, &action, nullptr);
    delete notifier;
    ::close(s_pipe[0]);
    ::close(s_pipe[1]);
    s_pipe[0] = s_pipe[1] = -1;
}

void UnixSignalQuit::readSignal()
{
    unsigned char byte = 0;
    int last = 0;
    while (::read(s_pipe[0], &byte, 1) == 1)
        last = byte;
    if (last != 0)
        emit quitRequested(last);
}
