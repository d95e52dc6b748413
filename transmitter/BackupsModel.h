#pragma once

#include "database/BackupTables.h"

#include <QAbstractItemModel>
#include <QVector>

class DatabaseManager;

// The backups kept in the database, one row each, for the backups viewer and the restore page.
class BackupsModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Column
    {
        NameColumn,
        DateColumn,
        TransmitterColumn,
        SizeColumn,
        ColumnCount
    };
    static constexpr int IdRole = Qt::UserRole + 1;

    explicit BackupsModel(DatabaseManager *database, QObject *parent = nullptr);

    // Reads the list again; false (keeping the rows shown) when the database fails.
    bool reload();
    const BackupRow &backupAt(int row) const { return m_rows.at(row); }
    int backupCount() const { return m_rows.size(); }

    // The stored form of a backup's file list: UTF-8, one path a line.
    static QByteArray encodeFileList(const QStringList &files);
    static QStringList decodeFileList(const QByteArray &bytes);

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    DatabaseManager *m_db;
    QVector<BackupRow> m_rows;
};
