#pragma once

#include "link/LinkClock.h"

// Which line speed and protocol the port runs in. The special readers' flags pick their own mode; in the
// others, a port that delivers no good frame for a while is tried at the next speed, 0 -> 2 -> 3 -> 0.
// Not locked: the transport calls it under its own mutex.
class PortSpeedSearch
{
public:
    enum Mode
    {
        LxBus125k = 0,
        LxBus250k = 1,
        UpdateReader = 2,
        TerminalBoxReader = 3,
        Unchanged = 4,
        GpsLoggerReader = 5,
    };
    // Without a good frame for this long the next line speed is tried (the update reader gets less).
    static constexpr qint64 kSearchMs = 3000;
    static constexpr qint64 kSearchUpdateMs = 1500;

    explicit PortSpeedSearch(const LinkClock *clock);

    int mode() const { return m_mode; }
    // 0 in mode 4, which keeps whatever speed the port has.
    static int baudForMode(int mode);
    // The mode after `mode` in the search; 250000 baud without the update reader (mode 1) is entered
    // only from outside, so the walk skips it.
    static int nextSearchMode(int mode);

    void setUpdateMode(bool enabled) { m_updateMode = enabled; }
    void setTerminalBoxMode(bool enabled) { m_terminalBoxMode = enabled; }
    void setGpsLoggerMode(bool enabled) { m_gpsLoggerMode = enabled; }
    bool updateMode() const { return m_updateMode; }
    bool terminalBoxMode() const { return m_terminalBoxMode; }
    bool gpsLoggerMode() const { return m_gpsLoggerMode; }

    // Starts the wait for a good frame anew: a good frame came, the port was (re)opened or reconfigured.
    void restart();
    // Puts the search into a mode from outside; false when it was already there. Restarts the wait.
    bool select(int mode);
    // Moves on to the next mode of the search without touching the wait (the error rule).
    void advance();
    // One tick with the port open. True when the mode changed and the port settings must be re-applied.
    bool tick();

private:
    const LinkClock *m_clock;
    int m_mode = LxBus125k;
    bool m_updateMode = false;
    bool m_terminalBoxMode = false;
    bool m_gpsLoggerMode = false;
    qint64 m_lastGoodFrame = 0;
};
