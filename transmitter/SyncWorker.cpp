#include "transmitter/SyncWorker.h"

#include "database/BlobCodec.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileLoader.h"
#include "telemetry/MemorySensorTable.h"
#include "transmitter/TransmitterLogsModel.h"
#include "transmitter/WorkerText.h"

#include <QBuffer>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

QString SyncReport::summary() const
{
    QStringList lines;
    lines << QCoreApplication::translate("SyncWorker", "Stored: %1").arg(stored.size())
          << QCoreApplication::translate("SyncWorker", "Skipped as already present: %1").arg(skipped.size())
          << QCoreApplication::translate("SyncWorker", "Failed: %1").arg(failed.size());
    for (const Entry &e : failed)
        lines << QStringLiteral("  %1: %2").arg(e.file, e.reason);
    if (!dateReplaced.isEmpty()) {
        lines << QCoreApplication::translate("SyncWorker",
                                             "Filed under the file's date (no valid date in the name): %1")
                     .arg(dateReplaced.size());
        for (const QString &file : dateReplaced)
            lines << QStringLiteral("  ") + file;
    }
    if (!modelsCreated.isEmpty())
        lines << QCoreApplication::translate("SyncWorker", "New models: %1")
                     .arg(modelsCreated.join(QStringLiteral(", ")));
    if (canceled)
        lines << QCoreApplication::translate("SyncWorker",
                                             "Canceled before the end; the logs above stay stored.");
    else if (!abortedBy.isEmpty())
        lines << QCoreApplication::translate("SyncWorker", "Stopped: %1").arg(abortedBy);
    return lines.join(QLatin1Char('\n'));
}

SyncWorker::SyncWorker(const QList<QPersistentModelIndex> &logs, const QString &driveRoot, QObject *parent)
    : QObject(parent), m_logs(logs), m_root(driveRoot)
{
    // Names taken now, on the model's thread, so a log that vanishes from the tree can still be named.
    for (const QPersistentModelIndex &index : logs)
        m_names << relativeName(QFileInfo(index.data(TransmitterLogsModel::FilePathRole).toString()));
    static const int registered = [] {
        qRegisterMetaType<SyncReport>();
        qRegisterMetaType<SyncWorker::ErrorType>();
        qRegisterMetaType<TelemetryDataPackage>();
        ModelData::registerMetaType();
        return 0;
    }();
    Q_UNUSED(registered)
}

QString SyncWorker::relativeName(const QFileInfo &info)
{
    return info.dir().dirName() + QLatin1Char('/') + info.fileName();
}

void SyncWorker::setStoreResult(StoreResult result, int logId, const QString &error)
{
    m_current.result = result;
    m_current.logId = logId;
    m_current.error = error;
}

bool SyncWorker::driveGone() const
{
    return !QDir(m_root).exists() || !QDir(m_root).exists(QStringLiteral("Log"));
}

void SyncWorker::failLog(const QString &name, const QString &model, const QString &text)
{
    m_report.failed << SyncReport::Entry{name, model, text};
    emit processedFile(tr("%1: failed: %2").arg(name, text));
}

SyncWorker::Step SyncWorker::abort(ErrorType type, const QString &text)
{
    QString plain = text;
    plain.replace(QLatin1String("</b><ul><li>"), QLatin1String(": "));
    plain.remove(QRegularExpression(QStringLiteral("<[^>]*>")));
    plain.replace(QLatin1String("&lt;"), QLatin1String("<"))
        .replace(QLatin1String("&gt;"), QLatin1String(">"))
        .replace(QLatin1String("&quot;"), QLatin1String("\""))
        .replace(QLatin1String("&amp;"), QLatin1String("&"));
    m_report.abortedBy = plain;
    emit error(type, text);
    return Step::Stop;
}

void SyncWorker::doWork()
{
    const int count = m_logs.size();
    for (int i = 0; i < count; ++i) {
        if (m_cancel) {
            m_report.canceled = true;
            emit error(Canceled, tr("Canceled."));
            break;
        }
        if (syncOne(m_logs.at(i), m_names.value(i)) == Step::Stop)
            break;
        emit progressChanged((i + 1) * 100 / count);
    }
    m_current = PreparedLog();
    emit completed(m_report);
    emit finished();
}

