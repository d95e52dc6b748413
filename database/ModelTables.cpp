#include "database/ModelTables.h"

#include "database/DatabaseConnection.h"

#include <QSqlQuery>
#include <QSqlRecord>

namespace {
using Db = DatabaseConnection;

ModelData modelFrom(const QSqlQuery &q, const QSqlRecord &r)
{
    const auto value = [&](const char *name) { return q.value(r.indexOf(QLatin1String(name))); };
    ModelData m;
    m.id = value("id").toInt();
    m.filename = value("filename").toString();
    m.name = value("name").toString();
    m.rx1 = value("rx1").toLongLong();
    m.rx2 = value("rx2").toLongLong();
    m.description = value("description").toString();
    m.screenshot = value("screenshot").toByteArray();
    m.data = value("data").toByteArray();
    m.layout = value("layout").toByteArray();
    m.dateCreated = Db::dateFromText(value("dateCreated").toString(), Qt::UTC);
    m.dateModified = Db::dateFromText(value("dateModified").toString(), Qt::UTC);
    return m;
}
} // namespace

QStringList ModelTables::createStatements()
{
    return {QStringLiteral(
                "create table IF NOT EXISTS models (id integer not null primary key, filename text not null, "
                "name text not null COLLATE NOCASE, rx1 integer not null, rx2 integer not null, description "
                "text not "
                "null, "
                "screenshot blob, data blob, layout blob, dateCreated datetime, dateModified datetime)"),
            QStringLiteral("create table IF NOT EXISTS folders (id integer not null primary key, "
                           "parentId integer null REFERENCES folders(id) ON DELETE CASCADE, "
                           "modelId integer not null REFERENCES models(id) ON DELETE CASCADE, name text not "
                           "null COLLATE NOCASE)")};
}

// --- models ---

int ModelTables::insertModel(const ModelData &m)
{
    return m_db->execInsert(
        QStringLiteral("insert into models (rx1,rx2,name,filename,description,data,layout,screenshot,"
                       "dateCreated,dateModified) "
                       "values(?,?,?,?,?,?,?,?,datetime('now'),datetime('now'))"),
        {m.rx1, m.rx2, Db::text(m.name), Db::text(m.filename), Db::text(m.description), m.data, m.layout,
         m.screenshot});
}

QVector<ModelData> ModelTables::models(bool *ok)
{
    QVector<ModelData> rows;
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, QStringLiteral("select * from models order by name COLLATE NOCASE"));
    if (ok)
        *ok = done;
    while (done && q.next())
        rows.append(modelFrom(q, q.record()));
    return rows;
}

bool ModelTables::model(int id, ModelData *model)
{
    QSqlQuery q = m_db->query();
    if (!m_db->exec(q, QStringLiteral("select * from models where id = ?"), {id}))
        return false;
    if (!q.next()) {
        m_db->fail(tr("%1: there is no model %2").arg(m_db->path()).arg(id));
        return false;
    }
    if (model)
        *model = modelFrom(q, q.record());
    return true;
}

bool ModelTables::updateModel(const ModelData &m)
{
    return m_db->execSimple(QStringLiteral("update models set rx1=?, rx2=?, data=?, layout=?, "
                                           "screenshot=?,dateModified=datetime('now') where id=?"),
                            {m.rx1, m.rx2, m.data, m.layout, m.screenshot, m.id});
}

bool ModelTables::renameModel(int id, const QString &name, const QString &description)
{
    return m_db->execSimple(QStringLiteral("update models set name = ?, description = ?, "
                                           "dateModified=datetime('now') where id = ?"),
                            {name, Db::text(description), id});
}

bool ModelTables::deleteModel(int id)
{
    return m_db->execSimple(QStringLiteral("delete from models where id = %1").arg(id));
}

// --- the models tree ---

QVector<ModelTables::FolderRow> ModelTables::folderRows(const QString &statement, bool *ok)
{
    QVector<FolderRow> rows;
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, statement);
    if (ok)
        *ok = done;
    while (done && q.next())
        rows.append({q.value(0).toInt(), q.value(1).toInt(), q.value(2).toString()});
    return rows;
}

