#include "widgets/devices/LxBusTableModel.h"

#include "link/DeviceSettingsFile.h"

#include <QBrush>
#include <QPalette>

#include <cmath>

LxBusTableModel::LxBusTableModel(QObject *parent) : QAbstractTableModel(parent) {}

void LxBusTableModel::setDefinition(quint32 deviceId, const DeviceDefinition &definition)
{
    beginResetModel();
    m_definition = definition;
    m_settings = DeviceSettings::fromDefinition(deviceId, definition);
    for (DevParam &p : m_settings.params)
        p.loaded = false;
    endResetModel();
}

const DeviceParameter *LxBusTableModel::parameterAt(int row) const
{
    if (row < 0 || row >= m_settings.params.size())
        return nullptr;
    const DevParam &p = m_settings.params.at(row);
    if (const DeviceParameter *d = m_definition.parameter(p.id))
        return d;
    for (const DeviceParameter &d : m_definition.parameters) {
        if (d.address == p.address)
            return &d;
    }
    return nullptr;
}

void LxBusTableModel::setValues(const DevParamVector &params)
{
    for (const DevParam &in : params) {
        const int row = m_settings.indexOf(in.address);
        if (row < 0 || !in.loaded)
            continue;
        DevParam &p = m_settings.params[row];
        if (p.loaded && p.value == in.value)
            continue;
        p.value = in.value;
        p.loaded = true;
        updateRow(row);
    }
}

DevParamVector LxBusTableModel::applyWriteResult(const DevParamVector &params)
{
    DevParamVector refused;
    for (const DevParam &in : params) {
        const int row = m_settings.indexOf(in.address);
        if (!in.confirmed)
            refused.append(in);
        if (row < 0)
            continue;
        DevParam &p = m_settings.params[row];
        if (in.loaded) {
            p.value = in.value;
            p.loaded = true;
        } else {
            // Not read back: what the device holds is unknown until the next read.
            p.loaded = false;
        }
        updateRow(row);
    }
    return refused;
}

void LxBusTableModel::updateRow(int row)
{
    emit dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

int LxBusTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_settings.params.size();
}

int LxBusTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LxBusTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_settings.params.size())
        return QVariant();
    const DevParam &p = m_settings.params.at(index.row());
    const DeviceParameter *d = parameterAt(index.row());
    const qint64 raw = DeviceSettingsFile::rawOf(p);
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case PropertiesColumn:
            return QStringLiteral("%1\t[0x%2]")
                .arg(d ? d->name : QString(),
                     QStringLiteral("%1").arg(p.address, 4, 16, QLatin1Char('0')).toUpper());
        case ValueColumn:
            if (!p.loaded)
                return QString();
            return d ? DeviceSettingsFile::valueText(*d, raw)
                     : QString::number(p.floatValue(), 'f', p.decimals);
        case DescriptionColumn:
            return d ? d->description : QString();
        case SizeColumn:
            return int(p.width);
        case AddressColumn:
            return int(p.address);
        default:
            return QVariant();
        }
    case Qt::EditRole:
        if (index.column() == ValueColumn)
            return double(raw) / std::pow(10.0, p.decimals);
        return data(index, Qt::DisplayRole);
    case Qt::ToolTipRole:
        if (index.column() == ValueColumn && p.readOnly)
            return tr("Read-only");
        return index.column() == DescriptionColumn && d ? QVariant(d->description) : QVariant();
    case Qt::ForegroundRole:
        if (p.readOnly)
            return QBrush(QPalette().color(QPalette::Disabled, QPalette::Text));
        return QVariant();
    case RawRole:
        return raw;
    case MinimumRole:
        return p.min;
    case MaximumRole:
        return p.max;
    case DecimalsRole:
        return int(p.decimals);
    case ChoicesRole: {
        QVariantList list;
        if (d) {
            for (const auto &c : d->choices)
                list.append(QVariant(QVariantList{c.first, c.second}));
        }
        return list;
    }
    case LoadedRole:
        return p.loaded;
    default:
        return QVariant();
    }
}

QVariant LxBusTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case PropertiesColumn:
        return tr("Properties");
    case ValueColumn:
        return tr("Value");
    case DescriptionColumn:
        return tr("Description");
    case SizeColumn:
        return tr("Size");
    case AddressColumn:
        return tr("Address");
    default:
        return QVariant();
    }
}

Qt::ItemFlags LxBusTableModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags f = QAbstractTableModel::flags(index);
    if (index.isValid() && index.column() == ValueColumn && index.row() < m_settings.params.size()) {
        const DevParam &p = m_settings.params.at(index.row());
        // A value not read yet is not offered for editing: the editor would start from a guess.
        if (!p.readOnly && p.loaded)
            f |= Qt::ItemIsEditable;
    }
    return f;
}

bool LxBusTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.column() != ValueColumn || index.row() >= m_settings.params.size() ||
        !(flags(index) & Qt::ItemIsEditable))
        return false;
    DevParam &p = m_settings.params[index.row()];
    bool ok = false;
    qint64 raw = 0;
    if (role == RawRole) {
        raw = value.toLongLong(&ok);
    } else if (role == Qt::EditRole) {
        const double shown = value.toDouble(&ok);
        ok = ok && std::isfinite(shown);
        if (ok)
            raw = DeviceSettingsFile::rawFromShown(shown, p.decimals);
    }
    if (!ok || !p.refusal(raw).isEmpty())
        return false;
    if (raw == DeviceSettingsFile::rawOf(p))
        return true;
    // Shown at once; the read-back after the write puts the device's own value in its place.
    p.value = qint32(raw);
    p.sent = p.value;
    updateRow(index.row());
    emit writeRequested(p);
    return true;
}
