#pragma once

#include <QObject>

class ModelLibrary;
class QWidget;
class TelemetryData;
class TelemetryDecoder;

// The real-time recording controls: start, pause and stop recording live telemetry into the store, and
// on stop offer to keep the recording as a log under the active model.
class RecordingController : public QObject
{
    Q_OBJECT
public:
    RecordingController(TelemetryData *store, TelemetryDecoder *decoder, ModelLibrary *library,
                        QWidget *dialogParent, QObject *parent = nullptr);

    void setActiveModel(int modelId) { m_modelId = modelId; }
    bool isRecording() const;

public slots:
    void start();
    void pause();
    void stop();

signals:
    void logStored(int logId);

private:
    TelemetryData *m_store;
    TelemetryDecoder *m_decoder;
    ModelLibrary *m_library;
    QWidget *m_dialogParent;
    int m_modelId = -1;
    bool m_paused = false;
};
