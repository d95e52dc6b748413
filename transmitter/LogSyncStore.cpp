#include "transmitter/LogSyncStore.h"

#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "transmitter/SyncWorker.h"
#include "transmitter/TransmitterLogsModel.h"

#include <QDebug>

LogSyncStore::LogSyncStore(TransmitterLogsModel *logs, ModelLibrary *library, QObject *parent)
    : QObject(parent), m_logs(logs), m_library(library)
{
}

void LogSyncStore::attach(SyncWorker *worker, Qt::ConnectionType type)
{
    m_worker = worker;
    connect(worker, &SyncWorker::requestGetLogsModelData, this, &LogSyncStore::getLogsModelData, type);
    connect(worker, &SyncWorker::requestSetLogsModelData, this, &LogSyncStore::setLogsModelData, type);
    connect(worker, &SyncWorker::requestGetLogsModelFileInfo, this, &LogSyncStore::getLogsModelFileInfo,
            type);
    connect(worker, &SyncWorker::requestGetLogsModelDateTime, this, &LogSyncStore::getLogsModelDateTime,
            type);
    connect(worker, &SyncWorker::requestSubmitNewModel, this, &LogSyncStore::submitNewModel, type);
    connect(worker, &SyncWorker::logCreated, this, &LogSyncStore::onLogCreated, type);
}

void LogSyncStore::getLogsModelData(QVariant &value, const QModelIndex &index, int role)
{
    value = m_logs->data(index, role);
}

void LogSyncStore::setLogsModelData(bool &ok, const QModelIndex &index, const QVariant &value, int role)
{
    ok = m_logs->setData(index, value, role);
}

void LogSyncStore::getLogsModelFileInfo(QFileInfo &info, const QModelIndex &index)
{
    info = m_logs->isLog(index) ? m_logs->fileInfo(index) : QFileInfo();
}

void LogSyncStore::getLogsModelDateTime(QDateTime &dateTime, const QModelIndex &index)
{
    dateTime = m_logs->logDateTime(index);
}

void LogSyncStore::submitNewModel(bool &ok, ModelData &model)
{
    bool found = false;
    const int existing = m_library->findModel(model.name, &found);
    ok = found;
    if (!found)
        return;
    if (existing >= 0) {
        model.id = existing;
        return;
    }
    if (m_dryRun) {
        // Made-up ids below -1, one per name, so two logs of a new model still name one model.
        const QString key = model.name.toLower();
        if (!m_dryModels.contains(key))
            m_dryModels.insert(key, m_nextDryId--);
        model.id = m_dryModels.value(key);
        model.dateCreated = QDateTime::currentDateTime();
        return;
    }
    if (model.layout.isEmpty())
        model.layout = DefaultLayout::document();
    if (model.screenshot.isNull())
        model.screenshot = QByteArray("");
    if (model.data.isNull())
        model.data = QByteArray("");
    const int id = m_library->database()->insertModel(model);
    ok = id >= 0;
    if (!ok)
        return;
    model.id = id;
    // Tells the worker the model is new (the record it sent had no date).
    model.dateCreated = QDateTime::currentDateTime();
    emit modelCreated(id);
}

bool LogSyncStore::samePresent(int logId, const SyncWorker::PreparedLog &log)
{
    QByteArray stored;
    if (!m_library->database()->logDataCompressed(logId, &stored))
        return false;
    if (stored == log.blob)
        return true;
    // Another compressor (or thread count) may have packed the same bytes differently.
    qint64 size = -1;
    QString error;
    if (!BlobCodec::readHeader(stored, &size, &error) || size != log.size)
        return false;
    QByteArray inflated;
    return BlobCodec::uncompress(stored, &inflated, &error) && inflated == log.bytes;
}

void LogSyncStore::onLogCreated(int modelId, const TelemetryDataPackage &log)
{
    SyncWorker::PreparedLog own;
    SyncWorker *worker = m_worker.data();
    const SyncWorker::PreparedLog *prepared = worker ? &worker->currentLog() : nullptr;
    if (!prepared) {
        // Called without a worker: make here what the worker would have brought.
        own.bytes = LogFileWriter::write(log);
        own.blob = BlobCodec::compress(own.bytes);
        own.size = own.bytes.size();
        own.dateTime = log.recordingDate();
        own.folderPath = own.dateTime.date().toString(QStringLiteral("yyyy/MM/dd"));
        own.fileName = own.dateTime.time().toString(QStringLiteral("hh-mm-ss")) + QStringLiteral(".log");
        own.lengthms = ModelLibrary::lengthOf(log);
        own.alarms = log.alarmCount();
        prepared = &own;
    }
    const auto answer = [worker](SyncWorker::StoreResult result, int id, const QString &error) {
        if (worker)
            worker->setStoreResult(result, id, error);
    };
    DatabaseManager *db = m_library->database();
    if (m_dryRun) {
        if (modelId < -1)
            return answer(SyncWorker::Stored, -1, QString());
        // The folders are looked up as the real run would make them, then the lookup is undone.
        if (!db->beginTransaction())
            return answer(SyncWorker::FolderFailed, -1, db->lastError());
        int folderId = -1;
        bool ok = m_library->folderForPath(modelId, prepared->folderPath, &folderId);
        const int existing = ok ? m_library->findLog(modelId, folderId, prepared->fileName, &ok) : -1;
        const bool same = existing >= 0 && samePresent(existing, *prepared);
        db->rollbackTransaction();
        if (!ok)
            return answer(SyncWorker::FolderFailed, -1, m_library->lastError());
        return answer(same ? SyncWorker::AlreadyPresent : SyncWorker::Stored, existing, QString());
    }

    // One transaction for the folders, the log and its sensor rows: one flush to the disk per log, and
    // nothing half made when a step fails.
    if (!db->beginTransaction())
        return answer(SyncWorker::SaveFailed, -1, db->lastError());
    const auto failed = [&](SyncWorker::StoreResult result, const QString &error) {
        db->rollbackTransaction();
        answer(result, -1, error);
    };
    int folderId = -1;
    if (!m_library->folderForPath(modelId, prepared->folderPath, &folderId))
        return failed(SyncWorker::FolderFailed, m_library->lastError());
    bool ok = false;
    const int existing = m_library->findLog(modelId, folderId, prepared->fileName, &ok);
    if (!ok)
        return failed(SyncWorker::SaveFailed, m_library->lastError());
    if (existing >= 0 && samePresent(existing, *prepared)) {
        db->rollbackTransaction();
        return answer(SyncWorker::AlreadyPresent, existing, QString());
    }
    const int id = m_library->storeCompressedLog(prepared->blob, prepared->dateTime, prepared->lengthms,
                                                 prepared->alarms, modelId, folderId, prepared->fileName);
    if (id < 0)
        return failed(SyncWorker::SaveFailed, m_library->lastError());
    // The sensor rows the log names, as reading it here would have added them.
    QVector<SensorRow> rows;
    for (const TelemetrySensor &device : log.devices()) {
        SensorRow row;
        row.id = device.id();
        row.label = device.name();
        rows << row;
        for (const TelemetryVar &var : device.vars()) {
            SensorRow param;
            param.id = device.id();
            param.param = var.param();
            param.label = var.label();
            param.unit = var.unit();
            rows << param;
        }
    }
    db->insertDefaultSensors(rows);
    if (!db->commitTransaction())
        return failed(SyncWorker::SaveFailed, db->lastError());
    answer(SyncWorker::Stored, id, QString());
    emit logStored(id, modelId);
}
