#pragma once

#include "database/ModelData.h"
#include "telemetry/TelemetryDataPackage.h"
#include "transmitter/SyncWorker.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QModelIndex>
#include <QObject>
#include <QPointer>
#include <QVariant>

class ModelLibrary;
class TransmitterLogsModel;

// The interface-thread side of a synchronisation: answers the worker's requests from the logs model and
// the database. Each answer is short: the worker brings the log already read, measured and compressed.
class LogSyncStore : public QObject
{
    Q_OBJECT
public:
    LogSyncStore(TransmitterLogsModel *logs, ModelLibrary *library, QObject *parent = nullptr);

    // Connects every request of the worker to this store: Qt::BlockingQueuedConnection when the worker
    // runs on a thread of its own, Qt::DirectConnection when it runs on this one (command line, tests).
    void attach(SyncWorker *worker, Qt::ConnectionType type);

    // Nothing is written: new models get made-up ids below -1 and logs count as stored.
    void setDryRun(bool dryRun) { m_dryRun = dryRun; }
    bool isDryRun() const { return m_dryRun; }

public slots:
    void getLogsModelData(QVariant &value, const QModelIndex &index, int role);
    void setLogsModelData(bool &ok, const QModelIndex &index, const QVariant &value, int role);
    void getLogsModelFileInfo(QFileInfo &info, const QModelIndex &index);
    void getLogsModelDateTime(QDateTime &dateTime, const QModelIndex &index);
    // The model of that name when the database has one, else a new one made from the given record; a
    // model made here comes back with dateCreated set.
    void submitNewModel(bool &ok, ModelData &model);
    // Files the worker's current log under the model's folder "yyyy/MM/dd" of the flight's date; a log of
    // the same name and bytes already there is left alone.
    void onLogCreated(int modelId, const TelemetryDataPackage &log);

signals:
    void modelCreated(int modelId);
    void logStored(int logId, int modelId);

private:
    bool samePresent(int logId, const SyncWorker::PreparedLog &log);

    TransmitterLogsModel *m_logs;
    ModelLibrary *m_library;
    QPointer<SyncWorker> m_worker;
    bool m_dryRun = false;
    int m_nextDryId = -2;
    QHash<QString, int> m_dryModels;
};
