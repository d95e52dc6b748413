#include "widgets/graph/GraphTimeline.h"

#include <QtMath>

#include <algorithm>

void GraphTimeline::setFrom(qint64 from)
{
    m_from = from;
}

void GraphTimeline::setWindow(qint64 window)
{
    m_window = qBound(kMinWindowMs, window, kMaxWindowMs);
}

void GraphTimeline::setDataRange(qint64 first, qint64 last)
{
    m_first = std::min(first, last);
    m_last = std::max(first, last);
    m_hasData = true;
}

void GraphTimeline::clearDataRange()
{
    m_hasData = false;
    m_first = m_last = 0;
}

void GraphTimeline::setLive(bool live)
{
    m_live = live;
    m_following = live;
    follow();
}

bool GraphTimeline::follow()
{
    if (!m_following || !m_hasData)
        return false;
    const qint64 from = m_last - m_window;
    if (from == m_from)
        return false;
    m_from = from;
    return true;
}

void GraphTimeline::zoomAt(qint64 t, double factor)
{
    if (!(factor > 0))
        return;
    const qint64 old = m_window;
    setWindow(qRound64(double(old) * factor));
    if (m_following && m_hasData) {
        m_from = m_last - m_window;
        return;
    }
    // t stays where it was: its fraction of the span is kept.
    const double at = old > 0 ? double(t - m_from) / double(old) : 0.5;
    m_from = t - qRound64(at * double(m_window));
    clampFrom();
}

void GraphTimeline::panBy(qint64 ms)
{
    m_from += ms;
    clampFrom();
    // Back at the newest data while live: follow it again.
    m_following = m_live && m_hasData && to() >= m_last;
    follow();
}

void GraphTimeline::autoZoom()
{
    m_following = false;
    if (!m_hasData)
        return;
    setWindow(m_last - m_first);
    m_from = m_first;
}

void GraphTimeline::reset()
{
    setWindow(kDefaultWindowMs);
    if (m_live) {
        m_following = true;
        follow();
        if (!m_hasData)
            m_from = 0;
        return;
    }
    m_following = false;
    m_from = m_hasData ? m_first : 0;
}

void GraphTimeline::showStart()
{
    m_following = false;
    m_from = m_hasData ? m_first : 0;
}

void GraphTimeline::showEnd()
{
    if (!m_hasData)
        return;
    m_from = m_last - m_window;
    m_following = m_live;
}

void GraphTimeline::keepInData()
{
    if (!m_hasData)
        return;
    if (to() <= m_first || m_from >= m_last)
        m_from = m_first;
}

// At least a tenth of the span stays over the data, so the user cannot lose it.
void GraphTimeline::clampFrom()
{
    if (!m_hasData)
        return;
    const qint64 keep = m_window / 10;
    const qint64 lowest = m_first - m_window + keep;
    const qint64 highest = m_last - keep;
    m_from = highest < lowest ? m_first : qBound(lowest, m_from, highest);
}
