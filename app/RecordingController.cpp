#include "app/RecordingController.h"

#include "database/ModelLibrary.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"

#include <QDateTime>
#include <QMessageBox>

RecordingController::RecordingController(TelemetryData *store, TelemetryDecoder *decoder, ModelLibrary *library,
                                         QWidget *dialogParent, QObject *parent)
    : QObject(parent), m_store(store), m_decoder(decoder), m_library(library), m_dialogParent(dialogParent)
{
}

bool RecordingController::isRecording() const
{
    return m_store->isLogging();
}

void RecordingController::start()
{
    if (m_store->isLogging())
        return;
    if (!m_paused) {
        // A new recording keeps what the bus has described but none of the earlier samples.
        m_store->removeDataAfterTimestamp(-1);
        m_decoder->setSessionStart(QDateTime::currentMSecsSinceEpoch());
    }
    m_paused = false;
    m_store->setLogging(true);
}

void RecordingController::pause()
{
    if (!m_store->isLogging())
        return;
    m_decoder->flush();
    m_paused = true;
    m_store->setLogging(false);
}

void RecordingController::stop()
{
    if (!m_store->isLogging() && !m_paused)
        return;
    m_decoder->flush();
    m_paused = false;
    m_store->setLogging(false);
    TelemetryDataPackage package = m_store->package();
    if (package.sampleCount() == 0 && package.messages().isEmpty())
        return;
    if (m_modelId < 0 || !m_library) {
        QMessageBox::information(m_dialogParent, tr("Recording"),
                                 tr("No model is active, so the recording was not stored. Use \"Export log "
                                    "file\" to keep it as a file."));
        return;
    }
    const QDateTime now = QDateTime::currentDateTime();
    if (QMessageBox::question(m_dialogParent, tr("Recording"),
                              tr("Keep the recording (%1 samples) as a log of the active model?")
                                  .arg(package.sampleCount())) != QMessageBox::Yes)
        return;
    package.setName(now.toString(QStringLiteral("hh-mm-ss")));
    package.setRecordingDate(now);
    int folder = -1;
    const int id = m_library->folderForPath(m_modelId, now.toString(QStringLiteral("yyyy/MM/dd")), &folder)
                       ? m_library->storeLog(package, m_modelId, folder)
                       : -1;
    if (id < 0) {
        QMessageBox::critical(m_dialogParent, tr("Error"),
                              tr("<b>Unable to store the recording:</b><ul><li>%1</li></ul>").arg(m_library->lastError()));
        return;
    }
    emit logStored(id);
}
