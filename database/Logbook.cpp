#include "database/Logbook.h"

#include "database/DatabaseManager.h"

#include <algorithm>

Logbook::Logbook(DatabaseManager *database, QObject *parent) : QAbstractTableModel(parent), m_db(database) {}

bool Logbook::setModelId(int modelId)
{
    m_modelId = modelId;
    return reload();
}

bool Logbook::reload()
{
    beginResetModel();
    m_lastError.clear();
    m_flights.clear();
    m_totals = Totals();
    m_totals.modelId = m_modelId;
    bool ok = true;
    if (m_modelId >= 0) {
        const QVector<Totals> totals = m_db->logTotals(m_modelId, &ok);
        if (ok)
            m_flights = m_db->flights(m_modelId, &ok);
        if (ok && !totals.isEmpty())
            m_totals = totals.constFirst();
        if (!ok) {
            m_flights.clear();
            m_lastError = m_db->lastError();
        }
        sortRows();
    }
    endResetModel();
    return ok;
}

QString Logbook::durationText(qint64 ms)
{
    const qint64 s = std::max<qint64>(0, ms) / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(s / 3600)
        .arg(s / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(s % 60, 2, 10, QLatin1Char('0'));
}

QString Logbook::dateText(const QDateTime &date)
{
    return date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")) : QString();
}

int Logbook::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_flights.size();
}

int Logbook::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant Logbook::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_flights.size())
        return QVariant();
    const Flight &f = m_flights.at(index.row());
    if (role == LogIdRole)
        return f.logId;
    if (role == Qt::TextAlignmentRole)
        return index.column() == DurationColumn || index.column() == AlarmsColumn
                   ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                   : QVariant();
    const bool value = role == ValueRole;
    if (!value && role != Qt::DisplayRole)
        return QVariant();
    switch (index.column()) {
    case DateColumn:
        return value ? QVariant(f.date) : QVariant(dateText(f.date));
    case DurationColumn:
        return value ? QVariant(f.lengthms) : QVariant(durationText(f.lengthms));
    case AlarmsColumn:
        return f.alarms;
    case NameColumn:
        return f.name;
    default:
        return QVariant();
    }
}

QVariant Logbook::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case DateColumn:
        return tr("Date");
    case DurationColumn:
        return tr("Duration");
    case AlarmsColumn:
        return tr("Alarms");
    case NameColumn:
        return tr("Log file");
    default:
        return QVariant();
    }
}

void Logbook::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ColumnCount)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    m_sortColumn = column;
    m_sortOrder = order;
    sortRows();
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void Logbook::sortRows()
{
    // Equal keys fall back on the date, then the log id, so the order never depends on the last sort.
    const auto key = [this](const Flight &a, const Flight &b) {
        switch (m_sortColumn) {
        case DurationColumn:
            return a.lengthms < b.lengthms ? -1 : a.lengthms > b.lengthms ? 1 : 0;
        case AlarmsColumn:
            return a.alarms - b.alarms;
        case NameColumn:
            return a.name.compare(b.name, Qt::CaseInsensitive);
        default:
            return 0;
        }
    };
    const auto less = [&](const Flight &a, const Flight &b) {
        int c = key(a, b);
        if (c == 0)
            c = a.date < b.date ? -1 : b.date < a.date ? 1 : a.logId - b.logId;
        return m_sortOrder == Qt::AscendingOrder ? c < 0 : c > 0;
    };
    std::sort(m_flights.begin(), m_flights.end(), less);
}
