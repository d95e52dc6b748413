#include "database/ModelLibrary.h"
#include "telemetry/AtomicFile.h"

#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/InflatingDevice.h"
#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>

namespace {
// A damaged database could hold a cycle of parents; never walk one forever.
constexpr int kMaxFolderDepth = 100000;
constexpr qint64 kExportChunk = 1 << 20;
} // namespace

ModelLibrary::ModelLibrary(DatabaseManager *database) : m_db(database) {}

bool ModelLibrary::fail(const QString &reason)
{
    m_lastError = reason;
    return false;
}

bool ModelLibrary::failFromDatabase()
{
    return fail(m_db->lastError());
}

// --- models ---

int ModelLibrary::createModel(const QString &name)
{
    if (name.trimmed().isEmpty()) {
        fail(tr("A model needs a name"));
        return -1;
    }
    ModelData model;
    model.name = name.trimmed();
    model.layout = DefaultLayout::document();
    model.screenshot = QByteArray("");
    model.data = QByteArray("");
    const int id = m_db->insertModel(model);
    if (id < 0)
        failFromDatabase();
    return id;
}

bool ModelLibrary::renameModel(int modelId, const QString &name, const QString &description)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return fail(tr("A model needs a name"));
    bool listed = false;
    const QVector<ModelData> models = m_db->models(&listed);
    if (!listed)
        return failFromDatabase();
    for (const ModelData &m : models) {
        if (m.id != modelId && m.name.compare(trimmed, Qt::CaseInsensitive) == 0)
            return fail(tr("There is already a model named \"%1\"").arg(m.name));
    }
    if (!m_db->renameModel(modelId, trimmed, description))
        return failFromDatabase();
    return true;
}

QString ModelLibrary::modelName(int modelId)
{
    ModelData model;
    return modelId >= 0 && m_db->model(modelId, &model) ? model.name : QString();
}

int ModelLibrary::findModel(const QString &name, bool *ok)
{
    bool listed = false;
    const QVector<ModelData> models = m_db->models(&listed);
    if (ok)
        *ok = listed;
    if (!listed) {
        failFromDatabase();
        return -1;
    }
    int found = -1;
    int matches = 0;
    for (const ModelData &m : models) {
        if (m.name == name)
            return m.id;
        if (m.name.compare(name, Qt::CaseInsensitive) == 0) {
            found = m.id;
            ++matches;
        }
    }
    if (matches == 1)
        return found;
    fail(matches == 0
             ? tr("There is no model named \"%1\"").arg(name)
             : tr("%1 models are named \"%2\" apart from case; give the exact name").arg(matches).arg(name));
    return -1;
}

bool ModelLibrary::deleteModel(int modelId)
{
    ModelData model;
    if (!m_db->model(modelId, &model))
        return failFromDatabase();
    return m_db->deleteModel(modelId) || failFromDatabase();
}

// --- folders ---

int ModelLibrary::createFolder(int modelId, int parentId, const QString &name)
{
    if (name.trimmed().isEmpty()) {
        fail(tr("A folder needs a name"));
        return -1;
    }
    if (parentId >= 0) {
        int parentModel = -1;
        if (!m_db->folderParent(parentId, nullptr, &parentModel)) {
            failFromDatabase();
            return -1;
        }
        if (parentModel != modelId) {
            fail(tr("Folder %1 belongs to another model").arg(parentId));
            return -1;
        }
    }
    const int id = m_db->insertFolder(parentId, modelId, name.trimmed());
    if (id < 0)
        failFromDatabase();
    return id;
}

bool ModelLibrary::folderForPath(int modelId, const QString &path, int *folderId)
{
    int parent = -1;
    const QStringList levels = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &rawLevel : levels) {
        const QString level = rawLevel.trimmed();
        if (level.isEmpty())
            return fail(tr("Bad folder path \"%1\"").arg(path));
        bool ok = false;
        QVector<DatabaseManager::FolderRow> rows =
            parent < 0 ? m_db->topLevelFolders(&ok) : m_db->subFolders(parent, &ok);
        if (!ok)
            return failFromDatabase();
        const auto it = std::find_if(rows.cbegin(), rows.cend(), [&](const DatabaseManager::FolderRow &f) {
            return f.modelId == modelId && f.name.compare(level, Qt::CaseInsensitive) == 0;
        });
        if (it != rows.cend()) {
            parent = it->id;
            continue;
        }
        parent = m_db->insertFolder(parent, modelId, level);
        if (parent < 0)
            return failFromDatabase();
    }
    if (folderId)
        *folderId = parent;
    return true;
}

