#include "database/LayoutTables.h"

#include "database/DatabaseConnection.h"

#include <QSqlQuery>
#include <QSqlRecord>

QStringList LayoutTables::createStatements()
{
    return {QStringLiteral("create table IF NOT EXISTS layouts (id integer not null primary key, name text "
                           "not null COLLATE NOCASE, "
                           "description text not null, screenshot blob, data blob, dateCreated datetime)")};
}

int LayoutTables::insertLayout(const QString &name, const QString &description, const QByteArray &data,
                               const QByteArray &screenshot)
{
    return m_db->execInsert(
        QStringLiteral("insert into layouts (name,description,data,screenshot,dateCreated) "
                       "values(?,?,?,?,datetime('now'))"),
        {DatabaseConnection::text(name), DatabaseConnection::text(description), data, screenshot});
}

QVector<LayoutTables::Row> LayoutTables::layouts(bool *ok)
{
    QVector<Row> rows;
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, QStringLiteral("select * from layouts order by name COLLATE NOCASE"));
    if (ok)
        *ok = done;
    if (!done)
        return rows;
    const QSqlRecord r = q.record();
    const int id = r.indexOf(QStringLiteral("id")), name = r.indexOf(QStringLiteral("name")),
              description = r.indexOf(QStringLiteral("description")),
              screenshot = r.indexOf(QStringLiteral("screenshot")), data = r.indexOf(QStringLiteral("data")),
              date = r.indexOf(QStringLiteral("dateCreated"));
    while (q.next()) {
        Row row;
        row.id = q.value(id).toInt();
        row.name = q.value(name).toString();
        row.description = q.value(description).toString();
        row.screenshot = q.value(screenshot).toByteArray();
        row.data = q.value(data).toByteArray();
        row.dateCreated = DatabaseConnection::dateFromText(q.value(date).toString(), Qt::UTC);
        rows.append(row);
    }
    return rows;
}

bool LayoutTables::deleteLayout(int id)
{
    return m_db->execSimple(QStringLiteral("delete from layouts where id=?"), {id});
}