QVector<ModelTables::LogRow> ModelTables::logRows(const QString &statement, bool *ok)
{
    QVector<LogRow> rows;
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, statement);
    if (ok)
        *ok = done;
    while (done && q.next()) {
        rows.append({q.value(0).toInt(), Db::idOrMinusOne(q.value(1)), q.value(2).toString(),
                     Db::dateFromText(q.value(3).toString()), q.value(4).toString()});
    }
    return rows;
}

QVector<ModelTables::FolderRow> ModelTables::topLevelFolders(bool *ok)
{
    return folderRows(QStringLiteral("select id, modelId, name from folders where parentId is null"), ok);
}

QVector<ModelTables::FolderRow> ModelTables::subFolders(int parentId, bool *ok)
{
    return folderRows(
        QStringLiteral("select id, modelId, name from folders where parentId = %1").arg(parentId), ok);
}

QVector<ModelTables::LogRow> ModelTables::logsInFolder(int folderId, bool *ok)
{
    return logRows(
        QStringLiteral("select id, modelId, filename,dateCreated,comment from logs where folderId = %1")
            .arg(folderId),
        ok);
}

QVector<ModelTables::LogRow> ModelTables::topLevelLogs(bool *ok)
{
    return logRows(
        QStringLiteral("select id, modelId, filename,dateCreated,comment from logs where folderId is null"),
        ok);
}

int ModelTables::insertFolder(int parentId, int modelId, const QString &name)
{
    return m_db->execInsert(QStringLiteral("insert into folders (parentId,modelId,name) values (?,?,?)"),
                            {Db::nullable(parentId), modelId, Db::text(name)});
}

int ModelTables::insertLog(int modelId, int folderId, const QString &filename, const QString &comment,
                           qint64 lengthms, const QDateTime &dateCreated)
{
    return m_db->execInsert(
        QStringLiteral("insert into logs (modelId,folderId,filename,comment,lengthms,dateCreated) "
                       "values (?,?,?,?,?,?)"),
        {modelId, Db::nullable(folderId), Db::text(filename), Db::text(comment), lengthms,
         Db::dateText(dateCreated)});
}

int ModelTables::findLog(int modelId, int folderId, const QString &filename, bool *ok)
{
    QSqlQuery q = m_db->query();
    // "is" matches a null folder (the top level) as well as an id; the column compares ignoring case.
    const bool done = m_db->exec(
        q,
        QStringLiteral(
            "select id from logs where modelId = ? and folderId is ? and filename = ? order by id"),
        {modelId, Db::nullable(folderId), Db::text(filename)});
    if (ok)
        *ok = done;
    return done && q.next() ? q.value(0).toInt() : -1;
}

bool ModelTables::editLogComment(int id, const QString &comment)
{
    return m_db->execSimple(QStringLiteral("update logs set comment = ? where id = ?"),
                            {Db::text(comment), id});
}

bool ModelTables::deleteFolder(int id)
{
    return m_db->execSimple(QStringLiteral("delete from folders where id = %1").arg(id));
}

bool ModelTables::deleteLog(int id)
{
    return m_db->execSimple(QStringLiteral("delete from logs where id = %1").arg(id));
}

bool ModelTables::renameOrMove(const QString &target, const QVariant &value, int id)
{
    return m_db->execSimple(QStringLiteral("update %1  = ? where id = ?").arg(target), {value, id});
}

bool ModelTables::renameFolder(int id, const QString &name)
{
    return renameOrMove(QStringLiteral("folders set name"), Db::text(name), id);
}

bool ModelTables::renameLog(int id, const QString &filename)
{
    return renameOrMove(QStringLiteral("logs set filename"), Db::text(filename), id);
}

bool ModelTables::moveFolder(int id, int parentId)
{
    return renameOrMove(QStringLiteral("folders set parentId"), Db::nullable(parentId), id);
}

bool ModelTables::moveLog(int id, int folderId)
{
    return renameOrMove(QStringLiteral("logs set folderId"), Db::nullable(folderId), id);
}

bool ModelTables::folderParent(int id, int *parentId, int *modelId)
{
    QSqlQuery q = m_db->query();
    if (!m_db->exec(q, QStringLiteral("select parentId, modelId from folders where id = ?"), {id}))
        return false;
    if (!q.next()) {
        m_db->fail(tr("%1: there is no folder %2").arg(m_db->path()).arg(id));
        return false;
    }
    if (parentId)
        *parentId = Db::idOrMinusOne(q.value(0));
    if (modelId)
        *modelId = q.value(1).toInt();
    return true;
}