bool ModelLibrary::renameFolder(int folderId, const QString &name)
{
    if (name.trimmed().isEmpty())
        return fail(tr("A folder needs a name"));
    return m_db->renameFolder(folderId, name.trimmed()) || failFromDatabase();
}

bool ModelLibrary::renameLog(int logId, const QString &name)
{
    if (name.trimmed().isEmpty())
        return fail(tr("A log needs a name"));
    return m_db->renameLog(logId, name.trimmed()) || failFromDatabase();
}

bool ModelLibrary::editComment(int logId, const QString &comment)
{
    return m_db->editLogComment(logId, comment) || failFromDatabase();
}

bool ModelLibrary::moveFolder(int folderId, int newParentId)
{
    int model = -1;
    if (!m_db->folderParent(folderId, nullptr, &model))
        return failFromDatabase();
    // Walk up from the target: meeting the moved folder means it would end up inside itself.
    int step = newParentId;
    for (int depth = 0; step >= 0; ++depth) {
        if (step == folderId || depth > kMaxFolderDepth)
            return fail(tr("A folder cannot be moved into itself or one of its own sub-folders"));
        int parent = -1;
        int stepModel = -1;
        if (!m_db->folderParent(step, &parent, &stepModel))
            return failFromDatabase();
        if (stepModel != model)
            return fail(tr("A folder cannot be moved to another model"));
        step = parent;
    }
    return m_db->moveFolder(folderId, newParentId) || failFromDatabase();
}

bool ModelLibrary::moveLog(int logId, int folderId)
{
    bool ok = false;
    const int model = m_db->modelOfLog(logId, &ok);
    if (!ok)
        return failFromDatabase();
    if (model < 0)
        return fail(tr("Log file doesn't exist (log %1)").arg(logId));
    if (folderId >= 0) {
        int folderModel = -1;
        if (!m_db->folderParent(folderId, nullptr, &folderModel))
            return failFromDatabase();
        if (folderModel != model)
            return fail(tr("A log cannot be moved to another model"));
    }
    return m_db->moveLog(logId, folderId) || failFromDatabase();
}

bool ModelLibrary::deleteFolder(int folderId)
{
    return m_db->deleteFolder(folderId) || failFromDatabase();
}

bool ModelLibrary::deleteLog(int logId)
{
    return m_db->deleteLog(logId) || failFromDatabase();
}

// --- logs ---

qint64 ModelLibrary::lengthOf(const TelemetryDataPackage &package)
{
    qint64 first = -1;
    qint64 last = 0;
    for (const TelemetrySensor &s : package.devices()) {
        for (const TelemetryVar &v : s.vars()) {
            if (v.values().isEmpty())
                continue;
            const qint64 a = v.values().constFirst().timestamp;
            first = first < 0 ? a : std::min(first, a);
            last = std::max<qint64>(last, v.values().constLast().timestamp);
        }
    }
    for (const TelemetryMessage &m : package.messages()) {
        first = first < 0 ? m.timestamp : std::min<qint64>(first, m.timestamp);
        last = std::max<qint64>(last, m.timestamp);
    }
    return first < 0 ? 0 : std::max<qint64>(0, last - first);
}

int ModelLibrary::storeLog(const TelemetryDataPackage &package, int modelId, int folderId,
                           const QString &fileName, const QString &comment)
{
    return storeNativeLog(LogFileWriter::write(package), package.recordingDate(), lengthOf(package), modelId,
                          folderId, fileName.isEmpty() ? package.name() : fileName, comment,
                          package.alarmCount());
}

int ModelLibrary::storeNativeLog(const QByteArray &nativeLog, const QDateTime &recordingDate, qint64 lengthms,
                                 int modelId, int folderId, const QString &fileName, const QString &comment,
                                 int alarms)
{
    // Compressed before the transaction opens, so the database is locked only for the writes.
    return storeCompressedLog(BlobCodec::compress(nativeLog), recordingDate, lengthms, alarms, modelId,
                              folderId, fileName, comment);
}

