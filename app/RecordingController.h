#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>

class ModelLibrary;
class Prompter;
class QWidget;
class TelemetryData;
class TelemetryDataPackage;
class TelemetryDecoder;

// The real-time recording: start, pause and stop recording live telemetry into the store, and keep what
// was recorded. A recording is never dropped without the pilot's say: it is stored under the active
// model when it stops, before anything replaces it, when the window closes and when the adapter is
// pulled; with no model active it goes to a file in the recordings folder.
class RecordingController : public QObject
{
    Q_OBJECT
public:
    enum State
    {
        Idle,
        Recording,
        Paused
    };
    Q_ENUM(State)

    RecordingController(TelemetryData *store, TelemetryDecoder *decoder, ModelLibrary *library,
                        const QString &recordingsFolder, QWidget *dialogParent, QObject *parent = nullptr);

    void setActiveModel(int modelId) { m_modelId = modelId; }
    int activeModel() const { return m_modelId; }
    // Who asks the user (the studio's prompter; tests hand in a scripted one).
    void setPrompter(Prompter *prompter) { m_prompter = prompter; }

    State state() const { return m_state; }
    bool isRecording() const { return m_state != Idle; }
    // Time spent recording, pauses left out.
    qint64 elapsedMs() const;
    qint64 sampleCount() const;
    // Where the last recording went, in words ("model X", or the file), and its log id (-1 for a file).
    QString lastStoredWhere() const { return m_lastWhere; }
    int lastStoredLogId() const { return m_lastLogId; }
    QString lastError() const { return m_lastError; }

    // Before something replaces the store's package (what: "open flight.log"): a running recording is
    // stopped and stored once the user agrees. False: leave everything as it is.
    bool settleBeforeReplacing(const QString &what);
    // Closing the program: stored without a question; false only when it could not be stored and the
    // user chose to keep the program open.
    bool settleBeforeClosing();
    // The adapter went away: a running recording ends and is stored. The text for the pilot says what
    // happened and where the recording is; empty when nothing was recording.
    QString adapterLost();

public slots:
    void start();
    void pause();
    void stop();
    // Ctrl+Shift+R: start when idle, stop otherwise.
    void toggle();

signals:
    void stateChanged(RecordingController::State state);
    void logStored(int logId);
    // Where a recording went, for the status bar.
    void stored(const QString &where);

private:
    // Ends the recording and stores it; false with lastError() when it could not be kept.
    bool finish();
    bool store(TelemetryDataPackage package);
    void setState(State state);

    TelemetryData *m_store;
    TelemetryDecoder *m_decoder;
    ModelLibrary *m_library;
    QString m_recordingsFolder;
    QWidget *m_dialogParent;
    Prompter *m_prompter = nullptr;
    int m_modelId = -1;
    State m_state = Idle;
    QElapsedTimer m_running;
    qint64 m_elapsedBefore = 0;
    QString m_lastWhere;
    QString m_lastError;
    int m_lastLogId = -1;
};
