#include "signalpipe.h"

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace linkhop::server {

namespace {

// A signal handler can reach nothing but globals; these two descriptors are all it touches.
int g_pipe[2] = {-1, -1};

extern "C" void OnSignal(int number)
{
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}

void Install(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(number, &action, nullptr);
}

} // namespace

SignalPipe::SignalPipe(QObject* parent) : QObject(parent)
{
    if (g_pipe[0] < 0 && ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalPipe::ReadPipe);
    Install(SIGINT, OnSignal);
    Install(SIGTERM, OnSignal);
}

SignalPipe::~SignalPipe()
{
    Install(SIGINT, SIG_DFL);
    Install(SIGTERM, SIG_DFL);
}

void SignalPipe::ReadPipe()
{
    unsigned char byte = 0;
    while (::read(g_pipe[0], &byte, 1) == 1)
        Q_EMIT Received(int(byte));
}

} // namespace linkhop::server
