#include "link/LinkProgress.h"

bool LinkProgress::takeChange(int *percent)
{
    const int now = m_value.load();
    if (now == m_reported)
        return false;
    m_reported = now;
    *percent = now;
    return true;
}