int ModelLibrary::storeCompressedLog(const QByteArray &blob, const QDateTime &recordingDate, qint64 lengthms,
                                     int alarms, int modelId, int folderId, const QString &fileName,
                                     const QString &comment)
{
    if (!m_db->beginTransaction()) {
        failFromDatabase();
        return -1;
    }
    const int id = m_db->insertLog(modelId, folderId, fileName, comment, lengthms, recordingDate);
    if (id < 0 || !m_db->updateLogCompressed(id, comment, recordingDate, blob, lengthms) ||
        !m_db->setLogAlarms(id, alarms) || !m_db->commitTransaction()) {
        failFromDatabase();
        m_db->rollbackTransaction();
        return -1;
    }
    return id;
}

int ModelLibrary::findLog(int modelId, int folderId, const QString &fileName, bool *ok)
{
    bool done = false;
    const int id = m_db->findLog(modelId, folderId, fileName, &done);
    if (ok)
        *ok = done;
    if (!done)
        failFromDatabase();
    return id;
}

int ModelLibrary::importFile(const QString &path, int modelId, int folderId, QString *warning,
                             TelemetryDataPackage *package)
{
    if (warning)
        warning->clear();
    if (!m_db->beginTransaction()) {
        fail(tr("%1: %2").arg(path, m_db->lastError()));
        return -1;
    }
    TelemetryDataPackage read;
    QString error;
    int id = -1;
    if (!TelemetryData::readFile(path, &read, m_db, &error))
        fail(error);
    else if (read.sampleCount() == 0 && read.messages().isEmpty())
        fail(tr("%1: holds no telemetry").arg(path));
    else if ((id = storeLog(read, modelId, folderId, QFileInfo(path).fileName())) < 0)
        fail(tr("%1: %2").arg(path, m_lastError));
    else if (!m_db->commitTransaction()) {
        fail(tr("%1: %2").arg(path, m_db->lastError()));
        id = -1;
    }
    if (id < 0) {
        m_db->rollbackTransaction();
        return -1;
    }
    if (warning && read.droppedValues() > 0)
        *warning = tr("%1 samples of undescribed variables were dropped").arg(read.droppedValues());
    if (package)
        *package = std::move(read);
    return id;
}

bool ModelLibrary::readLog(int logId, TelemetryDataPackage *package, SensorTable *sensors)
{
    QByteArray blob;
    QDateTime date;
    if (!m_db->loadLogCompressed(logId, &blob, &date, nullptr))
        return failFromDatabase();
    InflatingDevice device(blob);
    if (!device.open(QIODevice::ReadOnly))
        return fail(tr("Log %1: %2").arg(logId).arg(device.errorString()));
    LogFileLoader loader(sensors ? sensors : m_db);
    if (!loader.load(&device, package))
        return fail(tr("Log %1: %2").arg(logId).arg(loader.lastError()));
    package->setRecordingDate(date);
    return true;
}

bool ModelLibrary::openLog(int logId, TelemetryData *store)
{
    TelemetryDataPackage package;
    if (!readLog(logId, &package))
        return false;
    store->setPackage(package, logId);
    return true;
}

bool ModelLibrary::exportLog(int logId, const QString &path)
{
    bool ok = false;
    if (!m_db->logExists(logId, &ok))
        return ok ? fail(tr("Log file doesn't exist (log %1)").arg(logId)) : failFromDatabase();
    QByteArray blob;
    if (!m_db->logDataCompressed(logId, &blob))
        return failFromDatabase();
    InflatingDevice device(blob);
    if (!device.open(QIODevice::ReadOnly))
        return fail(tr("Log %1: %2").arg(logId).arg(device.errorString()));
    if (QFileInfo(path).isDir())
        return fail(tr("%1: is a folder").arg(QDir::toNativeSeparators(path)));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(
            tr("Error writing to disk: %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
    QByteArray buffer(int(std::min(kExportChunk, std::max<qint64>(device.size(), 1))), Qt::Uninitialized);
    for (;;) {
        const qint64 n = device.read(buffer.data(), buffer.size());
        if (n < 0) {
            file.cancelWriting();
            return fail(tr("Log %1: %2").arg(logId).arg(device.errorString()));
        }
        if (n == 0)
            break;
        if (file.write(buffer.constData(), n) != n) {
            file.cancelWriting();
            return fail(
                tr("Error writing to disk: %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
        }
    }
    if (!AtomicFile::commit(file))
        return fail(
            tr("Error writing to disk: %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
    return true;
}
