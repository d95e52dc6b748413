#include "app/RecordingIndicator.h"

#include "app/RecordingController.h"
#include "telemetry/TelemetryFormat.h"

#include <QTimer>

RecordingIndicator::RecordingIndicator(RecordingController *recording, QWidget *parent)
    : QLabel(parent), m_recording(recording), m_clock(new QTimer(this))
{
    setObjectName(QStringLiteral("recordingStatus"));
    setStyleSheet(QStringLiteral("QLabel { color: #c00000; font-weight: bold; }"));
    hide();
    m_clock->setInterval(500);
    connect(m_clock, &QTimer::timeout, this, &RecordingIndicator::refresh);
    connect(recording, &RecordingController::stateChanged, this, &RecordingIndicator::stateChanged);
}

void RecordingIndicator::stateChanged()
{
    const bool on = m_recording->isRecording();
    setVisible(on);
    if (on)
        m_clock->start();
    else
        m_clock->stop();
    refresh();
}

void RecordingIndicator::refresh()
{
    if (!m_recording->isRecording())
        return;
    const bool paused = m_recording->state() == RecordingController::Paused;
    setText(
        tr("%1 %2  %3  %4 samples")
            .arg(QChar(0x25CF), paused ? tr("PAUSED") : tr("REC"), formatDuration(m_recording->elapsedMs()))
            .arg(m_recording->sampleCount()));
}

QString RecordingIndicator::formatDuration(qint64 ms)
{
    return TelemetryFormat::duration(ms, TelemetryFormat::DurationStyle::Clock);
}
