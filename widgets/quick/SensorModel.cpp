#include "widgets/quick/SensorModel.h"

SensorModel::SensorModel(QObject *parent) : QAbstractListModel(parent) {}

int SensorModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

QVariant SensorModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() < 0 || index.row() >= m_rows.size())
        return QVariant();
    const Row &r = m_rows.at(index.row());
    switch (role) {
    case LabelRole:
        return r.label;
    case UnitRole:
        return r.unit;
    case ValueRole:
        return r.value;
    case MinimumRole:
        return r.minimum;
    case MaximumRole:
        return r.maximum;
    case ParamRole:
        return r.pair.param;
    case DecimalsRole:
        return r.decimals;
    case NameRole:
        return r.name;
    default:
        return QVariant();
    }
}

QHash<int, QByteArray> SensorModel::roleNames() const
{
    return {{LabelRole, "label"},       {UnitRole, "unit"},       {ValueRole, "value"},
            {MinimumRole, "minimum"},   {MaximumRole, "maximum"}, {ParamRole, "param"},
            {DecimalsRole, "decimals"}, {NameRole, "name"}};
}

int SensorModel::indexOf(const TelemetrySimplePair &pair) const
{
    for (int i = 0; i < m_rows.size(); ++i) {
        if (m_rows.at(i).pair == pair)
            return i;
    }
    return -1;
}

bool SensorModel::append(const Row &row)
{
    if (indexOf(row.pair) >= 0)
        return false;
    beginInsertRows(QModelIndex(), m_rows.size(), m_rows.size());
    m_rows.append(row);
    endInsertRows();
    emit orderChanged();
    return true;
}

void SensorModel::setRow(int index, const Row &row)
{
    if (index < 0 || index >= m_rows.size())
        return;
    Row &old = m_rows[index];
    QVector<int> roles;
    const auto check = [&roles](auto &was, const auto &now, int role) {
        if (was != now) {
            was = now;
            roles.append(role);
        }
    };
    check(old.label, row.label, LabelRole);
    check(old.unit, row.unit, UnitRole);
    check(old.value, row.value, ValueRole);
    check(old.minimum, row.minimum, MinimumRole);
    check(old.maximum, row.maximum, MaximumRole);
    check(old.decimals, row.decimals, DecimalsRole);
    check(old.name, row.name, NameRole);
    if (!roles.isEmpty())
        emit dataChanged(this->index(index), this->index(index), roles);
}

void SensorModel::move(int from, int to)
{
    if (from < 0 || from >= m_rows.size() || to < 0 || to >= m_rows.size() || from == to)
        return;
    // The view's destination is the row before which the moved one lands, counted before the move.
    beginMoveRows(QModelIndex(), from, from, QModelIndex(), to > from ? to + 1 : to);
    m_rows.move(from, to);
    endMoveRows();
    emit orderChanged();
}

void SensorModel::remove(int index)
{
    if (index < 0 || index >= m_rows.size())
        return;
    beginRemoveRows(QModelIndex(), index, index);
    m_rows.removeAt(index);
    endRemoveRows();
    emit orderChanged();
}

void SensorModel::clear()
{
    if (m_rows.isEmpty())
        return;
    beginResetModel();
    m_rows.clear();
    endResetModel();
    emit orderChanged();
}
