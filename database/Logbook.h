#pragma once

#include "database/LogTables.h"

#include <QAbstractTableModel>
#include <QVector>

class DatabaseManager;

// A model's logbook: its flights (one per stored log) with date, duration, alarms and name, and the
// totals over them. Read from what the logs table already holds (length, recording date, alarm count),
// never from the logs themselves, so showing it costs two queries however long the logs are. Sortable
// by any column; a sort survives reload().
class Logbook : public QAbstractTableModel
{
    Q_OBJECT
public:
    using Flight = LogTables::FlightRow;
    using Totals = LogTables::TotalsRow;

    enum Column
    {
        DateColumn,
        DurationColumn,
        AlarmsColumn,
        NameColumn,
        ColumnCount
    };
    enum Role
    {
        // The column's value itself (QDateTime, ms, count, name), as sorting compares it.
        ValueRole = Qt::UserRole + 1,
        LogIdRole
    };

    explicit Logbook(DatabaseManager *database, QObject *parent = nullptr);

    int modelId() const { return m_modelId; }
    // Shows another model's logbook (-1: none). False (showing nothing) when the database fails.
    bool setModelId(int modelId);
    bool reload();
    QString lastError() const { return m_lastError; }
    const Totals &totals() const { return m_totals; }
    const QVector<Flight> &flights() const { return m_flights; }

    // How the logbook writes a duration (h:mm:ss, hours growing past 99) and a date.
    static QString durationText(qint64 ms);
    static QString dateText(const QDateTime &date);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

private:
    void sortRows();

    DatabaseManager *m_db;
    int m_modelId = -1;
    Totals m_totals;
    QVector<Flight> m_flights;
    int m_sortColumn = DateColumn;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    QString m_lastError;
};
