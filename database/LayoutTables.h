#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

class DatabaseConnection;

// The layouts table: window layouts the pilot saved by name.
class LayoutTables
{
public:
    struct Row
    {
        int id = -1;
        QString name;
        QString description;
        QByteArray screenshot;
        QByteArray data;
        QDateTime dateCreated;
    };

    explicit LayoutTables(DatabaseConnection *db) : m_db(db) {}

    static QStringList createStatements();

    int insertLayout(const QString &name, const QString &description, const QByteArray &data,
                     const QByteArray &screenshot);
    QVector<Row> layouts(bool *ok);
    bool deleteLayout(int id);

private:
    DatabaseConnection *m_db;
};
