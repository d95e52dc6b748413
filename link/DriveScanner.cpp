#include "link/DriveScanner.h"

bool DriveScanner::tick()
{
    if (++m_ticks < kTicksPerScan)
        return false;
    m_ticks = 0;
    if (m_scan)
        m_scan();
    return true;
}
