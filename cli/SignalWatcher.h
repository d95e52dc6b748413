#pragma once

#include <QObject>

#include <functional>

// Turns SIGINT and SIGTERM into a call on the event loop, so a recording can be written out cleanly.
namespace SignalWatcher {
// Calls handler (on context's thread) when the process is asked to stop; replaces an earlier handler.
void onInterrupt(QObject *context, std::function<void()> handler);
} // namespace SignalWatcher
