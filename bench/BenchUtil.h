#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <functional>

namespace BenchUtil {
// Reads a "VmXXX:   1234 kB" field of /proc/self/status, in bytes.
inline qint64 procStatusBytes(const char *field)
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray key = QByteArray(field) + ':';
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').value(0).toLongLong() * 1024;
    }
    return -1;
}

// Resets the peak resident size so the next peak is the next operation's own.
inline bool resetPeakRss()
{
    QFile f(QStringLiteral("/proc/self/clear_refs"));
    return f.open(QIODevice::WriteOnly) && f.write("5") == 1;
}

inline double msOf(const std::function<void()> &work)
{
    QElapsedTimer t;
    t.start();
    work();
    return double(t.nsecsElapsed()) / 1e6;
}

inline double mbPerSecond(qint64 bytes, double ms)
{
    return ms > 0 ? double(bytes) / 1e6 / (ms / 1000.0) : 0.0;
}
} // namespace BenchUtil