SyncWorker::Step SyncWorker::syncOne(const QPersistentModelIndex &index, const QString &listedName)
{
    const auto disconnected = [this] {
        qDebug() << "Transmitter removed!";
        return abort(DisconnectedError, tr("Transmitter disconnected. Aborting synchronization."));
    };
    QFileInfo info;
    emit requestGetLogsModelFileInfo(info, index);
    QDateTime dateTime;
    emit requestGetLogsModelDateTime(dateTime, index);
    if (info.filePath().isEmpty()) {
        if (driveGone())
            return disconnected();
        failLog(listedName, QString(),
                tr("Unable to open the log file") + QStringLiteral(": ") +
                    tr("the file is no longer on the drive"));
        return Step::Next;
    }
    const QString name = relativeName(info);
    const QString path = info.absoluteFilePath();
    const bool dateReplaced = !dateTime.isValid();
    if (dateReplaced) {
        qDebug() << "Unexpected log datetime.";
        dateTime = info.lastModified();
    }

    // Whole file in one buffer of its size: the bytes stored are the file's, not a re-written copy.
    QFile file(path);
    QByteArray bytes;
    const bool opened = file.open(QIODevice::ReadOnly);
    const qint64 size = opened ? file.size() : 0;
    if (size > BlobCodec::kMaxSize) {
        failLog(name, QString(), tr("%1: %2").arg(info.fileName(), tr("the file is too large")));
        return Step::Next;
    }
    bytes.resize(int(size));
    if (!opened || file.read(bytes.data(), size) != size) {
        if (driveGone())
            return disconnected();
        qDebug() << "Unable to open logfile:" << path;
        failLog(name, QString(),
                tr("Unable to open the log file") + QStringLiteral(": ") +
                    tr("%1: %2").arg(info.fileName(), file.errorString()));
        return Step::Next;
    }
    file.close();

    TelemetryDataPackage package;
    // The database's sensor rows are the interface thread's; what is stored are the file's own bytes, so
    // a table of the worker's own changes nothing that is kept (the store adds the rows it names).
    MemorySensorTable sensors;
    LogFileLoader loader(&sensors);
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const bool loaded = loader.load(&buffer, &package);
    buffer.close();
    // A log with nothing of a flight in it (a cut-off copy, or not a log at all) is not filed.
    if (!loaded || package.devices().isEmpty() ||
        (package.sampleCount() == 0 && package.messages().isEmpty())) {
        qDebug() << "Unable to load log:" << path;
        const QString why = loaded ? tr("no telemetry in it") : loader.lastError();
        failLog(name, package.name(), tr("Unable to load the log file") + QStringLiteral(": ") + why);
        return Step::Next;
    }
    package.setRecordingDate(dateTime);
    const QString modelName =
        package.name().trimmed().isEmpty() ? tr("Unknown model") : package.name().trimmed();

    int modelId = m_modelIds.value(modelName, -1);
    if (!m_modelIds.contains(modelName)) {
        QVariant value;
        emit requestGetLogsModelData(value, index, TransmitterLogsModel::ModelDataRole);
        ModelData model = value.value<ModelData>();
        model.name = modelName;
        if (model.description.isEmpty())
            model.description = package.description();
        model.id = -1;
        model.dateCreated = QDateTime();
        bool ok = false;
        emit requestSubmitNewModel(ok, model);
        if (!ok || model.id == -1) {
            qDebug() << "Unable to create model in database";
            return abort(CreateModelError, tr("There was an error during creating a model in database."));
        }
        modelId = model.id;
        m_modelIds.insert(modelName, modelId);
        if (model.dateCreated.isValid())
            m_report.modelsCreated << modelName;
    }

    m_current = PreparedLog();
    m_current.path = path;
    m_current.fileName = info.fileName();
    m_current.dateTime = dateTime;
    m_current.folderPath = dateTime.date().toString(QStringLiteral("yyyy/MM/dd"));
    m_current.size = bytes.size();
    m_current.lengthms = ModelLibrary::lengthOf(package);
    m_current.alarms = package.alarmCount();
    m_current.blob = BlobCodec::compress(bytes);
    m_current.bytes = bytes;
    bytes = QByteArray();
    emit logCreated(modelId, package);
    const SyncReport::Entry entry{name, modelName, QString()};
    switch (m_current.result) {
    case Stored:
        m_report.stored << entry;
        emit processedFile(tr("%1: stored under %2, %3").arg(name, modelName, m_current.folderPath));
        break;
    case AlreadyPresent:
        m_report.skipped << entry;
        emit processedFile(tr("%1: already in the database").arg(name));
        break;
    case FolderFailed:
        return abort(
            CreateFolderError,
            WorkerText::withDetail(tr("Unable to create the log folder in database"), m_current.error));
    case SaveFailed:
    case NotStored:
        qDebug() << "Unable to save log to database:" << path;
        return abort(SaveLogError,
                     WorkerText::withDetail(tr("Unable to save the log file to database"), m_current.error));
    }
    if (dateReplaced)
        m_report.dateReplaced << name;
    m_current = PreparedLog();
    // What is in the database is unchecked in the tree: a run cut short leaves only the rest checked.
    bool unchecked = false;
    emit requestSetLogsModelData(unchecked, index, int(Qt::Unchecked), Qt::CheckStateRole);
    return Step::Next;
}
