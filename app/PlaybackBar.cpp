#include "app/PlaybackBar.h"

#include <QAction>
#include <QDoubleSpinBox>
#include <QSlider>
#include <QTimeEdit>

#include <algorithm>
#include <array>

namespace {
// Rate steps a pilot can reason about: halves and doubles around real time.
constexpr std::array<double, 11> kRates = {0.1, 0.2, 0.5, 1, 2, 3, 5, 10, 20, 30, 50};
// "Next Step" and "Previous Step" move by one second, the slider's own resolution.
constexpr qint64 kStepMs = 1000;
} // namespace

PlaybackBar::PlaybackBar(QWidget *parent) : QToolBar(tr("Telemetry playback controls"), parent)
{
    setObjectName(QStringLiteral("Playback-Toolbar"));
    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setToolTip(tr("Position in time"));
    m_slider->setStatusTip(tr("Position in time"));
    m_slider->setMinimumWidth(200);
    m_slider->setRange(0, 0);
    m_time = new QTimeEdit(this);
    m_time->setDisplayFormat(QStringLiteral("hh:mm:ss"));
    m_time->setReadOnly(false);
    m_rate = new QDoubleSpinBox(this);
    m_rate->setDecimals(1);
    m_rate->setRange(kMinRate, kMaxRate);
    m_rate->setSingleStep(0.1);
    m_rate->setValue(1.0);
    m_rate->setSuffix(QStringLiteral("x"));
    m_play =
        addAction(QIcon(QStringLiteral(":/Icons/Program/Resources/play.png")), tr("Start/pause playback"));
    QAction *stopAction =
        addAction(QIcon(QStringLiteral(":/Icons/Program/Resources/stop.png")), tr("Stop playback"));
    addWidget(m_slider);
    addWidget(m_time);
    addWidget(m_rate);
    connect(m_play, &QAction::triggered, this, &PlaybackBar::playPause);
    connect(stopAction, &QAction::triggered, this, &PlaybackBar::stop);
    connect(m_slider, &QSlider::sliderMoved, this, [this](int s) { setPosition(qint64(s) * 1000); });
    connect(m_time, &QTimeEdit::timeChanged, this, [this](const QTime &t) {
        const qint64 ms = qint64(t.msecsSinceStartOfDay());
        if (ms / 1000 != m_positionMs / 1000)
            setPosition(ms);
    });
    m_timer.setInterval(kTickMs);
    m_timer.setTimerType(Qt::PreciseTimer);
}

void PlaybackBar::setLength(qint64 lengthMs)
{
    m_lengthMs = std::max<qint64>(0, lengthMs);
    m_slider->setRange(0, int(m_lengthMs / 1000));
    stop();
}

double PlaybackBar::rate() const
{
    return m_rate->value();
}

void PlaybackBar::playPause()
{
    if (m_timer.isActive()) {
        m_timer.stop();
        m_play->setIcon(QIcon(QStringLiteral(":/Icons/Program/Resources/play.png")));
    } else if (m_lengthMs > 0) {
        if (m_positionMs >= m_lengthMs)
            setPosition(0);
        m_timer.start();
        m_play->setIcon(QIcon(QStringLiteral(":/Icons/Program/Resources/pause.png")));
    }
}

void PlaybackBar::stop()
{
    m_timer.stop();
    m_play->setIcon(QIcon(QStringLiteral(":/Icons/Program/Resources/play.png")));
    setPosition(0);
}

void PlaybackBar::increaseRate()
{
    const auto it = std::upper_bound(kRates.begin(), kRates.end(), m_rate->value() + 1e-9);
    if (it != kRates.end())
        m_rate->setValue(*it);
}

void PlaybackBar::decreaseRate()
{
    const auto it = std::lower_bound(kRates.begin(), kRates.end(), m_rate->value() - 1e-9);
    if (it != kRates.begin())
        m_rate->setValue(*(it - 1));
}

void PlaybackBar::resetRate()
{
    m_rate->setValue(1.0);
}

void PlaybackBar::nextStep()
{
    setPosition(std::min(m_lengthMs, m_positionMs + kStepMs));
}

void PlaybackBar::previousStep()
{
    setPosition(std::max<qint64>(0, m_positionMs - kStepMs));
}

void PlaybackBar::setPosition(qint64 ms)
{
    m_positionMs = std::clamp<qint64>(ms, 0, m_lengthMs);
    showPosition();
    emit positionChanged(m_positionMs);
}

void PlaybackBar::showPosition()
{
    const QSignalBlocker blockSlider(m_slider);
    const QSignalBlocker blockTime(m_time);
    m_slider->setValue(int(m_positionMs / 1000));
    m_time->setTime(QTime::fromMSecsSinceStartOfDay(int(m_positionMs % (24 * 3600 * 1000))));
}

void PlaybackBar::tick()
{
    const qint64 next = m_positionMs + qint64(kTickMs * m_rate->value());
    if (next < m_lengthMs) {
        setPosition(next);
    } else {
        // At the end the position stays on the last moment and playback stops.
        setPosition(m_lengthMs);
        m_timer.stop();
        m_play->setIcon(QIcon(QStringLiteral(":/Icons/Program/Resources/play.png")));
    }
}
