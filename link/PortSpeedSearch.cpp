#include "link/PortSpeedSearch.h"

PortSpeedSearch::PortSpeedSearch(const LinkClock *clock) : m_clock(clock)
{
    m_lastGoodFrame = m_clock->elapsedMs();
}

int PortSpeedSearch::baudForMode(int mode)
{
    switch (mode) {
    case LxBus125k:
        return 125000;
    case LxBus250k:
    case UpdateReader:
        return 250000;
    case TerminalBoxReader:
    case GpsLoggerReader:
        return 38400;
    default:
        return 0;
    }
}

int PortSpeedSearch::nextSearchMode(int mode)
{
    const int next = (mode + 1) % 4;
    return next == LxBus250k ? UpdateReader : next;
}

void PortSpeedSearch::restart()
{
    m_lastGoodFrame = m_clock->elapsedMs();
}

bool PortSpeedSearch::select(int mode)
{
    const bool changed = m_mode != mode;
    m_mode = mode;
    restart();
    return changed;
}

void PortSpeedSearch::advance()
{
    m_mode = nextSearchMode(m_mode);
}

bool PortSpeedSearch::tick()
{
    const int before = m_mode;
    if (m_gpsLoggerMode) {
        m_mode = GpsLoggerReader;
    } else if (m_updateMode) {
        m_mode = UpdateReader;
    } else if (m_terminalBoxMode) {
        m_mode = TerminalBoxReader;
    } else if (m_mode == GpsLoggerReader) {
        // The GPS logger went away: back to the bus, with a fresh wait.
        m_mode = LxBus125k;
        restart();
    }
    // A reader's mode is held while its flag is set.
    const bool searching = m_mode == LxBus125k || m_mode == LxBus250k ||
                           (m_mode == UpdateReader && !m_updateMode) ||
                           (m_mode == TerminalBoxReader && !m_terminalBoxMode);
    const qint64 limit = m_mode == UpdateReader ? kSearchUpdateMs : kSearchMs;
    const qint64 now = m_clock->elapsedMs();
    if (searching && now - m_lastGoodFrame > limit) {
        advance();
        m_lastGoodFrame = now;
    }
    return m_mode != before;
}
