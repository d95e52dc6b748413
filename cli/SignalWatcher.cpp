#include "cli/SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    // Only async-signal-safe work here: wake the event loop through the pipe.
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[1], &c, 1);
}
} // namespace

void SignalWatcher::onInterrupt(QObject *context, std::function<void()> handler)
{
    if (g_pipe[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_pipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context, [handler] {
        char c;
        [[maybe_unused]] const ssize_t n = ::read(g_pipe[0], &c, 1);
        handler();
    });
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
}
