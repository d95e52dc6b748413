#pragma once

#include <QtGlobal>

// The visible time span of a graph window (milliseconds, the store's time unit): where it starts, how
// long it is, and whether it follows the newest live data. While the store holds data the view never
// shows time before its first sample or after its last: it slides inside the recording, and a window
// longer than the recording shows the whole of it. No GUI.
class GraphTimeline
{
public:
    static constexpr qint64 kDefaultWindowMs = 30000;
    static constexpr qint64 kMinWindowMs = 100;
    static constexpr qint64 kMaxWindowMs = qint64(400) * 24 * 3600 * 1000;

    qint64 from() const { return m_from; }
    // The chosen span, kept for the layout even while a shorter recording shows less.
    qint64 window() const { return m_window; }
    // The span on screen: the chosen one, at most the recording's length (never under kMinWindowMs).
    qint64 span() const;
    qint64 to() const { return m_from + span(); }
    void setFrom(qint64 from);
    // Clamped to kMinWindowMs ... kMaxWindowMs.
    void setWindow(qint64 window);

    // The time range the store holds; the view is kept inside it.
    void setDataRange(qint64 first, qint64 last);
    void clearDataRange();
    bool hasData() const { return m_hasData; }
    qint64 dataFirst() const { return m_first; }
    qint64 dataLast() const { return m_last; }

    // While live the view follows the newest data until the user moves it away.
    void setLive(bool live);
    bool isLive() const { return m_live; }
    bool isFollowing() const { return m_following; }
    // Moves the view to the newest data when following, or keeps the whole recording in view when
    // fitting; true when it moved.
    bool follow();

    // factor > 1 widens the span; time t keeps its place on the screen (the newest data when following).
    void zoomAt(qint64 t, double factor);
    // Moves the view; moving away from the newest data stops following, moving back to it resumes.
    void panBy(qint64 ms);
    // The whole recording, once.
    void autoZoom();
    // The whole recording from now on, also as it grows while live, until the user zooms or pans.
    void setFitting(bool fit);
    bool isFitting() const { return m_fitting; }
    // The default span at the start of the recording, or at its end (following) while live.
    void reset();
    // A new recording: the same span at its start.
    void showStart();
    // The span ending at the newest data; follows it while live.
    void showEnd();
    // Brings the view back inside the recording.
    void keepInData() { clampFrom(); }

private:
    void clampFrom();

    qint64 m_from = 0;
    qint64 m_window = kDefaultWindowMs;
    qint64 m_first = 0;
    qint64 m_last = 0;
    bool m_hasData = false;
    bool m_live = false;
    bool m_following = false;
    bool m_fitting = false;
};
