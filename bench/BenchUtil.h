#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

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

// Timings of repeated work: the median of wall and CPU time, and the best.
inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The machine may be shared: the thread's own CPU time shows the work without the waiting.
inline double cpuMs()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

struct Timing
{
    std::vector<double> wall;
    std::vector<double> cpu;

    void add(const std::function<void()> &work)
    {
        const double c = cpuMs();
        wall.push_back(msOf(work));
        cpu.push_back(cpuMs() - c);
    }
    void print(const char *what) const
    {
        std::printf("  %-48s %7.2f ms  (CPU %6.2f ms, best %6.2f ms)\n", what, median(wall), median(cpu),
                    *std::min_element(cpu.begin(), cpu.end()));
    }
};
} // namespace BenchUtil
