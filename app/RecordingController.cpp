#include "app/RecordingController.h"

#include "database/ModelLibrary.h"
#include "link/SerialLink.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"
#include "widgets/layout/Prompter.h"

#include <QDateTime>
#include <QDir>

RecordingController::RecordingController(TelemetryData *store, TelemetryDecoder *decoder,
                                         ModelLibrary *library, const QString &recordingsFolder,
                                         QWidget *dialogParent, QObject *parent)
    : QObject(parent), m_store(store), m_decoder(decoder), m_library(library),
      m_recordingsFolder(recordingsFolder), m_dialogParent(dialogParent)
{
}

qint64 RecordingController::elapsedMs() const
{
    return m_elapsedBefore + (m_state == Recording && m_running.isValid() ? m_running.elapsed() : 0);
}

qint64 RecordingController::sampleCount() const
{
    return m_state == Idle ? 0 : m_store->package().sampleCount();
}

void RecordingController::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    emit stateChanged(state);
}

void RecordingController::start()
{
    if (m_state == Recording)
        return;
    if (m_state == Idle) {
        // A recording starts from nothing: the log on screen goes (its file stays), so ask first.
        if (m_store->isShowingLog() && m_prompter &&
            m_prompter->question(m_dialogParent, tr("Recording"),
                                 tr("<b>Close the open log and record live telemetry?</b><br>The log stays "
                                    "where it is stored; open it again at any time."),
                                 QMessageBox::Yes | QMessageBox::Cancel,
                                 QMessageBox::Yes) != QMessageBox::Yes)
            return;
        m_store->beginRecording();
        // One millisecond back: a sample at offset 0 would read as a description line in the native log.
        m_decoder->setSessionStart(QDateTime::currentMSecsSinceEpoch() - 1);
        m_elapsedBefore = 0;
    }
    m_running.start();
    m_store->setLogging(true);
    setState(Recording);
}

void RecordingController::pause()
{
    if (m_state != Recording)
        return;
    m_decoder->flush();
    m_elapsedBefore += m_running.elapsed();
    m_running.invalidate();
    m_store->setLogging(false);
    setState(Paused);
}

void RecordingController::toggle()
{
    if (m_state == Idle)
        start();
    else
        stop();
}

void RecordingController::stop()
{
    if (m_state == Idle)
        return;
    if (!finish()) {
        m_prompter->error(
            m_dialogParent, tr("Error"),
            tr("<b>Unable to store the recording:</b><ul><li>%1</li></ul>").arg(m_lastError.toHtmlEscaped()));
        return;
    }
    if (m_lastLogId < 0 && !m_lastWhere.isEmpty())
        m_prompter->information(
            m_dialogParent, tr("Recording"),
            tr("No model is active, so the recording was saved %1.<br>Use \"Load log files...\" in the "
               "models window to keep it under a model.")
                .arg(m_lastWhere.toHtmlEscaped()));
}

bool RecordingController::finish()
{
    m_decoder->flush();
    if (m_state == Recording)
        m_elapsedBefore += m_running.elapsed();
    m_running.invalidate();
    m_store->setLogging(false);
    setState(Idle);
    m_lastWhere.clear();
    m_lastLogId = -1;
    TelemetryDataPackage package = m_store->package();
    // Devices that only described themselves sent nothing during the recording.
    QVector<TelemetrySensor> &devices = package.devices();
    devices.erase(std::remove_if(devices.begin(), devices.end(),
                                 [&package](const TelemetrySensor &d) {
                                     for (const TelemetryVar &v : d.vars()) {
                                         if (!v.values().isEmpty())
                                             return false;
                                     }
                                     for (const TelemetryMessage &m : package.messages()) {
                                         if (m.deviceId == d.id())
                                             return false;
                                     }
                                     return true;
                                 }),
                  devices.end());
    if (package.sampleCount() == 0 && package.messages().isEmpty())
        return true;
    return store(package);
}

bool RecordingController::store(TelemetryDataPackage package)
{
    const qint64 startMs = m_decoder->sessionStart();
    const QDateTime started =
        startMs > 0 ? QDateTime::fromMSecsSinceEpoch(startMs) : QDateTime::currentDateTime();
    package.setName(started.toString(QStringLiteral("hh-mm-ss")));
    package.setRecordingDate(started);
    QString modelError;
    if (m_modelId >= 0 && m_library) {
        const QString model = m_library->modelName(m_modelId);
        int folder = -1;
        const int id =
            m_library->folderForPath(m_modelId, started.toString(QStringLiteral("yyyy/MM/dd")), &folder)
                ? m_library->storeLog(package, m_modelId, folder)
                : -1;
        if (id >= 0) {
            m_store->forgetUndo(); // what is stored is what the undo would have to match
            m_lastLogId = id;
            m_lastWhere = tr("under model %1").arg(model);
            emit logStored(id);
            emit stored(m_lastWhere);
            return true;
        }
        modelError = m_library->lastError();
    }
    // No model, or the database refused it: a file keeps it until the pilot files it under a model.
    const QString path =
        QDir(m_recordingsFolder)
            .filePath(started.toString(QStringLiteral("yyyy-MM-dd hh-mm-ss")) + QStringLiteral(".log"));
    QString fileError;
    if (QDir().mkpath(m_recordingsFolder) && LogFileWriter::writeFile(package, path, &fileError)) {
        m_lastWhere = tr("in %1").arg(QDir::toNativeSeparators(path));
        if (!modelError.isEmpty())
            m_lastWhere += tr(" (the database refused it: %1)").arg(modelError);
        emit stored(m_lastWhere);
        return true;
    }
    if (fileError.isEmpty())
        fileError = tr("%1: cannot create the folder").arg(QDir::toNativeSeparators(m_recordingsFolder));
    m_lastError = modelError.isEmpty() ? fileError : modelError + QStringLiteral("; ") + fileError;
    return false;
}

bool RecordingController::settleBeforeReplacing(const QString &what)
{
    if (m_state == Idle)
        return true;
    const QString model = m_library ? m_library->modelName(m_modelId) : QString();
    const QString where = model.isEmpty() ? tr("in the recordings folder") : tr("under model %1").arg(model);
    if (m_prompter->question(
            m_dialogParent, tr("Recording"),
            tr("<b>A recording is running (%1 samples).</b><br>Stop it and store it %2 before you %3?")
                .arg(sampleCount())
                .arg(where.toHtmlEscaped(), what.toHtmlEscaped()),
            QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Yes) != QMessageBox::Yes)
        return false;
    if (finish())
        return true;
    m_prompter->error(
        m_dialogParent, tr("Error"),
        tr("<b>Unable to store the recording:</b><ul><li>%1</li></ul>").arg(m_lastError.toHtmlEscaped()));
    return false;
}

bool RecordingController::settleBeforeClosing()
{
    if (m_state == Idle || finish())
        return true;
    return m_prompter->question(
               m_dialogParent, tr("Error while closing"),
               tr("<b>Unable to store the recording:</b><ul><li>%1</li></ul>Quit anyway and lose it?")
                   .arg(m_lastError.toHtmlEscaped()),
               QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

QString RecordingController::adapterLost()
{
    if (m_state == Idle)
        return QString();
    const qint64 startMs = m_decoder->sessionStart();
    m_decoder->flush();
    const qint32 last = m_store->package().lastTimestamp();
    const QDateTime upTo = QDateTime::fromMSecsSinceEpoch(startMs + qMax<qint32>(0, last));
    if (!finish())
        return tr("The USB adapter was disconnected and the recording could not be stored: %1")
            .arg(m_lastError);
    return SerialLink::adapterLostText(upTo, m_lastWhere);
}
