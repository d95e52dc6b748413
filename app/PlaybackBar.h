#pragma once

#include <QTimer>
#include <QToolBar>

class QAction;
class QDoubleSpinBox;
class QSlider;
class QTimeEdit;

// "Telemetry playback controls": position slider, time field, rate box, play/pause and stop, and the
// 40 ms timer that moves the playback time by 40 ms × rate.
class PlaybackBar : public QToolBar
{
    Q_OBJECT
public:
    static constexpr int kTickMs = 40;
    static constexpr double kMinRate = 0.1;
    static constexpr double kMaxRate = 50.0;

    explicit PlaybackBar(QWidget *parent = nullptr);

    void setLength(qint64 lengthMs);
    qint64 length() const { return m_lengthMs; }
    qint64 position() const { return m_positionMs; }
    double rate() const;
    bool isPlaying() const { return m_timer.isActive(); }
    QTimer *timer() { return &m_timer; }

public slots:
    void playPause();
    void stop();
    void increaseRate();
    void decreaseRate();
    void resetRate();
    void nextStep();
    void previousStep();
    void setPosition(qint64 ms);
    // One timer tick: advance by 40 ms × rate while inside the recording; at the end playback stops.
    void tick();

signals:
    void positionChanged(qint64 ms);

private:
    void showPosition();

    QTimer m_timer;
    QSlider *m_slider;
    QTimeEdit *m_time;
    QDoubleSpinBox *m_rate;
    QAction *m_play;
    qint64 m_lengthMs = 0;
    qint64 m_positionMs = 0;
};
