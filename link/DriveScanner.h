#pragma once

#include <functional>
#include <utility>

// Runs the transmitter drive scan on every 25th tick of the link's polling timer: often enough to
// notice a transmitter plugged in, rarely enough not to load the serial thread. The scan itself is
// plugged in by the part that knows transmitter drives; without one the ticks are only counted.
// Not locked: the transport calls it under its own mutex.
class DriveScanner
{
public:
    static constexpr int kTicksPerScan = 25;
    using Scan = std::function<void()>;

    void setScan(Scan scan) { m_scan = std::move(scan); }
    // One tick of the polling timer. True when this tick was a scan tick.
    bool tick();

private:
    int m_ticks = 0;
    Scan m_scan;
};
