#include "widgets/graph/GraphTimeline.h"

#include <QtMath>

#include <algorithm>

qint64 GraphTimeline::span() const
{
    if (!m_hasData)
        return m_window;
    return std::max(kMinWindowMs, std::min(m_window, m_last - m_first));
}

void GraphTimeline::setFrom(qint64 from)
{
    m_from = from;
    clampFrom();
}

void GraphTimeline::setWindow(qint64 window)
{
    m_window = qBound(kMinWindowMs, window, kMaxWindowMs);
    clampFrom();
}

void GraphTimeline::setDataRange(qint64 first, qint64 last)
{
    m_first = std::min(first, last);
    m_last = std::max(first, last);
    m_hasData = true;
    clampFrom();
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
    if (!m_hasData || !(m_following || m_fitting))
        return false;
    const qint64 oldFrom = m_from;
    const qint64 oldSpan = span();
    if (m_fitting)
        m_window = qBound(kMinWindowMs, m_last - m_first, kMaxWindowMs);
    m_from = m_fitting ? m_first : m_last - span();
    clampFrom();
    return m_from != oldFrom || span() != oldSpan;
}

void GraphTimeline::zoomAt(qint64 t, double factor)
{
    if (!(factor > 0))
        return;
    m_fitting = false;
    // Zooming starts from what is on screen, so zooming into a short recording answers at once.
    const qint64 old = span();
    m_window = qBound(kMinWindowMs, qRound64(double(old) * factor), kMaxWindowMs);
    if (m_following && m_hasData) {
        m_from = m_last - span();
        clampFrom();
        return;
    }
    // t stays where it was: its fraction of the span is kept.
    const double at = old > 0 ? double(t - m_from) / double(old) : 0.5;
    m_from = t - qRound64(at * double(span()));
    clampFrom();
}

void GraphTimeline::panBy(qint64 ms)
{
    m_fitting = false;
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

void GraphTimeline::setFitting(bool fit)
{
    m_fitting = fit;
    if (fit)
        follow();
}

void GraphTimeline::reset()
{
    m_fitting = false;
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
    m_from = m_last - span();
    clampFrom();
    m_following = m_live;
}

void GraphTimeline::clampFrom()
{
    if (!m_hasData)
        return;
    const qint64 highest = m_last - span();
    m_from = highest < m_first ? m_first : qBound(m_first, m_from, highest);
}
