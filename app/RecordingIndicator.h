#pragma once

#include <QLabel>

class QTimer;
class RecordingController;

// The recording in the status bar: a red mark, REC or PAUSED, the time recorded and the samples count;
// hidden while nothing is recorded.
class RecordingIndicator : public QLabel
{
    Q_OBJECT
public:
    RecordingIndicator(RecordingController *recording, QWidget *parent = nullptr);

    // "hh:mm:ss" for a duration.
    static QString formatDuration(qint64 ms);

private:
    void stateChanged();
    void refresh();

    RecordingController *m_recording;
    QTimer *m_clock;
};
